'use strict';

// Sixteen processes on a bus of their own, all sending to all, for so many seconds (30). Twice a second one of them is
// killed and another one starts. Ends with 1, and a line for what failed, unless every process that was not killed lives,
// their lists follow every change, every pair's messages arrive complete and in order, and nothing is left behind.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { setTimeout: sleep } = require('node:timers/promises');

const { busFolder, Child, newBus } = require('../support/support');

const PROCESSES = 16;
const LASTING = 4; // of them are never killed
const CHANGE_MS = 500;
const CONVERGENCE_MS = 2000;
const LEAK_MIB = 16;
const hasProc = fs.existsSync('/proc/self/fd');
const seconds = Number(process.argv[2] ?? 30);

const bus = newBus();
const members = new Map(); // by id, those that have joined and were not killed
const failures = [];
const fail = (text) => failures.push(text) <= 10 && console.error(`soak: ${text}`);

function start() {
    const child = new Child(path.join(__dirname, 'member.js'), { env: { BRIVON_BUS: bus }, execArgv: ['--expose-gc'] });
    const member = { child, id: undefined, list: [], answer: undefined };
    child.exited.then(({ code, signal, stderr }) => {
        if (!member.isKilled) fail(`a process ended with ${signal ?? code}: ${stderr}`);
    });
    return new Promise((resolve) =>
        child.process.on('message', ({ joined, list, failed, answer }) => {
            if (failed) fail(failed);
            if (list) member.list = list;
            if (answer) member.answer(answer);
            if (!joined) return;
            member.id = joined;
            members.set(joined, member);
            checkLists(joined, true);
            resolve(member);
        }),
    );
}

function kill(member) {
    member.isKilled = true;
    members.delete(member.id);
    checkLists(member.id, false);
    return member.child.end();
}

// Everyone who is there now and still is then has learned by then that this one came or went.
async function checkLists(id, isThere) {
    const witnesses = [...members.values()].filter((member) => member.id !== id);
    await sleep(CONVERGENCE_MS);
    if (members.has(id) !== isThere) return;
    for (const witness of witnesses)
        if (!witness.isKilled && witness.list.includes(id) !== isThere)
            fail(`${witness.id} ${isThere ? 'does not see' : 'still sees'} ${id} after ${CONVERGENCE_MS} ms`);
}

const ask = (member, question) =>
    new Promise((resolve) => {
        member.answer = resolve;
        member.child.process.send(question);
    });
const all = () => [...members.values()];
const lasting = () => all().slice(0, LASTING);
const descriptors = () => lasting().map(({ child }) => fs.readdirSync(`/proc/${child.process.pid}/fd`).length);
const resident = async () => (await Promise.all(lasting().map((member) => ask(member, 'resident')))).map(Number);

// Asserts what may take a moment to become true.
async function settles(check) {
    const end = Date.now() + CONVERGENCE_MS;
    for (;;) {
        try {
            return await check();
        } catch (error) {
            if (Date.now() > end) return fail(error.message);
        }
        await sleep(50);
    }
}

async function change() {
    const [victim] = all()
        .slice(LASTING)
        .sort(() => Math.random() - 0.5);
    await Promise.all([kill(victim), start(), sleep(CHANGE_MS)]);
}

async function run() {
    await Promise.all(Array.from({ length: PROCESSES }, start));
    await sleep(CONVERGENCE_MS);
    const opened = hasProc && descriptors();
    let used;
    let changes = 0;
    for (const end = Date.now() + 1000 * seconds; Date.now() < end; ++changes) {
        await change();
        if (!used && Date.now() > end - 667 * seconds) used = await resident();
    }
    await sleep(CONVERGENCE_MS);
    await Promise.all(all().map((member) => ask(member, 'stop')));
    await settles(async () => {
        const counts = new Map(await Promise.all(all().map(async (one) => [one.id, await ask(one, 'counts')])));
        for (const [from, { sent }] of counts)
            for (const [to, { heard }] of counts)
                if (from !== to) assert.equal(heard[from], sent[to], `of the messages from ${from} to ${to}`);
    });
    if (hasProc) await settles(() => assert.deepEqual(descriptors(), opened, 'descriptors'));
    (await resident()).forEach((mebibytes, i) => {
        if (mebibytes - used[i] > LEAK_MIB) fail(`a process has grown from ${used[i]} to ${mebibytes} MiB`);
    });
    assert.deepEqual(
        fs.readdirSync(busFolder(bus)).sort(),
        all()
            .map(({ id }) => id)
            .sort(),
        'files',
    );
    for (const member of all()) member.isKilled = true;
    await Promise.all(all().map((member) => (member.child.process.send('leave'), member.child.exited)));
    if (fs.existsSync(busFolder(bus))) fail('the folder of the bus is left behind');
    return changes;
}

run().then(
    (changes) => {
        console.log(`soak: ${changes} killed and started, ${failures.length} failures`);
        process.exit(failures.length === 0 ? 0 : 1);
    },
    (error) => {
        console.error(`soak: ${error.stack}`);
        process.exit(1);
    },
);
