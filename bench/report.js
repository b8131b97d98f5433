'use strict';

// What a run has measured: a table of all rows, and ten of them in the documentation, with a picture.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const digits = { ns: 0, us: 1, 'k/s': 0, MiB: 1 };
const inUnit = ({ median }, unit) => `${median.toFixed(digits[unit])} ${unit}`;
const isMemory = ({ unit }) => unit === 'MiB';
// A goal judges the figure as it is printed.
const figureOf = ({ ratio }) => ratio.median.toFixed(2);
const isMissed = (row) => row.goal !== undefined && !row.goal.isMet(Number(figureOf(row)));
const withUnit = (figure, row) => figure + (isMemory(row) ? ' MiB' : ' ×');
const goalOf = (row) =>
    row.goal === undefined ? '' : `${row.goal.sign} ${withUnit(row.goal.limit, row)}${isMissed(row) ? ', missed' : ''}`;

// The lines of a table, padded as Prettier would; all columns but the first two are numbers.
function tableOf(rows) {
    const lines = rows.map((row) => [
        row.what,
        row.peer,
        withUnit(figureOf(row), row),
        row.ratio.spread === undefined ? '' : `${Math.round(row.ratio.spread * 100)} %`,
        goalOf(row),
        inUnit(row.module, row.unit),
        inUnit(row.other, row.unit),
    ]);
    lines.unshift(['what', 'against', 'figure', 'spread', 'goal', 'BrivonJS', 'the other']);
    const widths = lines[0].map((_, column) => Math.max(...lines.map((line) => line[column].length)));
    const rule = widths.map((width, column) => (column < 2 ? '-'.repeat(width) : `${'-'.repeat(width - 1)}:`));
    lines.splice(1, 0, rule);
    const pad = (cell, column) => (column < 2 ? cell.padEnd(widths[column]) : cell.padStart(widths[column]));
    return lines.map((line) => `| ${line.map(pad).join(' | ')} |`);
}

// ---- The picture

const ten = [
    'bus, one way 100 B / zeromq.js',
    'bus, one way 100 B / net socket',
    'bus, one way 4 KiB / zeromq.js',
    'bus, 16 processes, 100 B / ',
    'sendMessage, 2 arguments, 20 B / ',
    'incoming message, 20 B / ',
    'bus, round trip 100 B p50 / zeromq.js',
    'bus, round trip 100 B p99 / zeromq.js',
    'bus, memory, fifth million / ',
    'bus, memory, receiver stopped / ',
];

const nameOf = (row) => `${row.what} / ${row.peer}`;

const panels = {
    'Messages a second, by those of the other: longer is better': ({ unit }) => unit === 'k/s',
    'Time, by that of the other: shorter is better': ({ unit }) => unit === 'ns' || unit === 'us',
    'Growth of memory, by what is allowed: shorter is better': isMemory,
};

const style = `
text { font: 13px system-ui, "Segoe UI", "DejaVu Sans", sans-serif; fill: #1f2328 } .title { font-size: 20px }
.title, .heading, .figure { font-weight: 600 } .small { font-size: 12px; fill: #59636e } .paper { fill: #ffffff }
.bar { fill: #0969da } .missed { fill: #bc4c00 } .grid { stroke: #d8dee4 } .goal { stroke: #1f2328; stroke-width: 2.5 }
@media (prefers-color-scheme: dark) {
text { fill: #e6edf3 } .small { fill: #9198a1 } .paper { fill: #0d1117 } .bar { fill: #4493f8 } .missed { fill: #db6d28 }
.grid { stroke: #30363d } .goal { stroke: #e6edf3 }
}`;

