'use strict';

// What a program on this machine would run on, and what is wrong with it, a record each: { subject, ok, detail }.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const { examined, libraries, loadModule, otherLibraries } = require('../libraries');
const { load } = require('../load');
const { modulePath, platform } = require('../locate');

const right = (subject, detail) => ({ subject, ok: true, detail });
const wrong = (subject, detail) => ({ subject, ok: false, detail });

const KINDS = { suite: "the suite's", standins: 'the stand-ins', folder: 'those of a folder' };

// Ends with what keeps it from going on.
function* examine() {
    yield right('platform', `${platform}, Node.js ${process.versions.node}, ${os.type()} ${os.release()}`);
    let subject = 'module';
    try {
        yield right(subject, fs.realpathSync(modulePath()));
        subject = 'libraries';
        const { kind, addon } = libraries();
        yield right(subject, `${KINDS[kind]}, ${chosenBy()}`);
        if (!(yield* examineLibraries())) return;
        subject = 'loading';
        loadModule();
        const others = otherLibraries();
        yield others.length > 0
            ? wrong(subject, `the process has ${others.join(' and ')}`)
            : right(subject, 'the module loads');
        if (kind !== 'standins' || addon === undefined) return;
        subject = 'bus';
        load(addon).messaging('busFolder');
        yield right(subject, busFolder());
    } catch (error) {
        yield wrong(subject, error.message);
    }
}

// Answers whether they are as the module needs them.
function* examineLibraries() {
    const pairs = examined();
    if (pairs.length === 0)
        yield wrong('libraries', 'there is no imports.json beside the module, with the names it needs');
    for (const [file, faults] of pairs) {
        const name = path.basename(file);
        if (faults.length === 0) yield right(name, `${file} has every name that the module needs`);
        else yield* faults.map((fault) => wrong(name, `${file} ${fault}`));
    }
    return pairs.every(([, faults]) => faults.length === 0);
}

function chosenBy() {
    const wanted = process.env.BRIVONJS_LIBRARIES ?? '';
    return wanted === '' ? 'by default' : `by BRIVONJS_LIBRARIES=${wanted}`;
}

// The folder in which the programs on the stand-ins' bus meet.
function busFolder(bus = process.env.BRIVON_BUS || 'default') {
    return process.platform === 'win32'
        ? path.join(process.env.LOCALAPPDATA, 'brivon-bus', bus)
        : path.join('/tmp', `brivon-${process.geteuid()}`, bus);
}

module.exports = { busFolder, examine };
