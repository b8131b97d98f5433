'use strict';

// A program of the suite, written on the client: asks the calendars for what is planned, of which the first answer counts,
// launches one where none runs, and says what it hears. Start it with a folder of applications:
//
//     node examples/planner.js FOLDER

const { connect, launch } = require('../lib/client');

const client = connect({ appId: 'planner', appVersion: '1.0', defaultAppId: 'calendar' });

client.on('message', ({ type, payload, source }) => console.log(`${source.appId} says ${type}:`, payload));
client.on('unreachable', ({ endpoint, error }) => console.log(`${error}: ${endpoint?.appId}`));
client.on('error', (error) => console.error(error));
client.handle('today', (body, { source }) => ({ to: source.appId, entries: [] }));

(async () => {
    const isThere = client.endpoints.some(({ appId }) => appId === 'calendar');
    if (!isThere) await launch('calendar', { args: '--today', folder: process.argv[2], waitFor: 'calendar' });
    const { entries } = await client.request('today', { day: new Date() }, { timeout: 2000 });
    console.log(entries);
})().catch(({ message }) => {
    console.log(`no calendar answers: ${message}`);
    client.close();
    process.exit(1);
});
