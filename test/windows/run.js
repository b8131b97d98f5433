'use strict';

// Runs the test files under node.exe in Wine, one after another, and adds their counts up: run.js NODE.EXE FILE...
// A process gets a file as its standard output, since Wine's pipes are not enough for the runtime there.

const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const [node, ...files] = process.argv.slice(2);
const wine = process.env.WINE;
const totals = { tests: 0, pass: 0, fail: 0, cancelled: 0, skipped: 0, todo: 0 };
const output = path.join(os.tmpdir(), `brivonjs-wine-${process.pid}`);
let failed = false;

for (const file of files) {
    const stream = fs.openSync(output, 'w');
    const ended = spawnSync(wine, [node, '--test-force-exit', '--test-timeout=300000', file], {
        stdio: ['ignore', stream, 'inherit'],
    });
    fs.closeSync(stream);
    const report = fs.readFileSync(output, 'utf8');
    console.log(
        `# ${file}\n${report.replace(/^ {2}---\n(?: {2}.*\n)*? {2}\.\.\.\n/gm, (details) => (/failureType/.test(details) ? details : ''))}`,
    );
    for (const name of Object.keys(totals))
        totals[name] += Number(report.match(new RegExp(`^# ${name} (\\d+)$`, 'm'))?.[1] ?? 0);
    if (ended.status !== 0 || !/^# tests \d+$/m.test(report)) {
        console.log(`# ${file} ended with ${ended.status ?? ended.signal}`);
        failed = true;
    }
}
fs.unlinkSync(output);

for (const [name, count] of Object.entries(totals)) console.log(`# ${name} ${count}`);
process.exit(failed || totals.fail > 0 || totals.pass === 0 ? 1 : 0);
