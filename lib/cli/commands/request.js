'use strict';

const { UsageError } = require('../arguments');
const { connect, targetOf, textOf } = require('../bus');
const { isTable } = require('../table');

module.exports = {
    usage: 'NAME [JSON|-] --to TARGET',
    summary: 'asks a program that answers such questions, as those on the client do, and prints the answer',
    joins: true,
    operands: [1, 2],
    options: {
        to: { type: 'string', value: 'TARGET', text: 'APP, APP,VERSION or APP,VERSION,ID' },
        timeout: { type: 'string', value: 'S', text: 'how many seconds to wait for the answer (30)' },
    },

    async run(options, [name, operand], endOnSignals) {
        if (options.to === undefined) throw new UsageError('--to says who is asked');
        const to = targetOf(options.to);
        const body = parse(await textOf(operand));
        const client = connect(options, 'request');
        endOnSignals();
        const answer = await client.request(name, body, { to, timeout: Number(options.timeout ?? 30) * 1000 });
        process.stdout.write(`${JSON.stringify(answer ?? null, null, isTable(options) ? 2 : 0)}\n`);
        return 0;
    },
};

function parse(text) {
    if (text === '') return undefined;
    try {
        return JSON.parse(text);
    } catch {
        throw new UsageError(`'${text}' is no JSON`);
    }
}
