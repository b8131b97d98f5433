'use strict';

const { printer } = require('../table');

const COLUMNS = [
    ['SPECIFIER', ({ specifier }) => specifier],
    ['PROCESS', ({ isRunning, processId }) => (isRunning ? String(processId) : '')],
    ['VERSION', ({ version }) => version ?? ''],
    ['PATH', ({ path }) => path],
];

module.exports = {
    usage: '[FOLDER]',
    summary:
        'prints the applications of the library path, with their version, their path, and the process as which each runs',
    operands: [0, 1],

    run(options, [folder]) {
        const { applications } = require('../../client');
        printer(COLUMNS, options)(applications({ folder }));
    },
};
