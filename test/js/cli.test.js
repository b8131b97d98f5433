'use strict';

// The command-line tools, as processes of their own. Their standard output is a file, which is not a terminal.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');

const { version } = require('../../package.json');
const { Child, Endpoint, launchedApp, newBus, root } = require('../support/support');
const { runScript, temporaryFile, temporaryFolder, until } = require('../support/support');

const isWindows = process.platform === 'win32';
const cli = path.join(root, 'lib', 'cli', 'index.js');

function start(t, args, env) {
    const child = new Child(cli, { args: args.split(' ').filter(Boolean), env });
    t.after(() => child.end());
    return child;
}

const atLeast = (count) => (lines) => lines.length >= count;
const withoutTime = (lines) => lines.map(JSON.parse).map(({ time, ...record }) => record);

test('the version needs no module, and what cannot be done is refused with its exit code', async (t) => {
    const env = { BRIVONJS_MODULE: temporaryFile(), BRIVON_BUS: '../x' };
    for (const [args, code, stdout, complaint, more] of [
        ['--version', 0, `${version}\n`, /^$/],
        ['monitor --follow', 2, '', /--follow/],
        ['request q {} --to a,1,2,3', 2, '', /'a,1,2,3' is no APP/],
        ['monitor --bus ../x', 2, '', /'\.\.\/x' is no name of a bus/],
        ['endpoints', 1, '', /^brivonjs: Cannot find module/],
        ['monitor', 1, '', /^brivonjs: BRIVON_BUS must be 1 to 32 letters/, { BRIVONJS_MODULE: '' }],
    ]) {
        const ended = await start(t, args, { ...env, ...more }).exited;
        assert.deepEqual([ended.code, ended.stdout], [code, stdout], args);
        assert.match(ended.stderr, complaint);
    }
});

test('endpoints prints who is there, and goes on with who joins and leaves, until Ctrl-C', async (t) => {
    const a = await Endpoint.join(t, newBus(), 'A', '1, or 2');
    // The option goes before the variable.
    const once = await start(t, `endpoints --bus ${a.bus}`, { BRIVON_BUS: newBus() }).exited;
    const present = { appId: 'A', appVersion: '1, or 2', id: a.self.slice(-33, -1) };
    assert.deepEqual([once.code, once.stderr, JSON.parse(once.stdout)], [0, '', present]);
    const follower = start(t, 'endpoints -f --app-id me --app-version 7', { BRIVON_BUS: a.bus });
    await follower.written('stdout', atLeast(1));
    await a.until('/^{me,7,[0-9a-f]{32}}$/.test(adapter.getEndpoints().join())');
    const b = await Endpoint.join(t, a.bus, 'B', '2');
    await follower.written('stdout', atLeast(2));
    await b.end();
    assert.deepEqual(withoutTime(await follower.written('stdout', atLeast(3))), [
        { event: 'present', ...present },
        { event: 'joined', appId: 'B', appVersion: '2', id: b.id },
        { event: 'left', appId: 'B', appVersion: '2', id: b.id },
    ]);
    if (isWindows) return; // where a signal ends a process at once
    const { code, signal } = await follower.end('SIGINT');
    assert.deepEqual({ code, signal }, { code: 130, signal: null });
    await a.sees();
});

// What monitor prints of these messages on scripted libraries, after something has been done.
async function monitored(messages, options, before = '') {
    const { code, stdout } = await runScript(
        `const { messaging } = require(root + '/lib/standins');
        ${before}
        require(root + '/lib/cli/index.js');
        for (const message of ${JSON.stringify(messages)}) messaging.deliver(message);`,
        { args: ['monitor', ...options] },
    );
    return { code, lines: stdout.split('\n').slice(0, -1) };
}

const source = { id: '0123456789abcdef', appId: 'notes', appVersion: '2.1' };
const ping = (payload, rest) => ({ ...source, source, type: 'brivon.SuiteMessage.ping', payload, ...rest });

test('monitor prints messages and errors whole', async () => {
    const payload = 'line\r\n\u001b[2J "日🙂"'.repeat(1000);
    const error = { type: 'brivon.ErrorMessage', error: 'Destination unreachable', fault: '{A,1,7}' };
    const { id: sourceId, ...sender } = source;
    const { lines } = await monitored([ping(payload), error], ['--count', '2']);
    assert.deepEqual(withoutTime(lines), [
        { event: 'message', type: 'brivon.SuiteMessage.ping', payload, sourceId, ...sender },
        { event: 'error', ...error },
    ]);
});

