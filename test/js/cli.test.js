'use strict';

// The command-line tools, as processes of their own. Their standard output is a file, which is not a terminal.

const assert = require('node:assert/strict');
const { spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const path = require('node:path');
const { afterEach, test } = require('node:test');
const { setTimeout: sleep } = require('node:timers/promises');

const { version } = require('../../package.json');
const { Endpoint, newBus, root, runScript, temporaryFile } = require('../support/support');

const isWindows = process.platform === 'win32';
const started = [];
afterEach(() => Promise.all(started.splice(0).map((child) => child.end())));

async function join(bus, ...args) {
    const endpoint = await Endpoint.join(bus, ...args);
    started.push(endpoint);
    return endpoint;
}

function start(args, env) {
    const child = new Endpoint(path.join(root, 'lib', 'cli.js'), { args, env });
    started.push(child);
    return child;
}

// Resolves to what a process that runs on has written to a stream once that has this many lines.
async function written(child, stream, count) {
    let ended;
    child.exited.then((result) => (ended = result));
    for (;;) {
        assert.equal(ended, undefined, JSON.stringify(ended));
        const text = fs.readFileSync(child.files[stream], 'utf8');
        const lines = text.split('\n').slice(0, -1);
        if (lines.length >= count) return lines;
        await sleep(5);
    }
}

const records = (lines) =>
    lines.map(JSON.parse).map(({ time, ...record }) => {
        assert.equal(new Date(time).toISOString(), time);
        return record;
    });
const sees = (endpoint, pattern) => endpoint.until(`${pattern}.test(adapter.getEndpoints().join())`);

test('help and version are answered, and a wrong usage is refused with the right one', async () => {
    const help = await start(['--help']).exited;
    assert.match(help.stdout, /^Usage: brivonjs endpoints/);
    assert.ok(help.stdout.split('\n').every((line) => line.length <= 120));
    const answers = [
        { args: ['--help'], code: 0, stdout: help.stdout },
        { args: ['monitor', '-h'], code: 0, stdout: help.stdout },
        { args: ['--version'], code: 0, stdout: `${version}\n` },
        { args: [], code: 2, complaint: /which command/ },
        { args: ['endpoint'], code: 2, complaint: /no command 'endpoint'/ },
        { args: ['toString'], code: 2, complaint: /no command 'toString'/ },
        { args: ['endpoints', 'more'], code: 2, complaint: /'more' is one argument too many/ },
        { args: ['monitor', '--follow'], code: 2, complaint: /--follow goes with endpoints/ },
        { args: ['monitor', '--colour'], code: 2, complaint: /--colour/ },
        { args: ['monitor', '--bus'], code: 2, complaint: /--bus/ },
        { args: ['monitor', '--bus', '../x'], code: 2, complaint: /'\.\.\/x' is no name of a bus/ },
    ];
    // Without a module, since none of this needs one.
    const env = { BRIVONJS_MODULE: temporaryFile() };
    for (const { args, code, stdout = '', complaint } of answers) {
        const ended = await start(args, env).exited;
        assert.deepEqual([ended.code, ended.stdout], [code, stdout], args.join(' '));
        const [first, ...rest] = ended.stderr.split(/(?<=\n)/);
        if (complaint) assert.match(first, complaint);
        assert.equal(rest.join(''), complaint ? `\n${help.stdout}` : '');
    }
    const failed = await start(['endpoints'], env).exited;
    assert.deepEqual([failed.code, failed.stdout], [1, '']);
    assert.match(failed.stderr, /^brivonjs: /);
});

test('endpoints prints the others as JSON lines and ends', async () => {
    const bus = newBus();
    const alone = await start(['endpoints'], { BRIVON_BUS: bus }).exited;
    assert.deepEqual(alone, { code: 0, signal: null, stdout: '', stderr: '' });

    const [a, b] = [await join(bus, 'A', '1'), await join(bus, 'B', '2, or 3')];
    const { code, stdout, stderr } = await start(['endpoints'], { BRIVON_BUS: bus }).exited;
    assert.deepEqual([code, stderr], [0, '']);
    const id = ({ self }) => self.slice(-33, -1);
    const expected = [
        { appId: 'A', appVersion: '1', id: id(a) },
        { appId: 'B', appVersion: '2, or 3', id: id(b) },
    ];
    assert.deepEqual(stdout.split('\n').sort(), ['', ...expected.map((endpoint) => JSON.stringify(endpoint))]);
});

test('endpoints --follow prints who is there, who joins and who leaves', async () => {
    const bus = newBus();
    const a = await join(bus, 'A', '1');
    const follower = start(['endpoints', '-f', '--app-id', 'me', '--app-version', '7'], { BRIVON_BUS: bus });
    await written(follower, 'stdout', 1);
    await sees(a, '/^{me,7,[0-9a-f]{32}}$/');
    const b = await join(bus, 'B', '2');
    await written(follower, 'stdout', 2);
    await b.end();
    assert.deepEqual(records(await written(follower, 'stdout', 3)), [
        { event: 'present', appId: 'A', appVersion: '1', id: a.id },
        { event: 'joined', appId: 'B', appVersion: '2', id: b.id },
        { event: 'left', appId: 'B', appVersion: '2', id: b.id },
    ]);
});

test('--bus goes before BRIVON_BUS', async () => {
    const bus = newBus();
    const a = await join(bus, 'A', '1');
    const { stdout } = await start(['endpoints', '--bus', bus], { BRIVON_BUS: newBus() }).exited;
    assert.deepEqual(JSON.parse(stdout), { appId: 'A', appVersion: '1', id: a.id });
});

test('monitor prints what reaches it, whole', async () => {
    const bus = newBus();
    const a = await join(bus, 'A', '1', 'brivonjs-monitor');
    const monitor = start(['monitor'], { BRIVON_BUS: bus });
    const [listening] = await written(monitor, 'stderr', 1);
    assert.match(listening, new RegExp(`^brivonjs: listening as {brivonjs-monitor,${version},[0-9a-f]{32}}$`));
    await sees(a, '/brivonjs-monitor/');
    const payload = 'line\r\n\u001b[2J "日🙂"'.repeat(1000);
    await a.run(`adapter.sendMessage('ping', ${JSON.stringify(payload)})`);
    assert.deepEqual(records(await written(monitor, 'stdout', 1)), [
        { event: 'message', type: 'brivon.SuiteMessage.ping', payload, appId: 'A', appVersion: '1', sourceId: a.id },
    ]);
});

// Runs a tool on scripted libraries, ends it after so many lines as Ctrl-C does, and resolves to how that went.
const scripted = (args, { lines, before = '', then = '' }) =>
    runScript(
        `
        const { messaging, SUITE_TYPE_PREFIX, ERROR_TYPE } = require(root + '/lib/standins');
        const write = process.stdout.write.bind(process.stdout);
        let missing = ${lines};
        process.stdout.write = (text) => {
            write(text);
            missing -= text.split('\\n').length - 1;
            if (missing === 0) process.emit('SIGINT');
        };
        ${before}
        require(root + '/lib/cli');
        ${then}`,
        { args },
    );
const terminal = `Object.assign(process.stdout, { isTTY: true, columns: 60 });`;
const error = `messaging.deliver({ type: ERROR_TYPE, error: 'Destination unreachable', fault: '{A,1,7}' });`;

test('monitor prints errors', async () => {
    const { code, stdout } = await scripted(['monitor'], { lines: 1, then: error });
    assert.deepEqual(records(stdout.split('\n').slice(0, -1)), [
        { event: 'error', type: 'brivon.ErrorMessage', error: 'Destination unreachable', fault: '{A,1,7}' },
    ]);
    assert.equal(code, 130);
});

test('a terminal gets columns, one line for each message, none wider than the terminal', async () => {
    const source = `{ id: '0123456789abcdef', appId: 'notes', appVersion: '2.1' }`;
    const message = (payload) =>
        `messaging.deliver({ type: SUITE_TYPE_PREFIX + 'ping', appId: 'notes', appVersion: '2.1', source: ${source},
            payload: ${JSON.stringify(payload)} });`;
    const payloads = ['a\n\u001b[2J\u202e', '日🙂é', '日'.repeat(1000)];
    const monitored = await scripted(['monitor'], {
        lines: 4,
        before: terminal,
        then: payloads.map(message).join('\n'),
    });
    assert.deepEqual(monitored.stdout.replace(/^\d\d:\d\d:\d\d/gm, '12:34:56').split('\n'), [
        'TIME      APP    VERSION  ID         TYPE  PAYLOAD',
        '12:34:56  notes  2.1      01234567…  ping  a\\n\\u{1b}[2J\\u{2…',
        '12:34:56  notes  2.1      01234567…  ping  日🙂é',
        '12:34:56  notes  2.1      01234567…  ping  日日日日日日日日…',
        '',
    ]);

    const list = `messaging.setEndpoints([${source}, { id: '7', appId: 'tab\\t', appVersion: '' }]);`;
    const listed = await scripted(['endpoints'], { lines: 3, before: terminal + list });
    assert.deepEqual(listed.stdout.split('\n'), [
        'APP    VERSION  ID',
        'notes  2.1      0123456789abcdef',
        'tab\\t           7',
        '',
    ]);

    const json = await scripted(['endpoints', '--json'], { lines: 2, before: terminal + list });
    assert.equal(JSON.parse(json.stdout.split('\n')[1]).appId, 'tab\t');
});

test('Ctrl-C takes a tool off the bus', { skip: isWindows && 'a signal ends a process at once here' }, async () => {
    const bus = newBus();
    const a = await join(bus, 'A', '1');
    for (const [args, stream] of [
        [['monitor'], 'stderr'],
        [['endpoints', '--follow'], 'stdout'],
    ]) {
        const tool = start(args, { BRIVON_BUS: bus });
        await written(tool, stream, 1);
        await sees(a, '/brivonjs-/');
        const { code, signal } = await tool.end('SIGINT');
        assert.deepEqual({ code, signal }, { code: 130, signal: null });
        await sees(a, '/^$/');
    }
});

test('a tool ends quietly when its reader has gone', { skip: isWindows && 'pipes are not enough here' }, async () => {
    const bus = newBus();
    await join(bus, 'A', '1');
    const tool = spawn(process.execPath, [path.join(root, 'lib', 'cli.js'), 'endpoints', '--follow', '--bus', bus]);
    const ended = once(tool, 'exit');
    const complaints = tool.stderr.toArray();
    await once(tool.stdout, 'data');
    tool.stdout.destroy();
    await once(tool.stdout, 'close');
    await join(bus, 'B', '1');
    assert.deepEqual([await ended, await complaints], [[0, null], []]);
});
