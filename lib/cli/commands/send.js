'use strict';

const { connect, targetOf, textOf } = require('../bus');

const EXIT_CODES = { ERR_BRIVONJS_UNKNOWN_TARGET: 3 };

module.exports = {
    usage: 'TYPE [PAYLOAD|-]',
    summary: 'sends a message, whose payload may come from standard input (-), to a target or to everyone',
    joins: true,
    operands: [1, 2],
    options: {
        to: { type: 'string', value: 'TARGET', text: 'APP, APP,VERSION or APP,VERSION,ID; everyone if it is left out' },
    },

    async run(options, [type, operand]) {
        const to = options.to && targetOf(options.to);
        const payload = await textOf(operand);
        const client = connect(options, 'send');
        try {
            if (to === undefined) client.broadcast(type, payload);
            else client.send(type, payload, { to });
        } catch (error) {
            throw Object.assign(error, { exitCode: EXIT_CODES[error.code] });
        }
    },
};
