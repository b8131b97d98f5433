#!/usr/bin/env node
'use strict';

// The tools of this package: who is on the bus, and what is said to a program there. Each is a program on the bus itself
// and prints records: as columns on a terminal, as one line of JSON each to anything else.

const fs = require('node:fs');
const os = require('node:os');
const { parseArgs } = require('node:util');

const { load } = require('./load');
const { standinsFile } = require('./locate');
const { version } = require('../package.json');

const HELP = `Usage: brivonjs endpoints [--follow] [OPTION...]
       brivonjs monitor [OPTION...]

  endpoints         prints the other programs on the bus
  monitor           joins the bus and prints the messages and errors that reach it, until Ctrl-C

  -f, --follow      with endpoints: goes on and prints who joins and who leaves, until Ctrl-C
  --json            prints JSON lines on a terminal, too
  --bus NAME        the bus to join, instead of the one that BRIVON_BUS names: 1 to 32 letters, digits, '-', '_' or '.',
                    not beginning with '.'
  --app-id ID       the tool's own application id on the bus (brivonjs-endpoints, brivonjs-monitor)
  --app-version V   the tool's own application version on the bus (${version})
  -h, --help        prints this text
  --version         prints the version of this package

A terminal gets columns, one line for each message: control characters escaped, ids shortened, types without the bus's
prefix, and as much of the payload as fits. A file or a pipe gets JSON lines, which hold everything.

Exit codes: 0 for success, also when the reader of a pipe has gone; 1 for a failure; 2 for a usage that is not this one.
Ctrl-C takes the tool off the bus and ends it with 130; other signals that end it, with 128 and their number.
`;

const OPTIONS = {
    follow: { type: 'boolean', short: 'f' },
    json: { type: 'boolean' },
    bus: { type: 'string' },
    'app-id': { type: 'string' },
    'app-version': { type: 'string' },
    help: { type: 'boolean', short: 'h' },
    version: { type: 'boolean' },
};

const COMMANDS = { endpoints, monitor };
const POLL_MS = 200;
const SUITE_TYPE_PREFIX = 'brivon.SuiteMessage.';

// Kept for as long as the process lives: a collected adapter takes its listeners along.
let adapter;

process.stdout.on('error', (error) => {
    if (error.code !== 'EPIPE') process.stderr.write(`brivonjs: ${error.message}\n`);
    process.exit(error.code === 'EPIPE' ? 0 : 1);
});

// A process that has not listened ends by itself, once everything is written.
function main() {
    let usage;
    try {
        usage = parse();
    } catch (error) {
        process.stderr.write(`brivonjs: ${error.message}\n\n${HELP}`);
        process.exitCode = 2;
        return;
    }
    const { command, options } = usage;
    if (options.help) process.stdout.write(HELP);
    else if (options.version) process.stdout.write(`${version}\n`);
    else run(command, options);
}

function parse() {
    const { values: options, positionals } = parseArgs({ options: OPTIONS, allowPositionals: true });
    const [command, ...rest] = positionals;
    if (options.help || options.version) return { options };
    if (command === undefined) throw new Error('which command?');
    if (!Object.hasOwn(COMMANDS, command)) throw new Error(`there is no command '${command}'`);
    if (rest.length > 0) throw new Error(`'${rest[0]}' is one argument too many`);
    if (options.follow && command !== 'endpoints') throw new Error('--follow goes with endpoints');
    // A wrong usage, and not only a bus that cannot be joined.
    if (options.bus !== undefined && !/^(?!\.)[\w.-]{1,32}$/.test(options.bus))
        throw new Error(`'${options.bus}' is no name of a bus`);
    return { command, options };
}

function run(command, options) {
    try {
        if (options.bus !== undefined) process.env.BRIVON_BUS = options.bus;
        checkBus();
        const { BrivonAdapter } = require('./index');
        adapter = new BrivonAdapter(options['app-id'] ?? `brivonjs-${command}`, options['app-version'] ?? version);
    } catch (error) {
        process.stderr.write(`brivonjs: ${error.message}\n`);
        process.exitCode = 1;
        return;
    }
    // Not before: joining blocks, and a signal during it is to end the process at once.
    for (const signal of ['SIGHUP', 'SIGINT', 'SIGTERM'])
        process.on(signal, () => process.exit(128 + os.constants.signals[signal]));
    COMMANDS[command](options);
}

// Throws where the stand-ins cannot open the folder of their bus: an adapter would end the process with an assertion.
function checkBus() {
    const standins = standinsFile();
    if (fs.existsSync(standins)) load(standins).checkBus();
}

// ---- The commands

