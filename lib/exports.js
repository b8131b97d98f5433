'use strict';

// What is wrong with a library, seen without loading it: its kind, its processor, and the names that it exports, read
// from the file, of which nothing is believed.

const fs = require('node:fs');

const LARGEST_FILE = 1 << 28;
const LONGEST_NAME = 4096; // of those that compilers make
const MOST_NAMES = 1 << 20;

class Fault extends Error {}

// The faults of a library from which a module needs these names, a line each.
function faultsOf(file, needed, platform = process.platform) {
    try {
        const missing = new Set(needed);
        for (const name of (platform === 'win32' ? namesOfPe : namesOfElf)(contentsOf(file))) missing.delete(name);
        return [...missing].map((name) => `lacks ${name}`);
    } catch (error) {
        if (error instanceof Fault) return [error.message];
        if (error instanceof RangeError) return ['is damaged: its table of names leads out of the file'];
        return [`cannot be read: ${error.message}`];
    }
}

function contentsOf(file) {
    const status = fs.statSync(file, { throwIfNoEntry: false });
    if (status === undefined) throw new Fault('is not there');
    if (!status.isFile() || status.size > LARGEST_FILE) throw new Fault('is no library');
    return fs.readFileSync(file);
}

// ---- Windows: a portable executable

const PE = { HEADER: 0x3c, X64: 0x8664, IS_LIBRARY: 0x2000, IS_64_BIT: 0x20b, MOST_SECTIONS: 96 };

function* namesOfPe(bytes) {
    if (bytes.length < 64 || textAt(bytes, 0, 2) !== 'MZ') throw new Fault('is no library for Windows');
    const header = bytes.readUInt32LE(PE.HEADER);
    if (textAt(bytes, header, 4) !== 'PE\0\0') throw new Fault('is no library for Windows');
    checkProcessor(bytes.readUInt16LE(header + 4), PE.X64);
    if ((bytes.readUInt16LE(header + 22) & PE.IS_LIBRARY) === 0) throw new Fault('is a program and no library');
    const optional = header + 24;
    if (bytes.readUInt16LE(optional) !== PE.IS_64_BIT) throw new Fault('is no library for Windows');

    const sections = sectionsOfPe(bytes, header);
    const offsetOf = (address) => {
        const inside = ({ start, size }) => address >= start && address - start < size;
        const { start, offset } = sections.find(inside) ?? raise(new RangeError());
        return address - start + offset;
    };
    const directories = bytes.readUInt32LE(optional + 108);
    const exports = directories > 0 ? bytes.readUInt32LE(optional + 112) : 0;
    if (exports === 0) return;
    const table = offsetOf(exports);
    const count = bytes.readUInt32LE(table + 24);
    if (count === 0) return;
    const pointers = offsetOf(bytes.readUInt32LE(table + 32));
    checkCount(count);
    for (let i = 0; i < count; ++i) yield nameAt(bytes, offsetOf(bytes.readUInt32LE(pointers + 4 * i)));
}

// Where the parts of the file lie in memory, the headers first.
function sectionsOfPe(bytes, header) {
    const first = header + 24 + bytes.readUInt16LE(header + 20);
    const sections = [{ start: 0, size: bytes.readUInt32LE(header + 24 + 60), offset: 0 }];
    const count = Math.min(bytes.readUInt16LE(header + 6), PE.MOST_SECTIONS);
    for (let i = 0; i < count; ++i) {
        const [start, size, offset] = [12, 16, 20].map((field) => bytes.readUInt32LE(first + 40 * i + field));
        sections.push({ start, size, offset });
    }
    return sections;
}

// ---- Linux: an ELF file

const ELF = { SHARED: 3, DYNAMIC_SYMBOLS: 11, EXPORTED: [1, 2, 10] }; // global, weak and unique
const ELF_PROCESSORS = { x64: 62, arm64: 183 };

function* namesOfElf(bytes) {
    // 64 bits, the least significant byte first.
    if (textAt(bytes, 0, 6) !== '\x7fELF\x02\x01') throw new Fault('is no library for 64-bit Linux');
    checkProcessor(bytes.readUInt16LE(18), ELF_PROCESSORS[process.arch]);
    if (bytes.readUInt16LE(16) !== ELF.SHARED) throw new Fault('is no library');

    const at = (offset) => Number(bytes.readBigUInt64LE(offset));
    const section = (index) => at(40) + index * bytes.readUInt16LE(58);
    const sections = Array.from({ length: bytes.readUInt16LE(60) }, (_, i) => section(i));
    const table = sections.find((start) => bytes.readUInt32LE(start + 4) === ELF.DYNAMIC_SYMBOLS);
    if (table === undefined) return;
    const [symbols, count] = [at(table + 24), at(table + 32) / 24];
    const strings = at(section(bytes.readUInt32LE(table + 40)) + 24);
    checkCount(count);
    for (let i = 0; i < count; ++i) {
        const symbol = symbols + 24 * i;
        const isDefined = bytes.readUInt16LE(symbol + 6) !== 0;
        if (isDefined && ELF.EXPORTED.includes(bytes[symbol + 4] >> 4))
            yield nameAt(bytes, strings + bytes.readUInt32LE(symbol));
    }
}

// ---- Both

function checkProcessor(found, expected) {
    if (found !== expected) throw new Fault(`is for another processor (0x${found.toString(16)})`);
}

function checkCount(count) {
    if (count > MOST_NAMES) throw new RangeError();
}

const textAt = (bytes, start, length) => bytes.toString('latin1', start, start + length);

function nameAt(bytes, start) {
    const length = bytes.subarray(start, start + LONGEST_NAME).indexOf(0);
    if (length < 0) throw new RangeError();
    return textAt(bytes, start, length);
}

function raise(error) {
    throw error;
}

module.exports = { faultsOf };
