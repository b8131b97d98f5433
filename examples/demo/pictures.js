'use strict';

// Draws docs/demo.svg and docs/monitor.svg: what the demo and a monitor write to a terminal of 80 columns.

const { fork, spawn } = require('node:child_process');
const fs = require('node:fs');
const path = require('node:path');

const root = path.join(__dirname, '..', '..');
const env = { ...process.env, BRIVON_BUS: `pictures-${process.pid}` };

// Resolves to the lines that a command of Node.js writes to a terminal. What it has written is looked at each time.
async function onTerminal(command, look = () => {}) {
    const script = [
        '--quiet',
        '--return',
        '--command',
        `stty cols 80; exec '${process.execPath}' ${command}`,
        '/dev/null',
    ];
    const terminal = spawn('script', script, { cwd: root, env, stdio: ['pipe', 'pipe', 'inherit'] });
    const exited = new Promise((resolve) => terminal.on('exit', resolve));
    let text = '';
    for await (const chunk of terminal.stdout.setEncoding('utf8')) look((text += chunk));
    if ((await exited) !== 0) throw new Error(`${command} has failed:\n${text}`);
    return text.trim().split(/\r?\n/);
}

// What programs say on the bus of the monitor, which does not hear the answer to notes alone.
const sayings = [
    ['calendar', 'holiday', '{"day":"Monday"}'],
    ['notes', 'hello', '{"from":"notes"}'],
    ['notes', 'meeting', 'The meeting starts at nine, bring your notes.'],
    ['calendar', 'taken', 'For notes alone.', 'notes'],
    ['calendar', 'meeting', 'Die Besprechung beginnt um neun.'],
    ['notes', 'list', '- milk\n- bread'],
    ['notes', 'ping', 'To the monitor alone.', 'brivonjs-monitor'],
    ['calendar', 'week', JSON.stringify({ days: ['Monday', 'Tuesday', 'Wednesday', 'Thursday', 'Friday'] })],
];

async function talk() {
    const programs = {};
    const told = (program, expected) =>
        new Promise((resolve) => program.on('message', ({ event }) => event === expected && resolve()));
    for (const [appId, version] of Object.entries({ notes: '2.1', calendar: '3.0' })) {
        programs[appId] = fork(path.join(__dirname, 'participant.js'), [appId, version, ''], { env });
        await told(programs[appId], 'joined');
    }
    for (const [id, [appId, ...args]] of sayings.entries()) {
        programs[appId].send({ id, method: 'sendMessage', args });
        await told(programs[appId], 'answer');
    }
    for (const program of Object.values(programs)) program.disconnect(); // which ends it
}

// Dark on any page.
function picture(name, title, lines) {
    const escape = (text) => text.replace(/[&<>]/g, (character) => `&#${character.charCodeAt(0)};`);
    const row = (line, i) => `<text x="24" y="${38 + i * 20}"${i === 0 ? ' class="typed"' : ''}>${escape(line)}</text>`;
    const height = 42 + lines.length * 20;
    const svg = `<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 736 ${height}" role="img">
<title>${title}</title>
<style>
text { font: 14px ui-monospace, Menlo, Consolas, "DejaVu Sans Mono", monospace; fill: #e6edf3; white-space: pre }
.typed { fill: #7ee787 } rect { fill: #0d1117; stroke: #3d444d }
</style>
<rect x="0.5" y="0.5" width="735" height="${height - 1}" rx="10"/>
${lines.map(row).join('\n')}
</svg>
`;
    fs.writeFileSync(path.join(root, 'docs', name), svg);
}

async function main() {
    const demo = await onTerminal('examples/demo.js');
    const half = demo.findIndex((line) => line.startsWith('The programs of'));
    picture('demo.svg', 'Four programs of the demo talk', ['$ node examples/demo.js', ...demo.slice(0, half - 1)]);

    let talking;
    const count = sayings.length - 1;
    const monitor = await onTerminal(`lib/cli/index.js monitor --count ${count}`, (text) => {
        if (text.includes('listening as')) talking ??= talk();
    });
    await talking;
    const typed = `$ npx brivonjs monitor --count ${count}`;
    picture('monitor.svg', 'A monitor prints what is said on the bus', [typed, ...monitor]);
}

main();
