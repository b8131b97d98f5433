'use strict';

// One program of the demo: joins the bus as it is told and reports to its parent what it hears.

const { BrivonAdapter } = require('../../lib');

const [appId, appVersion, defaultAppId] = process.argv.slice(2);
const adapter = new BrivonAdapter(appId, appVersion, defaultAppId);

adapter.addMessageListener((type, payload) => process.send({ event: 'message', type, payload }));
adapter.addErrorListener((type, error, fault) => process.send({ event: 'error', error, fault }));

// Each request { id, method, args } is a call of the adapter.
process.on('message', ({ id, method, args }) => {
    process.send({ event: 'answer', id, value: adapter[method](...args) });
});
// The parent is gone; nobody else would end this program.
process.on('disconnect', () => process.exit());

process.send({ event: 'joined', endpoint: adapter.getSelfEndpoint() });
