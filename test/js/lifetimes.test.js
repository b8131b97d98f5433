'use strict';

// Every point of a program's life, ended in every way: the exit code must be the program's own, without a signal.

const assert = require('node:assert/strict');
const path = require('node:path');
const { test } = require('node:test');

const { modulePath } = require('../../lib/locate');
const { newBus, root, runScript, scripted } = require('../support/support');

// Runs on the main thread or in a worker. Messages to itself travel through the library's thread.
const joined = `keep = new BrivonAdapter('app', '1');`;
const sending = (count) => `
    ${joined}
    const self = keep.getSelfEndpoint().slice(1, -1).split(',');
    const send = () => { for (let i = 0; i < ${count}; ++i) keep.sendMessage('t', 'p', ...self); };`;
const streaming = (atATime) => `${sending(atATime)}
    let count = 0;
    keep.addMessageListener(() => { if (++count % ${atATime} === 0) send(); });
    send();`;
const points = {
    'the module is loaded twice': `process.dlopen({ exports: {} }, ${JSON.stringify(modulePath())});`,
    'an adapter exists': joined,
    'a construction was refused': `try { new BrivonAdapter('app'); } catch {}`,
    'launches are pending': `
        keep = new BrivonControlAdapter();
        for (let i = 0; i < 100; ++i) keep.launchApp('missing', true, '', () => {});`,
    'an adapter listens': `${joined} keep.addMessageListener(() => {}); keep.addErrorListener(() => {});`,
    'an adapter has listened': `${joined} keep.addMessageListener(() => {}); keep.removeAllListeners();`,
    'messages stream in': streaming(100),
    'messages are queued': `${sending(10000)} keep.addMessageListener(() => {}); send();`,
};
// On globalThis, because an adapter that nothing else refers to would be collected, and fall silent.
const load = `const { BrivonAdapter, BrivonControlAdapter } = require(${JSON.stringify(path.join(root, 'lib'))});
    globalThis.keep = undefined;`;
const later = (action) => `setTimeout(() => { ${action} }, 20);`;
const exit = later('process.exit(7)');
const beTerminated = `setInterval(() => {}, 1000); require('node:worker_threads').parentPort.postMessage('terminate me');`;

// Ways to end, with the exit code of each, beside the one that is given. What listens does not end by itself.
const ways = (script, ...other) => [
    other,
    [exit, 7],
    [later(`throw new Error('uncaught')`), 1],
    ...(script.includes('Listener(') ? [] : [['', 0]]),
];

const runWorker = `const runWorker = (body) => new Promise((resolve) => {
    const worker = new (require('node:worker_threads').Worker)(body, { eval: true });
    worker.on('message', () => worker.terminate());
    worker.on('error', () => {});
    worker.on('exit', resolve);
});`;

async function assertEnds(script, code) {
    const ended = await runScript(`${load}${script}`, { env: { BRIVON_BUS: newBus() } });
    assert.deepEqual([ended.code, ended.signal], [code, null], `${script}\n${ended.stderr}`);
}

for (const [point, script] of Object.entries(points))
    test(`${point}: the main thread ends, and workers, one after another and beside it`, async () => {
        for (const [action, code] of ways(script, 'process.exit(7)', 7)) await assertEnds(`${script};${action}`, code);
        for (const beside of ['', script])
            for (const [action, code] of ways(script, beTerminated, 1)) {
                const worker = `runWorker(${JSON.stringify(load + script + action)})`;
                const body = `const codes = [await ${worker}, await ${worker}, await ${worker}];
                    console.error(codes);
                    process.exit(codes.every((code) => code === ${code}) ? 0 : 100);`;
                await assertEnds(`${beside};${runWorker} (async () => { ${body} })();`, 0);
            }
    });

test('workers that come and go at once, in every way, leave the main thread on the bus', () => {
    const bodies = Object.values(points).flatMap((script) => [load + script + exit, load + script + beTerminated]);
    const together = [...Array(20).fill([load, load]), bodies, bodies];
    return assertEnds(
        `${runWorker}${streaming(2000)}
        setInterval(() => { for (let i = 0; i < 1000; ++i) keep.sendMessage('t', 'p'); }); // by way of the cache
        (async () => {
            for (const bodies of ${JSON.stringify(together)}) await Promise.all(bodies.map(runWorker));
            // Every worker has silenced it.
            keep.addMessageListener(() => process.exit(0));
            send();
        })();`,
        0,
    );
});

test('environments that load the module at once do not meddle with each other', () => {
    const loading = `for (let i = 0; i < 12000; ++i) {
        const loaded = { exports: {} };
        process.dlopen(loaded, ${JSON.stringify(modulePath())});
        loaded.exports._setLibraryPath('x'.repeat(i % 100));
    }`;
    const codes = `await Promise.all(Array(4).fill(${JSON.stringify(loading)}).map(runWorker))`;
    return assertEnds(`${runWorker} (async () => { process.exit(Math.max(...(${codes}))); })();`, 0);
});

test('a library that throws while an environment ends does not end the process', async () => {
    const inWorker = `${scripted}
        globalThis.adapter = new BrivonAdapter('app', '1');
        adapter.addMessageListener(() => {});
        messaging.answer('RemoveMessageListener', { throws: 'too late' });
        process.exit(0);`;
    const { code, stderr } = await runScript(`
        const body = 'const root = ' + JSON.stringify(root) + ';' + ${JSON.stringify(inWorker)};
        new (require('node:worker_threads').Worker)(body, { eval: true }).on('exit', process.exit);`);
    assert.equal(code, 0, stderr);
});
