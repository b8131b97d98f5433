'use strict';

const { join } = require('../bus');
const { ENDPOINT_COLUMNS, isTable, printer, TIME_COLUMN } = require('../table');
const { toEndpoint } = require('../../texts');

const POLL_MS = 200;

module.exports = {
    summary: 'prints the other programs on the bus',
    joins: true,
    options: {
        follow: { type: 'boolean', short: 'f', text: 'goes on and prints who joins and who leaves, until Ctrl-C' },
    },

    run(options, operands, endOnSignals) {
        const adapter = join(options, 'endpoints');
        let known = adapter.getEndpoints();
        if (known.length === 0 && isTable(options))
            process.stderr.write(`nobody else is on the bus '${process.env.BRIVON_BUS || 'default'}'\n`);
        if (!options.follow) {
            printer(ENDPOINT_COLUMNS, options)(known.map(toEndpoint));
            return;
        }
        endOnSignals();
        const print = printer([TIME_COLUMN, ['EVENT', ({ event }) => event], ...ENDPOINT_COLUMNS], options);
        const happened = (event, texts) => texts.map((text) => ({ time: new Date(), event, ...toEndpoint(text) }));
        print(happened('present', known));
        // The bus tells programs of no changes; who comes and goes between two looks is missed.
        setInterval(() => {
            const now = adapter.getEndpoints();
            const left = known.filter((text) => !now.includes(text));
            const joined = now.filter((text) => !known.includes(text));
            known = now;
            print([...happened('left', left), ...happened('joined', joined)]);
        }, POLL_MS);
    },
};
