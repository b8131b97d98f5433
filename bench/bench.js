'use strict';

// The benchmark: node bench/bench.js [--rounds <n>] [--report] [part of a name...]

const path = require('node:path');
const { setImmediate: nextTurn } = require('node:timers/promises');
const { parseArgs } = require('node:util');

const { inTurns, now, ratioOf, summarise } = require('./measure');
const { Processes } = require('./processes');
const requests = require('./requests');
const { tableOf, writeReport } = require('./report');
const ways = require('./ways');

const isWindows = process.platform === 'win32';
const root = path.join(__dirname, '..');
const build = path.join(root, 'build', `${process.platform}-${process.arch}`);
const { values: options, positionals: wanted } = parseArgs({
    options: { rounds: { type: 'string', default: '21' }, report: { type: 'boolean' } },
    allowPositionals: true,
});
const rounds = Number(options.rounds);
const isWanted = (name) => wanted.length === 0 || wanted.some((part) => name.includes(part));

const atMost = (limit) => ({ limit, isMet: (figure) => figure <= limit, sign: '≤' });
const atLeast = (limit) => ({ limit, isMet: (figure) => figure >= limit, sign: '≥' });

const rows = [];
const notes = new Set();

// The ratio of the module to what it is compared with; for memory, the growth in MiB.
function addRow(what, peer, unit, goal, module, other, ratio = ratioOf(module, other)) {
    rows.push({ what, peer, unit, goal, module, other, ratio });
}

function addGrowth(what, peer, limit, after, before) {
    addRow(what, peer, 'MiB', atMost(limit), after, before, { median: after.median - before.median });
}

// ---- The client, against what it is made of

// In bursts of 100, each in a turn of the event loop of its own; on the library that answers at once, and 10 endpoints.
async function compareSends() {
    process.env.BRIVONJS_MODULE = path.join(build, 'null', 'BrivonJS.node');
    const client = require('../lib/client').connect({ appId: 'bench', appVersion: '10' });
    const [adapter, payload, to] = [newAdapters(10)[0], 'x'.repeat(20), { to: 'calendar' }];
    const bursts = (send) => async (count) => {
        for (let left = count; left > 0; left -= 100) {
            for (let i = Math.min(left, 100); i > 0; --i) send();
            await nextTurn();
        }
    };
    const runners = [
        bursts(() => client.send('ping', payload, to)),
        bursts(() => adapter.sendMessage('ping', payload, 'calendar')),
    ];
    addRow('client.send, to 10 cached', 'sendMessage', 'ns', atMost(2), ...(await inTurns(runners, { rounds })));
}

async function compareRequests() {
    const pairs = [];
    try {
        for (const kind of requests.kinds) pairs.push(await requests.startPair(kind, build));
        const measured = async (atOnce) => {
            const runners = pairs.map((pair) => (count) => pair.ask(1, 'request', 'askAll', count, atOnce));
            return inTurns(runners, { rounds: 9, milliseconds: 200, limit: 20000 });
        };
        const inUnit = ({ values }, convert) => summarise(values.map(convert));
        const add = async (what, atOnce, unit, goal, convert) =>
            addRow(what, 'by hand', unit, goal, ...(await measured(atOnce)).map((side) => inUnit(side, convert)));
        await add('client.request, one by one', 1, 'us', atMost(1.15), (nanoseconds) => nanoseconds / 1e3);
        await add('client.request, 64 at a time', 64, 'k/s', atLeast(0.85), (nanoseconds) => 1e6 / nanoseconds);
    } finally {
        for (const pair of pairs) pair.end();
    }
}

// ---- Calls, incoming messages and launches, against the floor. Both sides sit on libraries that answer at once.

const sides = ['BrivonJS.node', 'floor.node'].map((name) => require(path.join(build, 'null', name)));

async function compareWithFloor(what, runners, { goal = 1.1, ...limits } = {}) {
    addRow(what, 'the floor', 'ns', atMost(goal), ...(await inTurns(runners, { rounds, ...limits })));
}

// Kept for good: the collection of one adapter silences the listeners of all.
const adapters = [];

function newAdapters(endpoints) {
    adapters.push(sides.map((side) => new side.BrivonAdapter('bench', String(endpoints), 'calendar')));
    return adapters.at(-1);
}

// The floor takes as its argument what the module is told before.
function newControlAdapters(applications) {
    sides[0]._setLibraryPath(String(applications));
    return sides.map((side) => new side.BrivonControlAdapter(String(applications)));
}

