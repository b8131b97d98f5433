'use strict';

// How records are printed: as columns on a terminal, as one line of JSON each to anything else.
//
// A column is a title, the text that it shows of a record, and the most cells that it takes.

const TIME_COLUMN = ['TIME', ({ time }) => time.toTimeString().slice(0, 8)];
const ENDPOINT_COLUMNS = [
    ['APP', ({ appId }) => appId],
    ['VERSION', ({ appVersion }) => appVersion],
    ['ID', ({ id }) => id],
];

const isTable = ({ json }) => process.stdout.isTTY && !json;

// A function that prints records.
function printer(columns, options, lineWidth = () => Infinity) {
    const toLines = isTable(options)
        ? table(columns, lineWidth)
        : (records) => records.map((record) => JSON.stringify(record));
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

module.exports = { ENDPOINT_COLUMNS, isTable, printer, TIME_COLUMN };
