'use strict';

// Sixteen processes on a bus of their own, all sending to all, for so many seconds (30). Twice a second one of them is
// killed and another one starts. Ends with 1, and a line for what failed, unless every process that was not killed lives,
// their lists follow every change, every pair's messages arrive complete and in order, and nothing is left behind.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const { setTimeout: sleep } = require('node:timers/promises');

const { busFolder, Endpoint, newBus } = require('../support/support');

const PROCESSES = 16;
const LASTING = 4; // of them are never killed
const CHANGE_MS = 500;
const CONVERGENCE_MS = 2000;
const LEAK_MIB = 16;
const seconds = Number(process.argv[2] ?? 30);

const bus = newBus();
const members = new Map(); // by id, those that have joined and were not killed
const failures = [];
const fail = (text) => failures.push(text) <= 10 && console.error(`soak: ${text}`);

async function start() {
    const member = await Endpoint.join({ after() {} }, bus, 'soak', '1');
    const { id } = member;
    member.list = [];
    member.told.callback = ({ list, failed }) => {
        if (failed) fail(`${id} ${failed}`);
        if (list) member.list = list;
    };
    member.exited.then(({ code, signal, stderr }) => {
        if (!member.isKilled) fail(`a process ended with ${signal ?? code}: ${stderr}`);
    });
    await member.run(`require('../soak/member'); 0`);
    members.set(id, member);
    checkLists(id, true);
}

function kill(member) {
    member.isKilled = true;
    members.delete(member.id);
    checkLists(member.id, false);
    return member.end();
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

const all = () => [...members.values()];
const lasting = () => all().slice(0, LASTING);
const descriptors = () => lasting().map((member) => fs.readdirSync(`/proc/${member.process.pid}/fd`).length);
const run = (some, code) => Promise.all(some.map((member) => member.run(code)));
const resident = () => run(lasting(), 'resident()');

async function change() {
    const mortal = all().slice(LASTING);
    const victim = mortal[Math.floor(Math.random() * mortal.length)];
    await Promise.all([kill(victim), start(), sleep(CHANGE_MS)]);
}

async function soak() {
    await Promise.all(Array.from({ length: PROCESSES }, start));
    await sleep(CONVERGENCE_MS);
    const opened = descriptors();
    let used;
    let changes = 0;
    for (const end = Date.now() + 1000 * seconds; Date.now() < end; ++changes) {
        await change();
        if (!used && Date.now() > end - 667 * seconds) used = await resident();
    }
    await sleep(CONVERGENCE_MS);
    await run(all(), 'stopSending()');
    await sleep(CONVERGENCE_MS);
    const counts = await run(all(), 'counts');
    const ids = [...members.keys()];
    for (const [i, from] of ids.entries())
        for (const [j, to] of ids.entries())
            if (i !== j)
                assert.equal(counts[j].heard[from], counts[i].sent[to], `of the messages from ${from} to ${to}`);
    assert.deepEqual(descriptors(), opened, 'descriptors');
    for (const [i, mebibytes] of (await resident()).entries())
        if (mebibytes - used[i] > LEAK_MIB) fail(`a process has grown from ${used[i]} to ${mebibytes} MiB`);
    assert.deepEqual(fs.readdirSync(busFolder(bus)).sort(), ids.sort(), 'files');
    for (const member of all()) member.isKilled = true;
    await Promise.all(all().map((member) => member.leave()));
    if (fs.readdirSync(busFolder(bus)).length > 0) fail('something is left in the folder of the bus');
    return changes;
}

soak().then((changes) => {
    console.log(`soak: ${changes} killed and started, ${failures.length} failures`);
    process.exit(failures.length === 0 ? 0 : 1);
});