// A column is a title, the text that it shows of a record, and the most cells that it takes.
const TIME_COLUMN = ['TIME', ({ time }) => time.toTimeString().slice(0, 8)];
const ENDPOINT_COLUMNS = [
    ['APP', ({ appId }) => appId],
    ['VERSION', ({ appVersion }) => appVersion],
    ['ID', ({ id }) => id],
];
const MESSAGE_COLUMNS = [
    TIME_COLUMN,
    ['APP', ({ appId = '' }) => appId, 20],
    ['VERSION', ({ appVersion = '' }) => appVersion, 12],
    ['ID', ({ sourceId = '' }) => sourceId, 9],
    ['TYPE', ({ type }) => (type.startsWith(SUITE_TYPE_PREFIX) ? type.slice(SUITE_TYPE_PREFIX.length) : type), 24],
    ['PAYLOAD', ({ payload, error, fault }) => payload ?? `${error}: ${fault}`],
];

function endpoints(options) {
    if (!options.follow) {
        printer(ENDPOINT_COLUMNS, options)(adapter.getEndpoints().map(toFields));
        return;
    }
    const print = printer([TIME_COLUMN, ['EVENT', ({ event }) => event], ...ENDPOINT_COLUMNS], options);
    const happened = (event, texts) => texts.map((text) => ({ time: new Date(), event, ...toFields(text) }));
    let known = adapter.getEndpoints();
    print(happened('present', known));
    // The bus tells programs of no changes; who comes and goes between two looks is missed.
    setInterval(() => {
        const now = adapter.getEndpoints();
        const left = known.filter((text) => !now.includes(text));
        const joined = now.filter((text) => !known.includes(text));
        known = now;
        print([...happened('left', left), ...happened('joined', joined)]);
    }, POLL_MS);
}

function monitor(options) {
    const print = printer(MESSAGE_COLUMNS, options, () => process.stdout.columns || 80);
    adapter.addMessageListener((type, payload, appId, appVersion, sourceId) =>
        print([{ time: new Date(), event: 'message', type, payload, appId, appVersion, sourceId }]),
    );
    adapter.addErrorListener((type, error, fault) => print([{ time: new Date(), event: 'error', type, error, fault }]));
    process.stderr.write(`brivonjs: listening as ${adapter.getSelfEndpoint()}\n`);
}

// The parts of {appId,appVersion,id}, in which nothing is quoted. An id has no comma; with more than two of them in the
// text it is open where the application id ends, and the version gets what follows the first.
function toFields(endpoint) {
    const [, appId, appVersion, id] = endpoint.match(/^\{(.*?),(.*),(.*)\}$/s);
    return { appId, appVersion, id };
}

// ---- What is printed

// A function that prints records.
function printer(columns, { json }, lineWidth = () => Infinity) {
    const isTable = process.stdout.isTTY && !json;
    const toLines = isTable ? table(columns, lineWidth) : (records) => records.map((record) => JSON.stringify(record));
    return (records) => {
        if (records.length > 0) process.stdout.write(toLines(records).join('\n') + '\n');
    };
}

// A function from records to aligned lines, the titles before the first ones. Columns grow with what they hold, and keep
// the width that they have reached.
function table(columns, lineWidth) {
    const widths = columns.map(() => 0);
    let rows = [columns.map(([title]) => title)];
    return (records) => {
        const width = lineWidth();
        for (const record of records)
            rows.push(columns.map(([, show, limit = Infinity]) => fit(show(record), Math.min(limit, width))));
        // All but the last cell, which needs no padding.
        for (const row of rows) row.slice(0, -1).forEach((cell, i) => (widths[i] = Math.max(widths[i], cellsOf(cell))));
        const pad = (cell, i) => cell + ' '.repeat(Math.max(0, widths[i] - cellsOf(cell)));
        const lines = rows.map((row) => fit(row.map(pad).join('  '), width));
        rows = [];
        return lines;
    };
}

// What would move the cursor, reorder the line or hide in it; and what takes two cells of a terminal, nearly.
const CONTROL = /(?!\u200d)[\p{Cc}\p{Cf}\p{Zl}\p{Zp}]/u;
const WIDE =
    /[\p{Emoji_Presentation}\u1100-\u115f\u2e80-\u303e\u3041-\ua4cf\uac00-\ud7a3\uf900-\ufaff\ufe30-\ufe6f\uff00-\uff60\uffe0-\uffe6\u{20000}-\u{3fffd}]/u;
const ESCAPES = { '\n': '\\n', '\r': '\\r', '\t': '\\t' };
const escaped = (character) => ESCAPES[character] ?? `\\u{${character.codePointAt(0).toString(16)}}`;
const cellsOf = (text) => [...text].reduce((cells, character) => cells + (WIDE.test(character) ? 2 : 1), 0);

// The text with control characters escaped, cut to a width. Reads no more of it than is shown.
function fit(text, width) {
    const glyphs = [];
    let cells = 0;
    for (const character of text) {
        const glyph = CONTROL.test(character) ? escaped(character) : character;
        glyphs.push(glyph);
        cells += cellsOf(glyph);
        if (cells <= width) continue;
        while (cells > width - 1) cells -= cellsOf(glyphs.pop());
        return `${glyphs.join('')}…`;
    }
    return glyphs.join('');
}

main();
