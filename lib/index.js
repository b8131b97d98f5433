'use strict';

// The exports of this package are the native module's own exports object.

const { load } = require('./load');
const { modulePath } = require('./locate');

module.exports = load(modulePath());
