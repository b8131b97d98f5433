'use strict';

// Every point of a program's life, ended in every way: the exit code must be the program's own, without a signal.

const assert = require('node:assert/strict');
const path = require('node:path');
const { test } = require('node:test');

const { Endpoint, newBus, root, runScript } = require('../support/support');

// Runs on the main thread or in a worker. Messages to itself travel through the library's thread.
const points = {
    'the module is loaded': ``,
    'an adapter exists': `keep = new BrivonAdapter('app', '1');`,
    'a construction was refused': `try { new BrivonAdapter('app'); } catch {}`,
    'launches are pending': `
        keep = new BrivonControlAdapter();
        for (let i = 0; i < 100; ++i) keep.launchApp('missing', true, '', () => {});
    `,
    'an adapter listens': `keep = new BrivonAdapter('app', '1'); keep.addMessageListener(() => {}); keep.addErrorListener(() => {});`,
    'an adapter has listened': `keep = new BrivonAdapter('app', '1'); keep.addMessageListener(() => {}); keep.removeAllListeners();`,
    'messages stream in': `
        keep = new BrivonAdapter('app', '1');
        const [, appId, appVersion, id] = keep.getSelfEndpoint().match(/{(.*),(.*),(.*)}/);
        const send = () => { for (let i = 0; i < 100; ++i) keep.sendMessage('t', 'p', appId, appVersion, id); };
        let count = 0;
        keep.addMessageListener(() => { if (++count % 100 === 0) send(); });
        send();
    `,
    'messages are queued': `
        keep = new BrivonAdapter('app', '1');
        const [, appId, appVersion, id] = keep.getSelfEndpoint().match(/{(.*),(.*),(.*)}/);
        keep.addMessageListener(() => {});
        for (let i = 0; i < 10000; ++i) keep.sendMessage('t', 'p', appId, appVersion, id);
    `,
};
const load = `const { BrivonAdapter, BrivonControlAdapter } = require(${JSON.stringify(path.join(root, 'lib'))}); let keep;`;
const later = (action) => `setTimeout(() => { ${action} }, 20);`;
const listens = (point) => points[point].includes('Listener(');

for (const [point, script] of Object.entries(points)) {
    test(`${point}: the main thread ends`, async () => {
        const ways = [
            { action: later('process.exit(7)'), code: 7 },
            { action: `process.exit(7);`, code: 7 },
            { action: later(`throw new Error('uncaught')`), code: 1 },
            ...(listens(point) ? [] : [{ action: '', code: 0 }]),
        ];
        for (const { action, code } of ways) {
            const ended = await runScript(`${load}${script}${action}`, { env: { BRIVON_BUS: newBus() } });
            assert.deepEqual(
                { code: ended.code, signal: ended.signal },
                { code, signal: null },
                `${action}\n${ended.stderr}`,
            );
        }
    });

    test(`${point}: workers end, one after another and beside the main thread`, async () => {
        const ways = [
            { action: later('process.exit(7)'), code: 7 },
            { action: later(`throw new Error('uncaught')`), code: 1 },
            {
                action: `setInterval(() => {}, 1000); require('node:worker_threads').parentPort.postMessage('terminate me');`,
                code: 1,
            },
            ...(listens(point) ? [] : [{ action: '', code: 0 }]),
        ];
        for (const beside of ['', script]) {
            for (const { action, code } of ways) {
                const ended = await runScript(
                    `${beside && load}${beside}
                    const { Worker } = require('node:worker_threads');
                    const run = () => new Promise((resolve) => {
                        const worker = new Worker(${JSON.stringify(load + script + action)}, { eval: true });
                        worker.on('message', () => worker.terminate());
                        worker.on('error', () => {});
                        worker.on('exit', resolve);
                    });
                    (async () => {
                        for (let i = 0; i < 3; ++i) {
                            const code = await run();
                            if (code !== ${code}) process.exit(100 + code);
                        }
                        process.exit(0);
                    })();`,
                    { env: { BRIVON_BUS: newBus() } },
                );
                assert.deepEqual(
                    { code: ended.code, signal: ended.signal },
                    { code: 0, signal: null },
                    `${action}\n${ended.stderr}`,
                );
            }
        }
    });
}

test('workers that come and go at once, in every way, leave the main thread on the bus', async () => {
    const terminate = `setInterval(() => {}, 1000); require('node:worker_threads').parentPort.postMessage('terminate me');`;
    const bodies = Object.values(points).flatMap((script) =>
        [later('process.exit(7)'), terminate].map((action) => load + script + action),
    );
    const ended = await runScript(
        `const { Worker } = require('node:worker_threads');
        const run = (body) => new Promise((resolve) => {
            const worker = new Worker(body, { eval: true });
            worker.on('message', () => worker.terminate());
            worker.on('exit', resolve);
        });
        ${load}${points['messages stream in']}
        (async () => {
            for (let round = 0; round < 2; ++round) await Promise.all(${JSON.stringify(bodies)}.map(run));
            // Every worker has silenced it.
            keep.addMessageListener(() => process.exit(0));
            send();
        })();`,
        { env: { BRIVON_BUS: newBus() } },
    );
    assert.deepEqual({ code: ended.code, signal: ended.signal }, { code: 0, signal: null }, ended.stderr);
});

test('a listener keeps its process alive, and a removed one too', async () => {
    for (const remove of ['', 'keep.removeAllListeners();']) {
        const ended = await runScript(
            `${load}
      keep = new BrivonAdapter('app', '1');
      keep.addErrorListener(() => {});
      ${remove}
      // Such a timer fires only in a process that something else keeps alive.
      setTimeout(() => process.exit(9), 200).unref();
      process.disconnect();`,
            { env: { BRIVON_BUS: newBus() } },
        );
        assert.equal(ended.code, 9, ended.stderr);
    }
});

test('fifty processes exit with their own code in the middle of a stream from another process', async (t) => {
    const bus = newBus();
    const sender = await Endpoint.join(t, bus, 'sender', '1');
    try {
        await sender.run(`globalThis.stream = () => {
      for (let i = 0; i < 200; ++i) adapter.sendMessage('t', 'x'.repeat(100));
      setImmediate(stream);
    }; stream(); 0`);
        for (let i = 0; i < 50; ++i) {
            const ended = await runScript(
                `${load}
        keep = new BrivonAdapter('receiver', '1');
        let count = 0;
        keep.addMessageListener(() => { if (++count === 500) process.exit(7); });`,
                { env: { BRIVON_BUS: bus } },
            );
            const { code, signal, stderr } = ended;
            assert.deepEqual({ code, signal }, { code: 7, signal: null }, `run ${i}: ${stderr}`);
        }
    } finally {
        await sender.end();
    }
});
