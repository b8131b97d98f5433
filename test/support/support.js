'use strict';

const assert = require('node:assert/strict');
const { fork } = require('node:child_process');
const { EventEmitter, once } = require('node:events');
const crypto = require('node:crypto');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');
const v8 = require('node:v8');
const vm = require('node:vm');

const { busFolder } = require('../../lib/cli/examine');
const { modulePath } = require('../../lib/locate');

const root = path.join(__dirname, '..', '..');
const buildDirectory = path.dirname(modulePath());

// Whether this is another machine's Node.js, under an emulator. What it launches are this machine's own programs.
const isEmulated = process.env.ARM_NODE !== undefined;
const programs = isEmulated ? path.join(buildDirectory, '..', 'linux-x64') : buildDirectory;
const launchedApp = path.join(programs, 'test', `launched_app${process.platform === 'win32' ? '.exe' : ''}`);

// The argument list of every call that a callback receives, with a way to await the next ones.
class CallLog {
    #events = new EventEmitter();
    calls = [];

    callback = (...call) => {
        this.calls.push(call);
        this.#events.emit('call');
    };

    // Resolves to all calls once there are this many.
    async atLeast(count) {
        while (this.calls.length < count) await once(this.#events, 'call');
        return this.calls;
    }
}

// Both let the event loop go on until the condition holds; a test that waits in vain ends by its time limit.
async function until(condition) {
    while (!condition()) await new Promise((resolve) => setImmediate(resolve));
}

async function collectUntil(condition) {
    v8.setFlagsFromString('--expose-gc');
    const collect = vm.runInNewContext('gc');
    await until(() => (collect(), condition()));
}

const buses = [];
process.on('exit', () => buses.forEach((bus) => fs.rmSync(busFolder(bus), { recursive: true, force: true })));

// The name of a bus of the test's own, whose remains are removed with the test's process.
function newBus() {
    const bus = `test-${crypto.randomUUID().slice(0, 18)}`;
    buses.push(bus);
    return bus;
}

function temporaryFile() {
    return path.join(os.tmpdir(), `brivonjs-${process.pid}-${crypto.randomUUID()}`);
}

// A folder that is removed after the test, or after the file of tests when this is given node:test itself.
function temporaryFolder(t, parent = os.tmpdir()) {
    fs.mkdirSync(parent, { recursive: true });
    const folder = fs.mkdtempSync(path.join(fs.realpathSync(parent), 'brivonjs-'));
    t.after(() => fs.rmSync(folder, { recursive: true, force: true }));
    return folder;
}

// What scripts that run on scripted libraries begin with.
const scripted = `
    const { messaging, control, SUITE_TYPE_PREFIX, ERROR_TYPE } = require(root + '/lib/standins');
    const { BrivonAdapter, BrivonControlAdapter } = require(root + '/lib');
`;

// A child Node.js process. Its output goes to files, which every platform can give to a process, and messages to it and
// from it through its channel.
class Child {
    constructor(file, { args = [], env = {}, execArgv = [], timeout } = {}) {
        this.files = { stdout: temporaryFile(), stderr: temporaryFile() };
        const outputs = [fs.openSync(this.files.stdout, 'w'), fs.openSync(this.files.stderr, 'w')];
        this.process = fork(file, args, {
            execArgv,
            timeout,
            env: { ...process.env, ...env },
            stdio: ['ignore', ...outputs, 'ipc'],
            serialization: 'advanced',
        });
        outputs.forEach((output) => fs.closeSync(output));
        this.exited = once(this.process, 'exit').then(([code, signal]) => {
            const [stdout, stderr] = [this.files.stdout, this.files.stderr].map((name) => {
                const text = fs.readFileSync(name, 'utf8');
                fs.unlinkSync(name);
                return text;
            });
            return { code, signal, stdout, stderr };
        });
    }

    // Resolves to the lines that the process has written to a stream, once there are enough; it must not end before.
    async written(stream, isEnough) {
        let [ended, lines] = [];
        this.exited.then((result) => (ended = result));
        await until(() => {
            assert.equal(ended, undefined, `ended before: ${JSON.stringify(ended)}`);
            lines = fs.readFileSync(this.files[stream], 'utf8').split('\n').slice(0, -1);
            return isEnough(lines);
        });
        return lines;
    }

