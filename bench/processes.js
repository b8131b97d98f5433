'use strict';

// Processes that talk, everyone with everyone, on the bus and in other ways. Each is this file, started with its number,
// the ways and the addresses of all, and does what its parent asks for.

const { fork } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const { now, quantile } = require('./measure');
const ways = require('./ways');

const sleep = (milliseconds) => new Promise((resolve) => setTimeout(resolve, milliseconds));

// One of the processes, on one way; what its parent asks for are its methods.
class Member {
    #send;
    #heard = new Set();
    #sent = 0;
    #received = 0;
    #expected = 0;
    #answered;
    #check = () => {};

    async open(way, number, addresses) {
        this.#send = await ways[way](number, addresses, (type, payload, appId, appVersion, sourceId) => {
            if (type === 'count') ++this.#received;
            else if (type === 'hello') this.#heard.add(sourceId);
            else if (type === 'echo') this.#send('answer', payload);
            else if (type === 'last') this.#send('answer', String(this.#received));
            else this.#answered(payload);
            this.#check();
        });
    }

    // Answers how many others have been heard.
    greet() {
        this.#send('hello', '');
        return this.#heard.size;
    }

    // Resolves when as many more messages have arrived, the first of which may come before this is called.
    async talk(count, bytes, expected) {
        this.#expected += expected;
        await this.send(count, bytes);
        await new Promise((resolve) => {
            this.#check = () => this.#received >= this.#expected && resolve();
            this.#check();
        });
    }

    // Thousands of messages a second; each time goes on until the other one has said that all have arrived.
    async oneWay(count, bytes, times = 1) {
        const start = now();
        for (let i = 0; i < times; ++i) {
            await this.send(count, bytes);
            const arrived = Number(await this.#ask('last', ''));
            if (arrived !== this.#sent) throw new Error(`${arrived} of ${this.#sent} messages arrived`);
        }
        return ((times * count) / (now() - start)) * 1e6;
    }

    // Microseconds, made one by one.
    async roundTrips(count, bytes) {
        const times = [];
        for (let i = 0; i < count; ++i) {
            const start = now();
            await this.#ask('echo', 'x'.repeat(bytes));
            times.push((now() - start) / 1000);
        }
        times.sort((a, b) => a - b);
        return [quantile(times, 0.5), quantile(times, 0.99)];
    }

    async send(count, bytes) {
        this.#sent += count;
        const payload = 'x'.repeat(bytes);
        for (let i = 0; i < count; ++i) {
            const sent = this.#send('count', payload);
            if (sent instanceof Promise) await sent;
            // Every way is given the chance to write.
            if (i % 100 === 99) await new Promise(setImmediate);
        }
    }

    // MiB: what is resident after a collection, and the most that ever was.
    async memory() {
        global.gc();
        await sleep(20);
        return [process.memoryUsage.rss() / 2 ** 20, process.resourceUsage().maxRSS / 1024];
    }

    async #ask(type, payload) {
        const answer = new Promise((resolve) => (this.#answered = resolve));
        await this.#send(type, payload);
        return answer;
    }
}

async function beMembers(number, names, addresses) {
    const members = {};
    for (const [index, way] of names.entries()) {
        members[way] = new Member();
        const own = addresses.map((address) => `${address}-${index}`);
        await members[way].open(way, number, own);
    }
    process.on('disconnect', () => process.exit());
    process.on('message', async ({ way, task, values }) => process.send((await members[way][task](...values)) ?? null));
    process.send('ready');
}

// The parent's side: processes on a bus of their own.
class Processes {
    #folder = fs.mkdtempSync(path.join(os.tmpdir(), 'brivon-bench-'));
    #bus = path.basename(this.#folder);
    #env;
    children = [];

    constructor(build) {
        this.#env = { ...process.env, BRIVONJS_MODULE: path.join(build, 'BrivonJS.node'), BRIVON_BUS: this.#bus };
    }

    // Resolves when that many processes have all heard all others, in each of the ways.
    async start(size, names, flags) {
        const parent = process.platform === 'win32' ? `\\\\.\\pipe\\${this.#bus}-` : `${this.#folder}/`;
        const addresses = Array.from({ length: size }, (_, number) => `${parent}${number}`);
        for (let number = 0; number < size; ++number)
            await this.add(__filename, [number, names, ...addresses], ['--expose-gc', ...flags]);
        for (const way of names) await this.#meet(way);
    }

    // Resolves when one more process says that it is ready.
    async add(file, args, execArgv = []) {
        this.children.push(fork(file, args, { env: this.#env, execArgv }));
        await this.#answer(this.children.length - 1);
    }

    ask(number, way, task, ...values) {
        this.children[number].send({ way, task, values });
        return this.#answer(number);
    }

    askAll(...what) {
        return Promise.all(this.children.map((_, number) => this.ask(number, ...what)));
    }

    end() {
        for (const child of this.children) if (child.connected) child.disconnect();
        fs.rmSync(this.#folder, { recursive: true, force: true });
    }

    async #meet(way) {
        for (const start = now(); now() - start < 60e9; await sleep(50)) {
            const heard = await this.askAll(way, 'greet');
            if (heard.every((others) => others === heard.length - 1)) return;
        }
        throw new Error(`not all have heard all others, ${way}`);
    }

    #answer(number) {
        const child = this.children[number];
        return new Promise((resolve, reject) => {
            const onExit = (code, signal) => reject(new Error(`a process ended with ${code ?? signal}`));
            child.once('exit', onExit);
            child.once('message', (answer) => resolve(answer, child.off('exit', onExit)));
        });
    }
}

if (require.main === module) beMembers(Number(process.argv[2]), process.argv[3].split(','), process.argv.slice(4));

module.exports = { Processes };
