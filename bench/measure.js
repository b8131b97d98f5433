'use strict';

// Measuring in turns: whatever else the machine does, it does to everything that is compared.

const now = () => Number(process.hrtime.bigint());

const quantile = (sorted, share) => sorted[Math.min(sorted.length - 1, Math.floor(share * sorted.length))];

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
    for (let count = 1; ; count = Math.min(limit, count * 4)) {
        const start = now();
        await run(count);
        const fitting = Math.round((count * nanoseconds) / (now() - start));
        if (fitting < count * 4 || count >= limit) return Math.max(1, Math.min(limit, fitting));
    }
}

// Every runner takes a number of operations. The same number for all of them, one round each in turn, three of them to
// warm up; answers nanoseconds per operation.
async function inTurns(runners, { rounds, milliseconds = 25, limit = 1e7 }) {
    const counts = [];
    for (const run of runners) counts.push(await calibrate(run, milliseconds * 1e6, limit));
    const count = Math.max(...counts);
    const results = runners.map(() => []);
    for (let round = -3; round < rounds; ++round) {
        for (const [index, run] of runners.entries()) {
            const start = now();
            await run(count);
            if (round >= 0) results[index].push((now() - start) / count);
        }
    }
    return results.map(summarise);
}

module.exports = { now, quantile, summarise, ratioOf, inTurns };
