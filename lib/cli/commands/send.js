'use strict';

const { connect, targetOf, textOf } = require('../bus');

module.exports = {
    usage: 'TYPE [PAYLOAD|-]',
    summary: 'sends a message, whose payload may come from standard input (-), to a target or to everyone',
    joins: true,
    operands: [1, 2],
    options: {
        to: { type: 'string', value: 'TARGET', text: 'APP, APP,VERSION or APP,VERSION,ID; everyone if it is left out' },
    },

    async run(options, [type, operand]) {
        const to = options.to === undefined ? undefined : targetOf(options.to);
        const payload = await textOf(operand);
        const client = connect(options, 'send');
        if (to === undefined) client.broadcast(type, payload);
        else client.send(type, payload, { to });
    },
};
