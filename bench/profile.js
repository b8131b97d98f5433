'use strict';

// A fixed number of one call, for a profiler that counts instructions:
// node bench/profile.js <folder> <module|floor> <case> <count>

const path = require('node:path');

const [folder, side, name, count] = process.argv.slice(2);
const isModule = side === 'module';
const addon = require(path.resolve(folder, isModule ? 'BrivonJS.node' : 'floor.node'));

function newAdapter(endpoints) {
    return isModule
        ? new addon.BrivonAdapter('bench', String(endpoints), 'calendar')
        : new addon.Adapter('bench', String(endpoints), 'calendar');
}

function newControlAdapter(applications) {
    if (!isModule) return new addon.ControlAdapter(String(applications));
    addon._setLibraryPath(String(applications));
    return new addon.BrivonControlAdapter();
}

function repeat(subject, call) {
    new Function('subject', 'payload', 'count', `for (let i = 0; i < count; ++i) subject.${call};`)(
        subject,
        'x'.repeat(20),
        Number(count),
    );
    process.exit();
}

// Kept for good: a collected adapter silences the listeners of all.
const adapters = [];

function receive(subject) {
    adapters.push(subject);
    let received = 0;
    subject.addMessageListener(() => ++received === Number(count) && process.exit());
    subject.sendMessage(`flood:${count}:20:0`, '');
}

function launch(subject) {
    let launched = 0;
    const next = () => (++launched > Number(count) ? process.exit() : subject.launchApp('calendar', true, '', next));
    next();
}

const cases = {
    'send-2': () => repeat(newAdapter(1), "sendMessage('ping', payload)"),
    'send-5': () => repeat(newAdapter(1), "sendMessage('ping', payload, 'calendar', '3.0', 'endpoint-0')"),
    'send-1000-cached': () => repeat(newAdapter(1000), "sendMessage('ping', payload)"),
    isAppInstalled: () => repeat(newControlAdapter(10), "isAppInstalled('calendar')"),
    getAppPath: () => repeat(newControlAdapter(10), "getAppPath('calendar')"),
    'getSpecifiers-10': () => repeat(newControlAdapter(10), 'getSpecifiers()'),
    'snapshot-10': () => repeat(newAdapter(10), 'getEndpointCacheSnapshot()'),
    incoming: () => receive(newAdapter(1)),
    launch: () => launch(newControlAdapter(10)),
};

cases[name]();
