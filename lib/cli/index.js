#!/usr/bin/env node
'use strict';

// The tools of this package. Each is a file of commands/; here are what they share, how they are chosen and how they end.

const os = require('node:os');

const { helpOf, parse, UsageError } = require('./arguments');
const { version } = require('../../package.json');

// What the client's errors mean to whoever has started a tool; all others are 1.
const EXIT_CODES = {
    ERR_BRIVONJS_UNKNOWN_TARGET: 3,
    ERR_BRIVONJS_UNREACHABLE: 3,
    ERR_BRIVONJS_TIMEOUT: 4,
    ERR_BRIVONJS_ANSWER: 5,
};

process.stdout.on('error', (error) => {
    if (error.code !== 'EPIPE') process.stderr.write(`brivonjs: ${error.message}\n`);
    process.exit(error.code === 'EPIPE' ? 0 : 1);
});

// A process that has not listened ends by itself, once everything is written; one that has is ended.
async function main() {
    try {
        const { command, options, operands } = parse(process.argv.slice(2));
        if (options.help) return process.stdout.write(helpOf(command));
        if (options.version) return process.stdout.write(`${version}\n`);
        if (options.bus !== undefined) process.env.BRIVON_BUS = options.bus;
        const code = await command.run(options, operands, endOnSignals);
        if (code !== undefined) end(code);
    } catch (error) {
        const isUsage = error instanceof UsageError || error.code === 'ERR_INVALID_ARG_VALUE';
        process.stderr.write(`brivonjs: ${error.message}${isUsage ? '; see brivonjs --help' : ''}\n`);
        end(isUsage ? 2 : (EXIT_CODES[error.code] ?? 1));
    }
}

function end(code) {
    process.exitCode = code;
    // What has been written to a pipe may not have left yet.
    process.stdout.write('', () => process.exit());
}

// Not before a tool has joined the bus: joining blocks, and a signal during it is to end the process at once.
function endOnSignals() {
    for (const signal of ['SIGHUP', 'SIGINT', 'SIGTERM'])
        process.on(signal, () => process.exit(128 + os.constants.signals[signal]));
}

main();