test('a monitor hears what its patterns match, and ends after so many, or in time', async () => {
    const patterns = ['--type', 'p*ng', '--app', 'not*s', '--count', '2'];
    const pong = ping('2', { type: 'brivon.SuiteMessage.pong' });
    const others = [ping('', { appId: 'x' }), ping('', { type: 'brivon.SuiteMessage.pin' })];
    const { code, lines } = await monitored([...others, ping('1'), pong, ping('3')], patterns);
    assert.deepEqual([code, ...lines.map((line) => JSON.parse(line).payload)], [0, '1', '2']);
    assert.deepEqual(await monitored([], ['--count', '1', '--timeout', '0.01']), { code: 4, lines: [] });
});

test('a terminal gets columns, one line for each message, none wider than the terminal', async () => {
    const terminal = `Object.assign(process.stdout, { isTTY: true, columns: 60 });`;
    const payloads = ['a\n\u001b[2J\u202e', '日🙂é', '日'.repeat(1000)];
    const messages = payloads.map((payload) => ping(payload));
    const [titles, ...lines] = (await monitored(messages, ['--count', '3'], terminal)).lines;
    assert.equal(titles, 'TIME      APP    VERSION  ID         TYPE  PAYLOAD');
    const withoutTimes = lines.map((line) => line.slice('12:34:56'.length));
    const shown = ['a\\n\\u{1b}[2J\\u{2…', '日🙂é', '日日日日日日日日…'];
    const expected = shown.map((payload) => `  notes  2.1      01234567…  ping  ${payload}`);
    assert.deepEqual(withoutTimes, expected);
});

test('send and request reach programs on the bus, and say when they do not', async (t) => {
    const a = await Endpoint.join(t, newBus(), 'A', '1');
    await a.run(`const { connect } = require(${JSON.stringify(path.join(root, 'lib', 'client'))});
        globalThis.client = connect({ appId: 'A', appVersion: '1' });
        client.handle('half', ({ n }) => { if (n % 2) throw new Error('odd'); return { half: n / 2 }; });
        client.on('message', ({ type, payload }) => tell({ type, payload })); 0`);
    for (const [args, code, stdout, complaint = /^$/] of [
        [`send hello {"x":1} --to A`, 0, ''],
        [`send hello all`, 0, ''],
        [`send hello x --to B`, 3, '', /nobody/],
        [`request half {"n":4} --to ${a.self}`, 0, '{"half":2}\n'],
        [`request half {"n":3} --to A,1`, 5, '', /odd/],
        [`request half {} --to A,1,gone`, 3, '', /unreachable/],
        [`send hello --to ,x`, 2, '', /--help/],
    ]) {
        const ended = await start(t, args, { BRIVON_BUS: a.bus }).exited;
        assert.deepEqual([ended.code, ended.stdout], [code, stdout], args + ended.stderr);
        assert.match(ended.stderr, complaint);
    }
    assert.deepEqual((await a.told.atLeast(2)).flat(), [
        { type: 'hello', payload: { x: 1 } },
        { type: 'hello', payload: 'all' },
    ]);
});

test('apps and launch', async (t) => {
    const folder = temporaryFolder(t);
    const name = `app${path.extname(launchedApp)}`;
    fs.copyFileSync(launchedApp, path.join(folder, name));
    const report = path.join(folder, 'report');
    assert.equal((await start(t, `launch ${name} ${report} --folder ${folder}`).exited).code, 0);
    await until(() => fs.existsSync(report));
    const { stdout } = await start(t, `apps ${folder}`).exited;
    const processId = Number(fs.readFileSync(report, 'utf8').split('\n')[0]);
    const expected = { specifier: name, isInstalled: true, path: path.join(folder, name), version: null };
    assert.deepEqual(JSON.parse(stdout), { ...expected, isRunning: true, processId });
    fs.writeFileSync(`${report}.stop`, '');
    const { code, stderr } = await start(t, `launch missing --folder ${folder}`).exited;
    assert.deepEqual([code, stderr], [1, "brivonjs: 'missing' was not launched: it is not installed\n"]);
});
