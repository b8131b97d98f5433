'use strict';

// The stand-ins' bus, before and behind the module.

const { libraries } = require('./libraries');
const { load } = require('./load');

// Throws where the stand-ins cannot join their bus: an adapter would end the process with an assertion. Answers their addon,
// whose sendStatus() says how they took the last message; undefined on other libraries.
function openBus() {
    const { addon } = libraries();
    if (addon === undefined) return undefined;
    const standins = load(addon);
    try {
        standins.messaging('busFolder');
    } catch (cause) {
        throw Object.assign(new Error(cause.message, { cause }), { code: 'ERR_BRIVONJS_BUS' });
    }
    return standins;
}

module.exports = { openBus };