// Bars between their names on the left and their figures on the right: no text is ever in the way of another.
function pictureOf(rows, caption) {
    const [left, right, width] = [330, 660, 940];
    const body = [];
    const text = (x, y, words, kind = '', anchor = 'start') =>
        body.push(`<text x="${x}" y="${y}" class="${kind}" text-anchor="${anchor}">${words}</text>`);
    const line = (x, top, bottom, kind) =>
        body.push(`<line x1="${x}" x2="${x}" y1="${top}" y2="${bottom}" class="${kind}"/>`);
    text(24, 36, 'BrivonJS, measured', 'title');
    text(24, 58, caption, 'small');
    text(24, 76, 'The line across a bar is its goal.', 'small');
    let y = 112;
    for (const [title, isShown] of Object.entries(panels)) {
        const shown = rows.filter(isShown);
        const share = (row, figure) => (isMemory(row) ? figure / row.goal.limit : Number(figure));
        const most = Math.max(...shown.flatMap((row) => [share(row, figureOf(row)), share(row, row.goal.limit)]));
        const step = [0.25, 0.5, 1, 2, 5].find((one) => most / one <= 6) ?? 10;
        const scale = step * Math.ceil(most / step);
        const at = (value) => (left + ((right - left) * Math.max(0.005, value)) / scale).toFixed(1);
        const bottom = y + 36 + shown.length * 28;
        text(24, y, title, 'heading');
        for (let tick = 0; tick <= scale; tick += step) {
            line(at(tick), y + 28, bottom, 'grid');
            text(at(tick), y + 22, isMemory(shown[0]) ? `${tick * 100} %` : `${tick} ×`, 'small', 'middle');
        }
        for (const [index, row] of shown.entries()) {
            const top = y + 36 + index * 28;
            const length = at(share(row, figureOf(row))) - left;
            text(24, top + 14, nameOf(row).replace('bus, ', ''));
            body.push(
                `<rect x="${left}" y="${top}" width="${length.toFixed(1)}" height="18" class="${isMissed(row) ? 'missed' : 'bar'}"/>`,
            );
            line(at(share(row, row.goal.limit)), top - 3, top + 21, 'goal');
            text(right + 20, top + 14, withUnit(figureOf(row), row), 'figure');
            text(width - 24, top + 14, `goal ${goalOf(row)}`, 'small', 'end');
        }
        y = bottom + 40;
    }
    return `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 ${width} ${y - 16}" role="img">
<title>Ten figures of the benchmark, and their goals</title>
<style>${style}
</style>
<rect width="${width}" height="${y - 16}" rx="8" class="paper"/>
${body.join('\n')}
</svg>
`;
}

// ---- The documentation

// Between its markers, where a document has them.
function fill(file, marker, lines) {
    const [before, old, after] = fs.readFileSync(file, 'utf8').split(`<!-- ${marker} -->`);
    const filled = [before, `\n\n${lines.join('\n')}\n\n`, after].join(`<!-- ${marker} -->`);
    if (old !== undefined) fs.writeFileSync(file, filled);
}

function writeReport(root, rows, notes) {
    const lowest = (name) =>
        rows.filter((row) => nameOf(row).startsWith(name)).sort((a, b) => a.ratio.median - b.ratio.median)[0];
    const shown = ten.map(lowest); // of the sixteen processes, against the best of the others
    if (shown.includes(undefined)) throw new Error('a report needs every row');
    const machine = `${os.cpus().length} processors (${os.cpus()[0].model.trim()})`;
    const date = new Date().toISOString().slice(0, 10);
    const caption = `${date}: Node.js ${process.version} on ${os.type()} ${process.arch}, ${machine}`;
    const page = path.join(root, 'docs', 'benchmark.md');
    for (const file of [page, path.join(root, 'README.md')])
        fill(file, 'ten figures', [...tableOf(shown), '', caption]);
    fill(page, 'all figures', [...tableOf(rows), '', ...notes.map((note) => `- ${note}`)]);
    fs.writeFileSync(path.join(root, 'docs', 'benchmark.svg'), pictureOf(shown, caption));
}

module.exports = { tableOf, writeReport };
