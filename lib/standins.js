'use strict';

// The script of the stand-in libraries, for tests. Loading this file switches the script on for the whole process, which
// is possible only before its first adapter. standins.d.ts says what there is.

const { TYPE_PREFIX } = require('./constants');
const { loadStandins } = require('./libraries');

module.exports = { ...loadStandins().switchOn(), TYPE_PREFIX };
