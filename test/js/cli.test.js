'use strict';

// The command-line tools, as processes of their own. Their standard output is a file, which is not a terminal.

const assert = require('node:assert/strict');
const { spawn } = require('node:child_process');
const { once } = require('node:events');
const path = require('node:path');
const { test } = require('node:test');

const { version } = require('../../package.json');
const { Child, Endpoint, newBus, root, runScript, temporaryFile } = require('../support/support');

const isWindows = process.platform === 'win32';
const cli = path.join(root, 'lib', 'cli.js');

function start(t, args, env) {
    const child = new Child(cli, { args: args.split(' ').filter(Boolean), env });
    t.after(() => child.end());
    return child;
}

const atLeast = (count) => (lines) => lines.length >= count;
const withoutTime = (lines) => lines.map(JSON.parse).map(({ time, ...record }) => record);
const fields = ({ appId, appVersion, id }) => ({ appId, appVersion, id });

test('help and version need no module, and what cannot be done is refused with its exit code', async (t) => {
    const env = { BRIVONJS_MODULE: temporaryFile(), BRIVON_BUS: '../x' };
    const { stdout: help } = await start(t, '--help', env).exited;
    assert.match(help, /^Usage: brivonjs endpoints/);
    for (const [args, code, stdout, complaint, BRIVONJS_MODULE] of [
        ['--version', 0, `${version}\n`, /^$/],
        ['', 2, '', /which command/],
        ['toString', 2, '', /no command 'toString'/],
        ['endpoints more', 2, '', /'more' is one argument too many/],
        ['monitor --follow', 2, '', /--follow goes with endpoints/],
        ['monitor --bus ../x', 2, '', /'\.\.\/x' is no name of a bus/],
        ['endpoints', 1, '', /^brivonjs: Cannot find module/],
        ['monitor', 1, '', /^brivonjs: BRIVON_BUS must be 1 to 32 letters/, ''],
    ]) {
        const ended = await start(t, args, { ...env, ...(BRIVONJS_MODULE === '' && { BRIVONJS_MODULE }) }).exited;
        assert.deepEqual([ended.code, ended.stdout], [code, stdout], args);
        assert.match(ended.stderr, complaint);
        assert.equal(ended.stderr.endsWith(help), code === 2);
    }
});

test('endpoints prints who is there, and goes on with who joins and leaves, until Ctrl-C', async (t) => {
    const a = await Endpoint.join(t, newBus(), 'A', '1, or 2');
    // The option goes before the variable.
    const once = await start(t, `endpoints --bus ${a.bus}`, { BRIVON_BUS: newBus() }).exited;
    assert.deepEqual([once.code, once.stderr], [0, '']);
    const present = { appId: 'A', appVersion: '1, or 2', id: a.self.slice(-33, -1) };
    assert.deepEqual(JSON.parse(once.stdout), present);

    const follower = start(t, 'endpoints -f --app-id me --app-version 7', { BRIVON_BUS: a.bus });
    await follower.written('stdout', atLeast(1));
    await a.until('/^{me,7,[0-9a-f]{32}}$/.test(adapter.getEndpoints().join())');
    const b = await Endpoint.join(t, a.bus, 'B', '2');
    await follower.written('stdout', atLeast(2));
    await b.end();
    assert.deepEqual(withoutTime(await follower.written('stdout', atLeast(3))), [
        { event: 'present', ...present },
        { event: 'joined', ...fields(b) },
        { event: 'left', ...fields(b) },
    ]);
    if (isWindows) return; // where a signal ends a process at once
    const { code, signal } = await follower.end('SIGINT');
    assert.deepEqual({ code, signal }, { code: 130, signal: null });
    await a.sees();
});

// Runs a tool on scripted libraries, ends it after so many lines as Ctrl-C does, and resolves to those.
async function scriptedLines(args, count, before, then) {
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
    assert.deepEqual(withoutTime(await scriptedLines(['monitor'], 2, '', ping(payload) + deliver(error))), [
        { event: 'message', type: 'brivon.SuiteMessage.ping', payload, sourceId, ...sender },
        { event: 'error', ...error },
    ]);
});

test('a terminal gets columns, one line for each message, none wider than the terminal', async () => {
    const terminal = `Object.assign(process.stdout, { isTTY: true, columns: 60 });`;
    const payloads = ['a\n\u001b[2J\u202e', '日🙂é', '日'.repeat(1000)].map(ping).join('');
    const [titles, ...lines] = await scriptedLines(['monitor'], 4, terminal, payloads);
    assert.equal(titles, 'TIME      APP    VERSION  ID         TYPE  PAYLOAD');
    const shown = ['a\\n\\u{1b}[2J\\u{2…', '日🙂é', '日日日日日日日日…'];
    assert.deepEqual(
        lines.map((line) => line.slice('12:34:56'.length)),
        shown.map((payload) => `  notes  2.1      01234567…  ping  ${payload}`),
    );
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
