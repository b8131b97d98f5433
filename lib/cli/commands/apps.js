'use strict';

const { isTable, printer } = require('../table');

const COLUMNS = [
    ['SPECIFIER', ({ specifier }) => specifier],
    ['INSTALLED', ({ isInstalled }) => (isInstalled ? 'yes' : 'no')],
    ['PROCESS', ({ isRunning, processId }) => (isRunning ? String(processId) : '')],
    ['VERSION', ({ version }) => version ?? ''],
    ['PATH', ({ path }) => path],
];

module.exports = {
    usage: '[FOLDER]',
    summary:
        'prints the applications of the library path: whether each is installed, its version, its path, and the process ' +
        'as which it runs',
    operands: [0, 1],

    run(options, [folder]) {
        const { applications } = require('../../client');
        const all = applications({ folder });
        if (all.length === 0 && isTable(options)) process.stderr.write('there are no applications\n');
        printer(COLUMNS, options)(all);
    },
};
