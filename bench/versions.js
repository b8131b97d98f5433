'use strict';

// Version lookups in executables of different sizes, through the module that BRIVONJS_MODULE names on the libraries
// beside it: versions.js <sample executable> <rounds>. Prints the time of a lookup by size, as JSON.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const { BrivonControlAdapter, _setLibraryPath } = require('..');
const { inTurns } = require('./measure');

const sizes = [1, 10, 100]; // MiB
const [sample, rounds] = process.argv.slice(2);

// The sample with so many more bytes before its resources, which is where linkers put what else a program has.
function writeExecutable(file, bytes) {
    const image = fs.readFileSync(sample);
    const headers = image.readUInt32LE(60);
    const sections = headers + 24 + image.readUInt16LE(headers + 20);
    const resources = image.indexOf('.rsrc\0', sections, 'latin1');
    const start = image.readUInt32LE(resources + 20);
    image.writeUInt32LE(start + bytes, resources + 20);
    const stream = fs.openSync(file, 'w');
    fs.writeSync(stream, image.subarray(0, start));
    fs.writeSync(stream, image.subarray(start), 0, undefined, start + bytes);
    fs.closeSync(stream);
}

async function measure(folder) {
    for (const size of sizes) writeExecutable(path.join(folder, `${size}.exe`), size * 2 ** 20);
    _setLibraryPath(folder);
    const adapter = new BrivonControlAdapter();
    const runners = sizes.map((size) => {
        const name = `${size}.exe`;
        if (!adapter.getAppVersion(name)) throw new Error(`no version was found in ${size} MiB`);
        return (count) => {
            for (let i = 0; i < count; ++i) adapter.getAppVersion(name);
        };
    });
    // Every lookup leaks what it has read.
    const results = await inTurns(runners, { rounds: Number(rounds), limit: 500 });
    return Object.fromEntries(sizes.map((size, index) => [size, results[index]]));
}

async function main() {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'brivon-bench-'));
    try {
        console.log(JSON.stringify(await measure(folder)));
    } finally {
        fs.rmSync(folder, { recursive: true, force: true });
    }
}

main();
