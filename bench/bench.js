'use strict';

// The benchmark: node bench/bench.js [--build <folder>] [--rounds <n>] [part of a name...]

const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const { parseArgs } = require('node:util');

const { inTurns, now, ratioOf, summarise } = require('./measure');

const root = path.join(__dirname, '..');
const { values: options, positionals: wanted } = parseArgs({
    options: {
        build: { type: 'string', default: path.join(root, 'build', `${process.platform}-${process.arch}`) },
        rounds: { type: 'string', default: '21' },
    },
    allowPositionals: true,
});
const build = path.resolve(options.build);
const folder = path.join(build, 'bench');
const rounds = Number(options.rounds);
const isWanted = (name) => wanted.length === 0 || wanted.some((part) => name.includes(part));

const native = require(path.join(folder, 'BrivonJS.node'));
const floor = require(path.join(folder, 'floor.node'));

// A goal judges the figure as it is printed.
const atMost = (limit, unit = '') => ({
    text: `<= ${limit.toFixed(2)}${unit}`,
    unit,
    isMet: (figure) => Number(figure) <= limit,
});
const atLeast = (limit) => ({ text: `>= ${limit.toFixed(2)}`, unit: '', isMet: (figure) => Number(figure) >= limit });
const noGoal = { text: '', unit: '', isMet: () => true };

// ---- The table

const rows = [['what', 'ratio', 'spread', 'goal', '', 'module', 'spread', 'against', 'spread']];
const notes = new Set();

// What stands in the way of goals that are missed, by the beginning of the row's name. README.md has the profiles.
const obstacles = {
    getEndpointCacheSnapshot: 'the cache is copied first, and the end of each text is looked for',
    'incoming message':
        'a record of five texts, a closure and a look into the endpoint cache belong to each message; the floor has ' +
        'one block of memory',
    launchApp: 'two objects and a reference that the floor does not make belong to each launch',
    require: 'one line of JavaScript around an addon that does nothing costs about 1.7 times its loading already',
    'bus, one way':
        'the receiver hands each message from one thread to another, where the peers have one thread, on as many ' +
        'processors',
    'bus, round trip':
        'the slowest trips are those for which a thread is woken on an idle processor; on Windows, where only the ' +
        'library’s thread can write, all are',
};

// The ratio is the figure that the goal is about, whatever it is.
function addRow(name, ratio, goal, first, second, unit = 'ns') {
    const figure = ratio === undefined ? '' : ratio.median.toFixed(2);
    const spread = (result) => (result?.spread === undefined ? '' : `${Math.round(result.spread * 100)} %`);
    const median = (result) => (result === undefined ? '' : `${result.median.toFixed(unit === 'ns' ? 0 : 1)} ${unit}`);
    const isMet = goal.isMet(figure);
    const obstacle = Object.keys(obstacles).find((beginning) => name.startsWith(beginning));
    if (!isMet && obstacle !== undefined) notes.add(`missed: ${obstacle}: ${obstacles[obstacle]}`);
    rows.push([
        name,
        figure + goal.unit,
        spread(ratio),
        goal.text,
        isMet ? '' : 'MISSED',
        ...[first, second].flatMap((result) => [median(result), spread(result)]),
    ]);
}

function printTable() {
    const widths = rows[0].map((_, column) => Math.max(...rows.map((row) => row[column].length)));
    for (const row of rows) {
        const cells = row.map((cell, column) =>
            column === 0 ? cell.padEnd(widths[0]) : cell.padStart(widths[column]),
        );
        console.log(cells.join('  ').trimEnd());
    }
    for (const note of notes) console.log(note);
}

// ---- Both sides

// Kept for good: the collection of one adapter silences the listeners of all.
const adapters = [];

function newAdapters(endpoints) {
    const pair = [
        new native.BrivonAdapter('bench', String(endpoints), 'calendar'),
        new floor.Adapter('bench', String(endpoints), 'calendar'),
    ];
    adapters.push(...pair);
    return pair;
}

function newControlAdapters(applications) {
    native._setLibraryPath(String(applications));
    return [new native.BrivonControlAdapter(), new floor.ControlAdapter(String(applications))];
}

// A loop around a call, compiled for each subject on its own, so that neither side's call site has seen the other.
function loop(subject, call, payload) {
    const source = `// ${subject.constructor.name}
        return (count) => { for (let i = 0; i < count; ++i) subject.${call}; };`;
    return new Function('subject', 'payload', source)(subject, payload);
}

async function compareCalls(name, subjects, call, payload, goal = atMost(1.1)) {
    if (!isWanted(name)) return;
    const results = await inTurns(
        subjects.map((subject) => loop(subject, call, payload)),
        { rounds },
    );
    addRow(name, ratioOf(...results), goal, ...results);
}

