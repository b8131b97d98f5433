'use strict';

const { examine } = require('../examine');
const { printer } = require('../table');

const COLUMNS = [
    ['SUBJECT', ({ subject }) => subject.padEnd('libBrivonMessage5.so'.length)],
    ['STATE', ({ ok }) => (ok ? 'ok' : 'wrong')],
    ['DETAIL', ({ detail }) => detail],
];

module.exports = {
    summary: 'prints what programs on this machine run on, and what is wrong with it, line by line',

    // Line by line, because a library may end the process while it is loaded.
    run(options) {
        const print = printer(COLUMNS, options);
        for (const record of examine()) {
            print([record]);
            if (!record.ok) process.exitCode = 1;
        }
    },
};
