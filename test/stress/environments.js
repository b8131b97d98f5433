'use strict';

// The module under the thread sanitizer: environments come and go while a library thread delivers messages, errors and
// endpoint lists, and every environment sends, takes snapshots, and adds and removes listeners.
// The first argument is the time in seconds.

const { once } = require('node:events');
const { isMainThread, Worker, workerData } = require('node:worker_threads');

const { messaging, SUITE_TYPE_PREFIX, ERROR_TYPE } = require('../../lib/standins');
const { BrivonAdapter, BrivonControlAdapter, _setLibraryPath } = require('../../lib');

function useModule(rounds) {
    const adapter = new BrivonAdapter('stress', '1', 'application 3');
    for (let round = 0; round < rounds; ++round) {
        if (round % 10 === 0) adapter.addMessageListener(() => {});
        if (round % 10 === 5) adapter.addErrorListener(() => {});
        adapter.sendMessage('stress', 'payload');
        adapter.sendMessage('stress', 'payload', `application ${round % 20}`);
        adapter.getEndpointCacheSnapshot();
        if (round % 10 === 9) adapter.removeAllListeners(); // the library must not keep what is collected
        if (round % 50 === 25) adapter.forceRefreshEndpoints();
        if (round === 6) adapter.setVerboseLogging();
    }
    _setLibraryPath(`a path that is longer than a short string, ${rounds}`);
    new BrivonControlAdapter();
}

// Queues what the library's own thread then hands to the adapters.
function feedLibrary(round) {
    const endpoint = (number) => ({ id: `${number}`, appId: `application ${number % 20}`, appVersion: '1' });
    messaging.setEndpoints(Array.from({ length: round % 100 }, (_, number) => endpoint(number)));
    for (let number = 0; number < 10; ++number)
        messaging.deliver({ type: `${SUITE_TYPE_PREFIX}stress`, source: endpoint(100 + number), payload: 'payload' });
    messaging.deliver({ type: ERROR_TYPE, error: 'error', fault: 'fault' });
    messaging.takeCalls();
}

async function main() {
    globalThis.adapter = new BrivonAdapter('stress', '1'); // there is somebody to deliver to
    const end = Date.now() + 1000 * Number(process.argv[2]);
    for (let round = 0; Date.now() < end; ++round) {
        const workers = Array.from({ length: 3 }, () => new Worker(__filename, { workerData: 100 + round }));
        const exits = workers.map((worker) => once(worker, 'exit'));
        for (let i = 0; i < 20; ++i) {
            feedLibrary(round + i);
            useModule(10);
            await new Promise(setImmediate);
        }
        if (round % 2 === 0) workers.forEach((worker) => worker.terminate());
        await Promise.all(exits);
    }
    process.exit(0);
}

if (isMainThread) main();
else {
    useModule(workerData);
    process.exit(0);
}