const sizes = { '20 B': 20, '1 KiB': 1024, '64 KiB': 65536 };

// ---- Calls

async function compareSends() {
    const subjects = newAdapters(1);
    const calls = {
        2: "sendMessage('ping', payload)",
        5: "sendMessage('ping', payload, 'calendar', '3.0', 'endpoint-0')",
    };
    for (const [count, call] of Object.entries(calls)) {
        for (const [size, bytes] of Object.entries(sizes))
            await compareCalls(`sendMessage, ${count} arguments, ${size}`, subjects, call, 'x'.repeat(bytes));
    }
    for (const endpoints of [1, 10, 100, 1000])
        await compareCalls(
            `sendMessage, ${endpoints} cached`,
            newAdapters(endpoints),
            calls[2],
            'x'.repeat(20),
            noGoal,
        );
}

async function compareQueries() {
    const subjects = newControlAdapters(10);
    await compareCalls('isAppInstalled', subjects, "isAppInstalled('calendar')");
    await compareCalls('getAppPath', subjects, "getAppPath('calendar')");
    await compareCalls('getSpecifiers, 10', subjects, 'getSpecifiers()');
    await compareCalls('getSpecifiers, 1000', newControlAdapters(1000), 'getSpecifiers()');
    for (const endpoints of [10, 200]) {
        await compareCalls(
            `getEndpointCacheSnapshot, ${endpoints}`,
            newAdapters(endpoints),
            'getEndpointCacheSnapshot()',
        );
    }
}

// ---- Incoming messages

async function compareDeliveries() {
    if (!isWanted('incoming')) return;
    const subjects = newAdapters(1);
    const runners = subjects.map((subject, listener) => {
        let received = 0;
        let expected = 0;
        let done;
        subject.addMessageListener((type, payload, appId, appVersion, sourceId) => {
            if (sourceId.length > 0 && ++received === expected) done();
        });
        return (size) => (count) =>
            new Promise((resolve) => {
                received = 0;
                expected = count;
                done = resolve;
                subjects[0].sendMessage(`flood:${count}:${size}:${listener}`, '');
            });
    });
    for (const [size, bytes] of Object.entries(sizes)) {
        // What waits for the listener stays below 64 MiB.
        const results = await inTurns(
            runners.map((runner) => runner(bytes)),
            { rounds, milliseconds: 40, limit: Math.min(50000, Math.floor(2 ** 26 / bytes)) },
        );
        addRow(`incoming message, ${size} (rate)`, ratioOf(results[1], results[0]), atLeast(0.95), ...results);
    }
}

// ---- Launches

async function compareLaunches() {
    if (!isWanted('launchApp')) return;
    const atOnce = 100;
    const runners = newControlAdapters(10).map((subject) => async (count) => {
        for (let launched = 0; launched < count; launched += atOnce) {
            await new Promise((resolve) => {
                let pending = Math.min(atOnce, count - launched);
                const callback = () => --pending === 0 && resolve();
                for (let i = pending; i > 0; --i) subject.launchApp('calendar', true, '--today', callback);
            });
        }
    });
    const results = await inTurns(runners, { rounds });
    addRow('launchApp', ratioOf(...results), atMost(1.1), ...results);
}

// ---- Processes of their own, on the real libraries

const scratch = fs.mkdtempSync(path.join(os.tmpdir(), 'brivon-bench-'));
process.on('exit', () => fs.rmSync(scratch, { recursive: true, force: true }));

// What a script prints, as an object. It prints into a file, which is enough wherever pipes are not.
function resultOf(...argv) {
    const output = path.join(scratch, 'result');
    const stream = fs.openSync(output, 'w');
    const env = { ...process.env, BRIVONJS_MODULE: path.join(build, 'BrivonJS.node') };
    const stdio = ['ignore', stream, 'inherit'];
    const ended = spawnSync(process.execPath, argv.map(String), { env, stdio, timeout: 300000 });
    fs.closeSync(stream);
    if (ended.status !== 0) throw new Error(`a process of the benchmark ended with ${ended.status ?? ended.signal}`);
    return JSON.parse(fs.readFileSync(output, 'utf8'));
}

// An ended adapter silences every listener, so constructions have a process to themselves.
function measureConstruction() {
    if (!isWanted('construction')) return;
    const script = `
        const { summarise, now } = require(${JSON.stringify(path.join(__dirname, 'measure'))});
        const native = require(${JSON.stringify(path.join(folder, 'BrivonJS.node'))});
        const values = [];
        for (let round = -3; round < ${rounds}; ++round) {
            const start = now();
            for (let i = 0; i < 2000; ++i) new native.BrivonAdapter('bench', '1', 'calendar');
            if (round >= 0) values.push((now() - start) / 2000);
        }
        console.log(JSON.stringify(summarise(values)));`;
    addRow('construction', undefined, noGoal, resultOf('-e', script));
}

