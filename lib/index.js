'use strict';

// The exports of this package are the native module's own exports object.

const { loadModule } = require('./libraries');

module.exports = loadModule();
