'use strict';

// The command-line tools, as processes of their own. Their standard output is a file, which is not a terminal.

const assert = require('node:assert/strict');
const { spawn } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { version } = require('../../package.json');
const { busFolder, Child, Endpoint, newBus, root, runScript, temporaryFile } = require('../support/support');

const isWindows = process.platform === 'win32';
const cli = path.join(root, 'lib', 'cli.js');

function start(t, args, env) {
    const child = new Child(cli, { args, env });
    t.after(() => child.end());
    return child;
}

const atLeast = (count) => (lines) => lines.length >= count;
const records = (lines) =>
    lines.map(JSON.parse).map(({ time, ...record }) => {
        assert.equal(new Date(time).toISOString(), time);
        return record;
    });
const fields = ({ appId, appVersion, id }) => ({ appId, appVersion, id });

test('help and version are answered, and a wrong usage is refused with the right one', async (t) => {
    // Without a module, since none of this needs one.
    const env = { BRIVONJS_MODULE: temporaryFile() };
    const { stdout: help } = await start(t, ['--help'], env).exited;
    assert.match(help, /^Usage: brivonjs endpoints/);
    assert.ok(help.split('\n').every((line) => line.length <= 120));
    for (const [args, stdout, complaint] of [
        ['monitor -h', help],
        ['--version', `${version}\n`],
        ['', '', /which command/],
        ['endpoint', '', /no command 'endpoint'/],
        ['toString', '', /no command 'toString'/],
        ['endpoints more', '', /'more' is one argument too many/],
        ['monitor --follow', '', /--follow goes with endpoints/],
        ['monitor --colour', '', /--colour/],
        ['monitor --bus', '', /--bus/],
        ['monitor --bus ../x', '', /'\.\.\/x' is no name of a bus/],
    ]) {
        const ended = await start(t, args.split(' ').filter(Boolean), env).exited;
        assert.deepEqual([ended.code, ended.stdout], [complaint ? 2 : 0, stdout], args);
        const [first, ...rest] = ended.stderr.split(/(?<=\n)/);
        if (complaint) assert.match(first, complaint);
        assert.equal(rest.join(''), complaint ? `\n${help}` : '');
    }
    const failed = await start(t, ['endpoints'], env).exited;
    assert.deepEqual([failed.code, failed.stdout], [1, '']);
    assert.match(failed.stderr, /^brivonjs: /);
});

test('endpoints prints the others as JSON lines and ends', async (t) => {
    const bus = newBus();
    const alone = await start(t, ['endpoints'], { BRIVON_BUS: bus }).exited;
    assert.deepEqual(alone, { code: 0, signal: null, stdout: '', stderr: '' });

    const [a, b] = [await Endpoint.join(t, bus, 'A', '1'), await Endpoint.join(t, bus, 'B', '2, or 3')];
    const expected = [fields(a), { appId: 'B', appVersion: '2, or 3', id: b.self.slice(-33, -1) }];
    // The option goes before the variable.
    for (const [args, BRIVON_BUS] of [
        [[], bus],
        [['--bus', bus], newBus()],
    ]) {
        const { code, stdout, stderr } = await start(t, ['endpoints', ...args], { BRIVON_BUS }).exited;
        assert.deepEqual([code, stderr], [0, '']);
        assert.deepEqual(stdout.split('\n').sort().slice(1).map(JSON.parse), expected);
    }
});

test('a bus that cannot be joined gets a message', async (t) => {
    const bus = newBus();
    fs.mkdirSync(path.dirname(busFolder(bus)), { recursive: true, mode: 0o700 });
    fs.writeFileSync(busFolder(bus), '');
    for (const [command, BRIVON_BUS, complaint] of [
        ['monitor', '../x', /^brivonjs: BRIVON_BUS must be 1 to 32 letters.*\n$/],
        ['endpoints', bus, /^brivonjs: .*bus folder .*\n$/],
    ]) {
        const { code, stderr } = await start(t, [command], { BRIVON_BUS }).exited;
        assert.equal(code, 1);
        assert.match(stderr, complaint);
    }
});

// Ctrl-C takes the tool off the bus.
async function assertInterrupted(tool, witness) {
    if (isWindows) return; // where a signal ends a process at once
    const { code, signal } = await tool.end('SIGINT');
    assert.deepEqual({ code, signal }, { code: 130, signal: null });
    await witness.sees();
}

