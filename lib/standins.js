'use strict';

// The script of the stand-in libraries, for tests. Loading this file switches the script on for the whole process, which
// is possible only before its first adapter. standins.d.ts says what there is.

const { load } = require('./load');
const { standinsPath } = require('./locate');

module.exports = load(standinsPath()).switchOn();
