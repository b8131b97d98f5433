'use strict';

// What every program on the bus must know of messages' types.

module.exports = {
    // The beginning of every application message's type.
    TYPE_PREFIX: 'brivon.SuiteMessage.',
    // The type of errors of the bus.
    ERROR_TYPE: 'brivon.ErrorMessage',
};
