'use strict';

// Sixteen processes, each of which talks to all others. Started without arguments, measures the ways in which they can
// do so in turns; prints the results as JSON. The processes are this file started with a folder and a number.

const { fork } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const { now, summarise } = require('./measure');
const { addressIn, meshes } = require('./ways');

const size = 16;
const rounds = 5;
const fewMessages = 20; // that each sends to all others, for a beginning
const manyMessages = 300;
const duration = 1000; // ms that a round with many messages may take, where it is slow
const payload = 'x'.repeat(100);
const patience = 60000; // ms for all to have heard all others

// ---- One of the sixteen, on one way

class Member {
    #send;
    #greeting;
    #heard = new Set();
    #received = 0;
    #check = () => {};

    async open(way, number, addresses) {
        this.#send = await meshes[way](number, addresses, (type, text, appId, appVersion, sourceId) => {
            if (type === 'count') ++this.#received;
            else this.#heard.add(sourceId);
            this.#check();
        });
    }

    // Resolves when all others have been heard, and goes on until all of them have heard this one.
    meet() {
        const greet = () => this.#send('hello', '');
        greet();
        this.#greeting = setInterval(greet, 500);
        return this.#until(() => this.#heard.size === size - 1);
    }

    // Resolves when all messages of all others have arrived, the first of which may come before this is called.
    async talk(messages) {
        clearInterval(this.#greeting);
        for (let i = 0; i < messages; ++i) {
            const sent = this.#send('count', payload);
            if (sent instanceof Promise) await sent;
            if (i % 100 === 99) await new Promise(setImmediate);
        }
        await this.#until(() => this.#received === messages * (size - 1));
        this.#received = 0;
    }

    #until(condition) {
        return new Promise((resolve) => {
            this.#check = () => condition() && resolve();
            this.#check();
        });
    }
}

// Opens every way, and then does what the parent asks for. What has a type is a message of the channel's.
async function beMembers(folder, number) {
    const failures = {};
    const members = {};
    for (const [index, way] of Object.keys(meshes).entries()) {
        const addresses = Array.from({ length: size }, (_, other) => addressIn(folder, `${index}-${other}`));
        members[way] = new Member();
        try {
            await members[way].open(way, number, addresses);
        } catch (error) {
            failures[way] = error.message.split('\n')[0];
        }
    }
    process.on('message', async ({ way, task, messages }) => {
        if (task === undefined) return;
        await members[way][task](messages);
        process.send({ answer: true });
    });
    process.on('disconnect', () => process.exit());
    process.send({ answer: failures });
}

// ---- The measuring side

const processes = [];

function startMember(folder, number) {
    const child = fork(__filename, [folder, number]);
    const answered = () => new Promise((resolve) => (child.resolve = resolve));
    child.ask = (way, task, messages) => {
        child.send({ way, task, messages });
        return answered();
    };
    child.on('message', (message) => {
        if (message.type === undefined) child.resolve(message.answer);
        else for (const other of processes) if (other !== child) other.send(message);
    });
    processes.push(child);
    return answered();
}

const askAll = (...what) => Promise.all(processes.map((child) => child.ask(...what)));

async function meet(way) {
    const timeIsUp = new Promise((resolve) => setTimeout(resolve, patience, 'time is up'));
    if ((await Promise.race([askAll(way, 'meet'), timeIsUp])) === 'time is up')
        throw new Error(`${size} processes did not all hear each other`);
}

// Thousands of deliveries a second.
async function rate(way, messages) {
    const start = now();
    await askAll(way, 'talk', messages);
    return ((messages * size * (size - 1)) / (now() - start)) * 1e6;
}

async function measure() {
    process.env.BRIVON_BUS = `bench-${process.pid}`;
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'brivon-bench-'));
    const leftOut = {};
    for (let number = 0; number < size; ++number) Object.assign(leftOut, await startMember(folder, number));
    const counts = {};
    for (const way of Object.keys(meshes)) {
        if (way in leftOut) continue;
        try {
            await meet(way);
            const possible = ((await rate(way, fewMessages)) * duration) / (size * (size - 1));
            counts[way] = Math.ceil(Math.min(manyMessages, possible));
        } catch (error) {
            leftOut[way] = error.message;
        }
    }
    const values = {};
    for (let round = -1; round < rounds; ++round) {
        for (const [way, count] of Object.entries(counts)) {
            const value = await rate(way, count);
            if (round >= 0) (values[way] ??= []).push(value);
        }
    }
    fs.rmSync(folder, { recursive: true, force: true });
    const byWay = Object.fromEntries(Object.entries(values).map(([way, list]) => [way, summarise(list)]));
    const results = [{ what: `${size} processes, 100 B`, isRate: true, unit: 'k/s', byWay }];
    console.log(JSON.stringify({ results, leftOut }));
    process.exit();
}

if (process.argv.length > 2) beMembers(process.argv[2], Number(process.argv[3]));
else measure();