const addressed = "sendMessage('ping', payload, 'calendar', '3.0', 'endpoint-0')";
const calls = [
    // what, adapters of both sides, how many endpoints or applications they know, call, bytes of its payload, goal
    ['sendMessage, 2 arguments, 20 B', newAdapters, 1, "sendMessage('ping', payload)", 20],
    ['sendMessage, 2 arguments, 64 KiB', newAdapters, 1, "sendMessage('ping', payload)", 65536],
    ['sendMessage, 5 arguments, 20 B', newAdapters, 1, addressed, 20],
    ['sendMessage, 5 arguments, 64 KiB', newAdapters, 1, addressed, 65536],
    ['sendMessage, to 10 cached', newAdapters, 10, "sendMessage('ping', payload)", 20],
    ['sendMessage, to 200 cached', newAdapters, 200, "sendMessage('ping', payload)", 20],
    ['getSelfEndpoint', newAdapters, 1, 'getSelfEndpoint()'],
    ['getEndpointCacheSnapshot, 10', newAdapters, 10, 'getEndpointCacheSnapshot()'],
    ['getEndpointCacheSnapshot, 200', newAdapters, 200, 'getEndpointCacheSnapshot()'],
    ['isAppInstalled', newControlAdapters, 10, "isAppInstalled('calendar')"],
    ['getAppPath', newControlAdapters, 10, "getAppPath('calendar')"],
    ['getSpecifiers, 10', newControlAdapters, 10, 'getSpecifiers()'],
];

// The loop around a call is compiled for each side on its own, so that neither's call site has seen the other.
async function compareCalls() {
    for (const [what, newSubjects, count, call, bytes = 0, goal] of calls.filter(([name]) => isWanted(name))) {
        const loop = `return (count) => { for (let i = 0; i < count; ++i) subject.${call}; };`;
        const compile = (subject, side) =>
            new Function('subject', 'payload', `/* ${side} */ ${loop}`)(subject, 'x'.repeat(bytes));
        await compareWithFloor(what, newSubjects(count).map(compile), { goal });
    }
}

async function compareDeliveries() {
    const subjects = newAdapters(1);
    const runners = subjects.map((subject, listener) => {
        let [received, expected, done] = [0, 0];
        subject.addMessageListener((type, payload, appId, appVersion, sourceId) => {
            if (sourceId.length > 0 && ++received === expected) done();
        });
        return (size, count) =>
            new Promise((resolve) => {
                [received, expected, done] = [0, count, resolve];
                subject.sendMessage(`flood:${count}:${size}:${listener}`, '');
            });
    });
    for (const [size, bytes] of Object.entries({ '20 B': 20, '1 KiB': 1024, '64 KiB': 65536 })) {
        // What waits for the listener stays below 64 MiB.
        const limits = { milliseconds: 40, limit: Math.min(50000, Math.floor(2 ** 26 / bytes)) };
        const sized = runners.map((run) => (count) => run(bytes, count));
        await compareWithFloor(`incoming message, ${size}`, sized, limits);
    }
}

async function compareLaunches() {
    const launchAll = (subject) => (count) =>
        new Promise((resolve) => {
            let pending = count;
            const callback = () => --pending === 0 && resolve();
            for (let i = 0; i < count; ++i) subject.launchApp('calendar', true, '--today', callback);
        });
    await compareWithFloor('launchApp', newControlAdapters(10).map(launchAll), { limit: 1000 });
}

// ---- The bus, against what else carries messages between processes

async function withProcesses(size, names, measure, flags = []) {
    const processes = new Processes(build);
    try {
        await processes.start(size, names, flags);
        await measure(processes);
    } finally {
        processes.end();
    }
}

// All ways in turns: the figures of each round by what was measured, and of these by way.
async function eachWay(size, turns, measure) {
    const figures = {};
    // The sockets of zeromq.js are of a family that does not exist there.
    const names = Object.keys(ways).filter((way) => way !== 'zeromq.js' || !isWindows);
    await withProcesses(size, names, async (processes) => {
        for (let turn = -names.length; turn < turns * names.length; ++turn) {
            const way = names.at(turn % names.length);
            for (const [what, figure] of Object.entries(await measure(processes, way)))
                if (turn >= 0) ((figures[what] ??= {})[way] ??= []).push(figure);
        }
    });
    return figures;
}

