'use strict';

// What may stand on the command line, and the texts that say so.

const { parseArgs } = require('node:util');

const { version } = require('../../package.json');

class UsageError extends Error {}

const COMMANDS = ['endpoints', 'monitor', 'send', 'request', 'apps', 'launch', 'doctor'];
const load = (name) => ({ name, ...require(`./commands/${name}`) });

// Options of every command.
const COMMON = {
    json: { type: 'boolean', text: 'prints JSON lines on a terminal, too' },
    help: { type: 'boolean', short: 'h', text: 'prints this text' },
    version: { type: 'boolean', text: 'prints the version of this package' },
};
// Options of those that join the bus.
const BUS = {
    bus: {
        type: 'string',
        value: 'NAME',
        text: "the bus, instead of the one that BRIVON_BUS names: 1 to 32 letters, digits, '-', '_' or '.', not beginning with '.'",
    },
    'app-id': { type: 'string', value: 'ID', text: "the tool's own application id (brivonjs-COMMAND)" },
    'app-version': { type: 'string', value: 'V', text: `the tool's own application version (${version})` },
};

// What a value has to be that is one.
const NUMBERS = {
    N: { isRight: (number) => Number.isInteger(number) && number > 0, words: 'a positive number without a fraction' },
    S: { isRight: (number) => number > 0, words: 'a positive number' },
};

const END = `
A terminal gets columns, with control characters escaped, ids shortened, and as
much as fits. A file or a pipe gets JSON lines, which hold everything.

Exit codes:
  0    it was done, also when the reader of a pipe has gone
  1    a failure: no bus, no launch, or something that doctor has found
  2    a usage that is not this one
  3    nobody on the bus is the target, or it cannot be reached
  4    the time is over
  5    the other side has answered with an error
  130  Ctrl-C; 128 and its number for any other signal
`;

function parse(argv) {
    const [name, ...rest] = argv;
    if (name === undefined) throw new UsageError('which command?');
    if (name.startsWith('-')) {
        const { values: options } = parseOptions(COMMON, argv);
        if (options.help || options.version) return { options };
        throw new UsageError('the command comes first');
    }
    if (!COMMANDS.includes(name)) throw new UsageError(`there is no command '${name}'`);
    const command = load(name);
    const { values: options, positionals: operands } = parseOptions(optionsOf(command), rest);
    if (options.help || options.version) return { command, options };
    const [least, most] = command.operands ?? [0, 0];
    if (operands.length < least) throw new UsageError(`${name} needs more than that`);
    if (operands.length > most) throw new UsageError(`'${operands[most]}' is one argument too many`);
    // The library would end the process.
    if (options.bus !== undefined && !/^(?!\.)[\w.-]{1,32}$/.test(options.bus))
        throw new UsageError(`'${options.bus}' is no name of a bus`);
    for (const [key, { value }] of Object.entries(optionsOf(command))) {
        const { isRight, words } = NUMBERS[value] ?? {};
        if (isRight !== undefined && options[key] !== undefined && !isRight(Number(options[key])))
            throw new UsageError(`--${key} takes ${words}`);
    }
    return { command, options, operands };
}

function parseOptions(options, args) {
    try {
        const known = Object.entries(options).map(([name, { type, short }]) => [
            name,
            short ? { type, short } : { type },
        ]);
        return parseArgs({ args, options: Object.fromEntries(known), allowPositionals: true });
    } catch (error) {
        throw new UsageError(error.message.replaceAll('\n', ' ').replace(/\.$/, ''));
    }
}

const optionsOf = ({ options = {}, joins }) => ({ ...options, ...(joins && BUS), ...COMMON });

// Of one command, or of all.
function helpOf(command) {
    const commands = command ? [command] : COMMANDS.map(load);
    const usages = commands.map(({ name, usage = '' }) => `brivonjs ${name} ${usage}`.trimEnd() + ' [OPTION...]');
    const options = command ? optionsOf(command) : { ...BUS, ...COMMON };
    const rows = [
        ...commands.map(({ name, summary }) => row(name, summary)),
        '',
        ...Object.entries(options).map(([name, { short, value, text }]) =>
            row(`${short ? `-${short}, ` : ''}--${name}${value ? ` ${value}` : ''}`, text),
        ),
        ...(command ? [] : [row('COMMAND --help', 'says what else a command takes')]),
    ];
    return `Usage: ${usages.join('\n       ')}\n\n${rows.join('\n')}\n${END}`;
}

// A term and its text, folded to 80 columns.
function row(term, text) {
    const lines = text.match(/\S.{0,57}\S(?=\s|$)|\S+/g);
    return lines.map((line, i) => `  ${(i === 0 ? term : '').padEnd(17)}  ${line}`).join('\n');
}

module.exports = { helpOf, parse, UsageError };
