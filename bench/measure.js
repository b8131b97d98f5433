'use strict';

// Measuring in turns: whatever else the machine does, it does to everything that is compared.

const now = () => Number(process.hrtime.bigint());

function quantile(sorted, share) {
    return sorted[Math.min(sorted.length - 1, Math.floor(share * sorted.length))];
}

function summarise(values) {
    const sorted = [...values].sort((a, b) => a - b);
    const median = quantile(sorted, 0.5);
    return { values, median, spread: (quantile(sorted, 0.75) - quantile(sorted, 0.25)) / median };
}

// Round by round: what disturbed one round of the first disturbed that of the second too.
function ratioOf(first, second) {
    return summarise(first.values.map((value, round) => value / second.values[round]));
}

// How many operations take about that long, warming up on the way.
async function calibrate(run, nanoseconds, limit) {
    for (let count = 1; ;) {
        const start = now();
        await run(count);
        const duration = now() - start;
        if (duration > nanoseconds / 4 || count >= limit) {
            return Math.max(1, Math.min(limit, Math.round((count * nanoseconds) / duration)));
        }
        count = Math.min(limit, count * 4);
    }
}

// Every runner takes a number of operations. The same number for all of them, one round each in turn; answers
// nanoseconds per operation.
async function inTurns(runners, { rounds = 21, milliseconds = 25, limit = 1e7, warmUp = 3 } = {}) {
    const counts = [];
    for (const run of runners) counts.push(await calibrate(run, milliseconds * 1e6, limit));
    const count = Math.max(...counts);
    const results = runners.map(() => []);
    for (let round = -warmUp; round < rounds; ++round) {
        for (const [index, run] of runners.entries()) {
            const start = now();
            await run(count);
            const duration = now() - start;
            if (round >= 0) results[index].push(duration / count);
        }
    }
    return results.map(summarise);
}

module.exports = { now, quantile, summarise, ratioOf, inTurns };
