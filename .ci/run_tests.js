'use strict';

// Runs test files under the Node.js that runs this, one after another, and then the doctor; without arguments, all of
// them. Its last line says what came of it: node run.js [FILE...]
// A process gets a file as its standard output, since Wine's pipes are not enough for the runtime there.

const { spawnSync } = require('node:child_process');
const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const root = path.join(__dirname, '..');
const output = path.join(os.tmpdir(), `brivonjs-run-${process.pid}`);
// The default reporter is another one in newer releases.
const RUNNING = ['--test-force-exit', '--test-reporter=tap', '--test-timeout=300000'];
const LIMIT_MS = 900000;
const counts = { pass: 0, fail: 0, cancelled: 0, skipped: 0 };

const testsIn = (folder) =>
    fs
        .readdirSync(path.join(root, folder))
        .filter((name) => name.endsWith('.test.js'))
        .map((name) => path.join(folder, name));

// Answers how it has ended, and what it has printed.
function run(...args) {
    const stream = fs.openSync(output, 'w');
    const stdio = ['ignore', stream, 'inherit'];
    const { status, signal } = spawnSync(process.execPath, args, { stdio, timeout: LIMIT_MS, cwd: root });
    fs.closeSync(stream);
    const printed = fs.readFileSync(output, 'utf8');
    fs.unlinkSync(output);
    return { end: status ?? signal, printed };
}

// A test's details are worth their lines where it has failed.
const withoutDetails = (report) =>
    report.replace(/^( *)---\n(?:\1.*\n)*?\1\.\.\.\n/gm, (details) => (/failureType/.test(details) ? details : ''));

function runTests(file) {
    const { end, printed } = run(...RUNNING, file);
    console.log(`# ${file}\n${withoutDetails(printed)}`);
    const found = Object.keys(counts).map((name) => printed.match(new RegExp(`^# ${name} (\\d+)$`, 'm')));
    Object.keys(counts).forEach((name, i) => (counts[name] += Number(found[i]?.[1] ?? 0)));
    const hasFailed =
        found.some((count) => count === null) || (end !== 0 && !/^# (fail|cancelled) [1-9]/m.test(printed));
    if (!hasFailed) return;
    console.log(`# ${file} ended with ${end}`);
    ++counts.fail;
}

function runDoctor() {
    const { end, printed } = run(path.join('lib', 'cli', 'index.js'), 'doctor');
    console.log(`# doctor\n${printed}`);
    ++counts[end === 0 ? 'pass' : 'fail'];
}

const files = process.argv.slice(2);
console.log(`# Node.js ${process.version} on ${os.version()} ${os.release()}`);
if (files.length > 0) {
    files.forEach(runTests);
} else {
    const folders = process.platform === 'win32' ? ['test/js', 'test/windows'] : ['test/js'];
    folders.flatMap(testsIn).forEach(runTests);
    runDoctor();
}
const failed = counts.fail + counts.cancelled;
console.log(`${counts.pass} passed, ${failed} failed, ${counts.skipped} skipped`);
process.exitCode = failed > 0 || counts.pass === 0 ? 1 : 0;