test('endpoints --follow prints who is there, who joins and who leaves, until Ctrl-C', async (t) => {
    const a = await Endpoint.join(t, newBus(), 'A', '1');
    const args = ['endpoints', '-f', '--app-id', 'me', '--app-version', '7'];
    const follower = start(t, args, { BRIVON_BUS: a.bus });
    await follower.written('stdout', atLeast(1));
    await a.until('/^{me,7,[0-9a-f]{32}}$/.test(adapter.getEndpoints().join())');
    const b = await Endpoint.join(t, a.bus, 'B', '2');
    await follower.written('stdout', atLeast(2));
    await b.end();
    assert.deepEqual(records(await follower.written('stdout', atLeast(3))), [
        { event: 'present', ...fields(a) },
        { event: 'joined', ...fields(b) },
        { event: 'left', ...fields(b) },
    ]);
    await assertInterrupted(follower, a);
});

test('monitor listens until Ctrl-C', async (t) => {
    const a = await Endpoint.join(t, newBus(), 'A', '1', 'brivonjs-monitor');
    const monitor = start(t, ['monitor'], { BRIVON_BUS: a.bus });
    const [listening] = await monitor.written('stderr', atLeast(1));
    const [, self] = listening.match(/^brivonjs: listening as (.*)$/);
    assert.match(self, new RegExp(`^{brivonjs-monitor,${version},[0-9a-f]{32}}$`));
    await a.sees({ self });
    await assertInterrupted(monitor, a);
});

// Runs a tool on scripted libraries, ends it after so many lines as Ctrl-C does, and resolves to those.
async function scriptedLines(args, count, { before = '', then = '' }) {
    const { code, stdout } = await runScript(
        `
        const { messaging } = require(root + '/lib/standins');
        const write = process.stdout.write.bind(process.stdout);
        let missing = ${count};
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
    assert.equal(code, 130);
    return stdout.split('\n').slice(0, -1);
}

const deliver = (message) => `messaging.deliver(${JSON.stringify(message)});`;
const source = { id: '0123456789abcdef', appId: 'notes', appVersion: '2.1' };
const ping = (payload) => deliver({ ...source, source, type: 'brivon.SuiteMessage.ping', payload });

test('monitor prints messages and errors whole', async () => {
    const payload = 'line\r\n\u001b[2J "日🙂"'.repeat(1000);
    const error = { type: 'brivon.ErrorMessage', error: 'Destination unreachable', fault: '{A,1,7}' };
    const { id: sourceId, ...sender } = source;
    assert.deepEqual(records(await scriptedLines(['monitor'], 2, { then: ping(payload) + deliver(error) })), [
        { event: 'message', type: 'brivon.SuiteMessage.ping', payload, sourceId, ...sender },
        { event: 'error', ...error },
    ]);
});

test('a terminal gets columns, one line for each message, none wider than the terminal', async () => {
    const terminal = `Object.assign(process.stdout, { isTTY: true, columns: 60 });`;
    const then = ['a\n\u001b[2J\u202e', '日🙂é', '日'.repeat(1000)].map(ping).join('');
    const [titles, ...monitored] = await scriptedLines(['monitor'], 4, { before: terminal, then });
    assert.equal(titles, 'TIME      APP    VERSION  ID         TYPE  PAYLOAD');
    for (const [i, payload] of ['a\\n\\u{1b}[2J\\u{2…', '日🙂é', '日日日日日日日日…'].entries()) {
        const line = monitored[i].replace(/^\d\d:\d\d:\d\d/, '12:34:56');
        assert.equal(line, `12:34:56  notes  2.1      01234567…  ping  ${payload}`);
    }
    const endpoints = [source, { id: '7', appId: 'tab\t', appVersion: '' }];
    const before = `${terminal} messaging.setEndpoints(${JSON.stringify(endpoints)});`;
    assert.deepEqual(await scriptedLines(['endpoints'], 3, { before }), [
        'APP    VERSION  ID',
        'notes  2.1      0123456789abcdef',
        'tab\\t           7',
    ]);
    const json = await scriptedLines(['endpoints', '--json'], 2, { before });
    assert.equal(JSON.parse(json[1]).appId, 'tab\t');
});

test('a tool ends quietly when its reader has gone', { skip: isWindows && 'pipes are not enough here' }, async (t) => {
    const { bus } = await Endpoint.join(t, newBus(), 'A', '1');
    const tool = spawn(process.execPath, [cli, 'endpoints', '--follow', '--bus', bus]);
    const ended = once(tool, 'exit');
    const complaints = tool.stderr.toArray();
    await once(tool.stdout, 'data');
    tool.stdout.destroy();
    await once(tool.stdout, 'close');
    await Endpoint.join(t, bus, 'B', '1');
    assert.deepEqual([await ended, await complaints], [[0, null], []]);
});