function addWays(what, unit, { bus, ...others }, goals) {
    for (const [peer, values] of Object.entries(others))
        addRow(`bus, ${what}`, peer, unit, goals[peer], summarise(bus), summarise(values));
}

async function comparePairs() {
    const sizes = { '100 B': [100, 10000, atLeast(4)], '4 KiB': [4096, 4000, atLeast(3)] };
    for (const [size, [bytes, count, goal]] of Object.entries(sizes)) {
        const { rate, p50, p99 } = await eachWay(2, 9, async (processes, way) => {
            const messages = await processes.ask(1, way, 'oneWay', count, bytes);
            const [half, most] = await processes.ask(1, way, 'roundTrips', 500, bytes);
            return { rate: messages, p50: half, p99: most };
        });
        addWays(`one way ${size}`, 'k/s', rate, { 'zeromq.js': goal, 'net socket': atLeast(1.1) });
        addWays(`round trip ${size} p50`, 'us', p50, { 'zeromq.js': atMost(0.5) });
        addWays(`round trip ${size} p99`, 'us', p99, { 'zeromq.js': atMost(0.4) });
    }
}

// Each sends to all others at once, and a round ends when the last one has heard everything.
async function compareSixteen() {
    const [size, count] = [16, 300];
    const { rate } = await eachWay(size, 5, async (processes, way) => {
        const start = now();
        await processes.askAll(way, 'talk', count, 100, count * (size - 1));
        return { rate: ((count * size * (size - 1)) / (now() - start)) * 1e6 };
    });
    addWays('16 processes, 100 B', 'k/s', rate, { 'zeromq.js': atLeast(2.5), 'net socket': atLeast(2.5) });
}

// Both processes ten times in each of five million messages, of which never more than a thousand are under way; the row
// is that of the process which grows more. Left alone, the runtime's young generation grows at any time by 1.5 MiB.
async function compareMemory() {
    const resident = [[], []];
    const measure = async (processes) => {
        for (let tenth = 0; tenth < 50; ++tenth) {
            await processes.ask(1, 'bus', 'oneWay', 1000, 100, 100);
            for (const side of [0, 1]) resident[side].push((await processes.ask(side, 'bus', 'memory'))[0]);
        }
    };
    await withProcesses(2, ['bus'], measure, ['--max-semi-space-size=1']);
    const sides = resident.map((values) => [summarise(values.slice(-10)), summarise(values.slice(0, 10))]);
    sides.sort(([after, before], [others, its]) => after.median - before.median - others.median + its.median);
    addGrowth('bus, memory, fifth million', 'the first', 2, ...sides[1]);
}

// While the 64 MiB that may wait for one receiver are moved to a larger place, they are there twice; the rest is for
// the runtime. 300 MiB are offered.
async function measureStoppedReceiver() {
    if (isWindows) return void notes.add('left out: no receiver can be stopped here');
    await withProcesses(2, ['bus'], async (processes) => {
        const [before] = await processes.ask(1, 'bus', 'memory');
        processes.children[0].kill('SIGSTOP');
        await processes.ask(1, 'bus', 'send', 300 * 256, 4096).finally(() => processes.children[0].kill('SIGCONT'));
        const [, most] = await processes.ask(1, 'bus', 'memory');
        addGrowth('bus, memory, receiver stopped', 'before', 160, { median: most }, { median: before });
    });
}

const cases = {
    'client.send': compareSends,
    'client.request': compareRequests,
    'incoming message': compareDeliveries,
    launchApp: compareLaunches,
    'bus, one way, round trip': comparePairs,
    'bus, 16 processes': compareSixteen,
    'bus, memory, fifth million': compareMemory,
    'bus, memory, receiver stopped': measureStoppedReceiver,
};

async function main() {
    const start = now();
    await compareCalls();
    for (const [name, measure] of Object.entries(cases).filter(([what]) => isWanted(what)))
        await measure().catch((error) => notes.add(`failed: ${name} (${error.message})`));
    const seconds = Math.round((now() - start) / 1e9);
    notes.add(`${rounds} rounds of calls, 9 of two processes, 5 of sixteen, in turns, ${seconds} s`);
    console.log([...tableOf(rows), ...notes].join('\n'));
    if (options.report) writeReport(root, rows, [...notes]);
    process.exit([...notes].some((note) => note.startsWith('failed')) ? 1 : 0);
}

main();
