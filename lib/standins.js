'use strict';

// The script of the stand-in libraries, for tests. Loading this file switches the script on for the whole process, which
// is possible only before its first adapter. standins.d.ts says what there is.

const { TYPE_PREFIX } = require('./constants');
const { forget } = require('./client/presence');
const { loadStandins } = require('./libraries');

const scripts = loadStandins().switchOn();

// What a script does in the middle of a turn of the event loop, a client sees in that turn.
for (const name of ['deliver', 'setEndpoints']) {
    const run = scripts.messaging[name];
    scripts.messaging[name] = (...values) => {
        run(...values);
        forget();
    };
}

module.exports = { ...scripts, TYPE_PREFIX };
