'use strict';

// The documentation: its programs run, and its links lead somewhere.

const assert = require('node:assert/strict');
const fs = require('node:fs');
const path = require('node:path');
const { test } = require('node:test');
const { pathToFileURL } = require('node:url');

const { Child, Endpoint, newBus, root, runScript, temporaryFolder } = require('../support/support');

// A program that listens does not end by itself: it is given this time. One that ends itself must have done so by then.
const LISTENING_MS = 1000;
const ENDING_MS = 30_000;

const documents = ['README.md', ...fs.readdirSync(path.join(root, 'docs')).map((name) => path.join('docs', name))]
    .filter((name) => name.endsWith('.md'))
    .map((name) => ({ name, text: fs.readFileSync(path.join(root, name), 'utf8').replaceAll('\r\n', '\n') }));

// Every fenced block of JavaScript: { name, where, language, body }.
const programs = documents.flatMap(({ name, text }) =>
    [...text.matchAll(/^```(m?js)\n(.*?)^```$/gms)].map(({ 1: language, 2: body, index }) => {
        return { name, where: `${name}:${text.slice(0, index).split('\n').length}`, language, body };
    }),
);

// Only files inside the package find it by its name.
const folder = temporaryFolder(test, path.join(root, 'build'));

const importing = (file) => `import(${JSON.stringify(pathToFileURL(file).href)})`;

async function assertRuns(script, options) {
    // The child is no part of this test run.
    const env = { BRIVON_BUS: newBus(), NODE_TEST_CONTEXT: undefined };
    const { code, signal, stdout, stderr } = await runScript(script, { env, ...options });
    assert.deepEqual({ code, signal, stderr }, { code: 0, signal: null, stderr: '' }, stdout + stderr);
}

test('every program runs, of the README and of the documents of both interfaces', { concurrency: 4 }, async (t) => {
    for (const document of ['README.md', path.join('docs', 'api.md'), path.join('docs', 'standins.md')])
        assert.ok(programs.some(({ name }) => name === document));
    const run = ({ where, language, body }, index) =>
        t.test(where, () => {
            const file = path.join(folder, `program-${index}.${language}`);
            fs.writeFileSync(file, body);
            const [code, limit] = body.includes('process.exit(') ? [9, ENDING_MS] : [0, LISTENING_MS];
            const exiting = `setTimeout(() => process.exit(${code}), ${limit}).unref()`;
            // What the program has not kept is collected at once, not on some days.
            const running = `${importing(file)}.then(() => { gc(); ${exiting}; });`;
            return assertRuns(running, { execArgv: ['--expose-gc'] });
        });
    await Promise.all(programs.map(run));
});

test('the tests of the example application pass', () =>
    assertRuns(importing(path.join(root, 'examples', 'application.test.js')), { execArgv: ['--test-force-exit'] }));

test('the example program prints what a calendar answers, or says that none does', async (t) => {
    const planner = path.join(root, 'examples', 'planner.js');
    const env = { BRIVON_BUS: newBus() };
    const { code, stdout } = await runScript(importing(planner), { env });
    assert.deepEqual([code, stdout], [1, "no calendar answers: 'calendar' was not launched: it is not installed\n"]);
    const calendar = await Endpoint.join(t, env.BRIVON_BUS, 'calendar', '1');
    await calendar.run(`const { connect } = require(${JSON.stringify(path.join(root, 'lib', 'client'))});
        connect({ appId: 'calendar', appVersion: '1' }).handle('today', () => ({ entries: ['lunch'] })); 0`);
    const asking = new Child(planner, { env });
    assert.deepEqual(await asking.written('stdout', (lines) => lines.length > 0), ["[ 'lunch' ]"]);
    asking.process.kill();
});

test('relative links lead to files', () => {
    for (const { name, text } of documents) {
        const prose = text.replace(/^```.*?^```$/gms, '').replace(/`[^`]*`/g, '');
        for (const [, target] of prose.matchAll(/\]\((?![a-z]+:|#)([^)\s#]+)/gi))
            assert.ok(fs.existsSync(path.join(root, path.dirname(name), target)), `${name} links to ${target}`);
    }
});
