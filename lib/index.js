'use strict';

// The exports of this package are the native module's own exports object.

const { modulePath } = require('./locate');

module.exports = require(modulePath());