function compareLoading() {
    if (!isWanted('require')) return;
    const targets = [root, path.join(folder, 'nothing.node')];
    const values = targets.map(() => []);
    for (let round = 0; round < rounds; ++round) {
        for (const [index, target] of targets.entries()) {
            const script = `const start = process.hrtime.bigint();
                require(${JSON.stringify(target)});
                console.log(Number(process.hrtime.bigint() - start));`;
            values[index].push(resultOf('-e', script) / 1000);
        }
    }
    const results = values.map(summarise);
    addRow('require', ratioOf(...results), atMost(1.5), ...results, 'us');
}

function compareVersionLookups() {
    if (!isWanted('version lookup')) return;
    const sample = path.join(build, 'test', 'samples', 'plain.x64.exe');
    const bySize = resultOf(path.join(__dirname, 'versions.js'), sample, rounds);
    for (const [size, goal] of Object.entries({ 10: noGoal, 100: atMost(1.2) })) {
        const name = `version lookup, ${size} MiB against 1 MiB`;
        addRow(name, ratioOf(bySize[size], bySize[1]), goal, bySize[size], bySize[1]);
    }
}

// ---- Processes that talk

function preparePeers() {
    if (fs.existsSync(path.join(__dirname, 'node_modules', 'zeromq')) || process.platform === 'win32') return;
    spawnSync('npm', ['ci', '--ignore-scripts', '--no-audit', '--no-fund', '--prefix', __dirname], {
        stdio: 'ignore',
        timeout: 120000,
    });
}

// The goal stands beside the best of the others.
function addWays(script, goalOf) {
    preparePeers();
    const { results, leftOut } = resultOf(path.join(__dirname, script));
    for (const [way, reason] of Object.entries(leftOut)) notes.add(`left out: ${way} (${reason})`);
    for (const { what, unit, isRate, byWay } of results) {
        const { bus, ...others } = byWay;
        const ratios = Object.entries(others).map(([way, result]) => [way, ratioOf(bus, result)]);
        const medians = ratios.map(([, ratio]) => ratio.median);
        const hardest = isRate ? Math.min(...medians) : Math.max(...medians);
        for (const [way, ratio] of ratios) {
            const goal = ratio.median === hardest ? goalOf(what) : noGoal;
            addRow(`bus, ${what}, against ${way}`, ratio, goal, bus, others[way], unit);
        }
    }
}

function comparePairs() {
    if (!isWanted('bus, one way, round trip')) return;
    const goals = { 'one way 100 B': atLeast(2.5), 'one way 4 KiB': noGoal };
    addWays('pairs.js', (what) => goals[what] ?? atMost(0.6));
}

function compareMeshes() {
    if (!isWanted('bus, 16 processes')) return;
    addWays('mesh.js', () => noGoal);
}

const memory = path.join(__dirname, 'memory.js');

function compareMemory() {
    if (!isWanted('bus, memory')) return;
    const values = resultOf('--expose-gc', memory, 'flow');
    const [first, fifth] = [values[0], values[4]];
    for (const side of ['sender', 'receiver']) {
        const growth = { median: fifth[side].median - first[side].median };
        const name = `bus, memory, fifth million against first, ${side}`;
        addRow(name, growth, atMost(2, ' MiB'), fifth[side], first[side], 'MiB');
    }
}

// While the 64 MiB that may wait for one receiver are moved to a larger place, they are there twice; the rest is for
// the runtime.
function measureStoppedReceiver() {
    const name = 'bus, memory, sender to a stopped receiver';
    if (!isWanted(name)) return;
    if (process.platform === 'win32') {
        notes.add(`left out: ${name} (no signal stops a process here)`);
        return;
    }
    const { before, after, most, offered, taken } = resultOf('--expose-gc', memory, 'stop');
    addRow(name, { median: most - before }, atMost(160, ' MiB'), { median: after }, { median: before }, 'MiB');
    notes.add(`stopped receiver: of ${offered} MiB, ${taken.toFixed(1)} MiB were taken and the rest was refused`);
}

async function main() {
    const start = now();
    const cases = [
        compareSends,
        compareQueries,
        compareDeliveries,
        compareLaunches,
        measureConstruction,
        compareLoading,
        compareVersionLookups,
        comparePairs,
        compareMeshes,
        compareMemory,
        measureStoppedReceiver,
    ];
    // One that fails leaves the others their rows.
    for (const measure of cases) {
        try {
            await measure();
        } catch (error) {
            notes.add(`failed: ${measure.name} (${error.message})`);
            process.exitCode = 1;
        }
    }
    printTable();
    console.log(
        `up to ${rounds} rounds each, in turns, ${Math.round((now() - start) / 1e9)} s; Node.js ${process.version}`,
    );
    process.exit();
}

main();