    async end(signal = 'SIGKILL') {
        this.process.kill(signal);
        return this.exited;
    }
}

// A program on a bus, run in a process of its own and told what to do with pieces of JavaScript.
class Endpoint extends Child {
    #answers = [];
    told = new CallLog();

    // Resolves to an endpoint whose adapter was made with these arguments, and which ends with the test.
    static async join(t, bus, ...args) {
        const endpoint = new Endpoint(path.join(__dirname, 'endpoint.js'), { env: { BRIVON_BUS: bus } });
        t.after(() => endpoint.end());
        const make = `globalThis.adapter = new BrivonAdapter(...${JSON.stringify(args)})`;
        endpoint.self = await endpoint.run(`${make}; adapter.getSelfEndpoint()`);
        endpoint.target = endpoint.self.slice(1, -1).split(',');
        [endpoint.appId, endpoint.appVersion, endpoint.id] = endpoint.target;
        return Object.assign(endpoint, { bus });
    }

    constructor(...args) {
        super(...args);
        this.process.on('message', ({ id, value, told }) => {
            if (id === undefined) this.told.callback(told);
            else this.#answers[id](value);
        });
    }

    // Resolves to what the code evaluates to.
    run(code) {
        const ended = this.exited.then((how) => assert.fail(`ended during ${code}: ${JSON.stringify(how)}`));
        const answered = new Promise((resolve) => this.process.send({ id: this.#answers.push(resolve) - 1, code }));
        return Promise.race([answered, ended]);
    }

    // Resolves when the code evaluates to something true.
    async until(code) {
        while (!(await this.run(code))) await this.run('new Promise((resolve) => setTimeout(resolve, 5))');
    }

    // Resolves once these and no others are in its cache. The list that the cache is filled from is what is polled while
    // it changes: a snapshot is taken without a lock, and may crash the process beside a change.
    async sees(...others) {
        const expected = JSON.stringify(JSON.stringify(others.map(({ self }) => self).sort()));
        for (const method of ['getEndpoints', 'getEndpointCacheSnapshot'])
            await this.until(`JSON.stringify(adapter.${method}().sort()) === ${expected}`);
    }

    // Tells of each message and error from now on.
    listen() {
        return this.run(`adapter.addMessageListener((...message) => tell({ message }));
            adapter.addErrorListener((...error) => tell({ error })); 0`);
    }

    // Ends as a program does by itself.
    async leave() {
        await this.run('setImmediate(() => process.exit(0)); 0');
        return this.exited;
    }

    send(type, payload, ...target) {
        return this.run(`adapter.sendMessage(...${JSON.stringify([type, payload, ...target])})`);
    }
}

// Runs a piece of JavaScript in a process of its own, to its end: { code, signal, stdout, stderr }.
async function runScript(body, options) {
    const file = `${temporaryFile()}.js`;
    fs.writeFileSync(file, `'use strict';\nconst root = ${JSON.stringify(root)};\n${body}`);
    try {
        return await new Child(file, options).exited;
    } finally {
        fs.unlinkSync(file);
    }
}

// How a process ends that fails an assertion.
function endedAbnormally({ code, signal }) {
    return signal === 'SIGABRT' || (process.platform === 'win32' && code !== 0);
}

// The assertion that has ended a process, "FILE: EXPRESSION".
function failedAssertion(ended) {
    const report =
        ended.stderr.match(/^node: (?<file>[^:]+):\d+: .*: Assertion `(?<expression>.*)' failed\.$/m) ??
        ended.stderr.match(/^Assertion failed: (?<expression>.*), file (?<file>.*), line \d+/m);
    return report !== null && endedAbnormally(ended) ? `${report.groups.file}: ${report.groups.expression}` : ended;
}

module.exports = {
    buildDirectory,
    busFolder,
    CallLog,
    Child,
    collectUntil,
    endedAbnormally,
    Endpoint,
    failedAssertion,
    isEmulated,
    launchedApp,
    newBus,
    root,
    runScript,
    scripted,
    temporaryFile,
    temporaryFolder,
    until,
};
