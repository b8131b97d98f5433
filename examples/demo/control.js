'use strict';

// The demo's second half: a folder of real programs, one of which is launched.

const fs = require('node:fs');
const os = require('node:os');
const path = require('node:path');

const { BrivonControlAdapter, _setLibraryPath } = require('../../lib');

const packages = path.join(__dirname, '..', '..', 'node_modules');
const windowsPrograms = {
    '7za-arm64.exe': '7zip-bin/win/arm64/7za.exe',
    '7za-x64.exe': '7zip-bin/win/x64/7za.exe',
    'Shortcut.exe': 'windows-shortcuts/lib/shortcut/Shortcut.exe',
};
const scripts = {
    // Runs until its file is there, ten seconds at the most.
    'wait-for-file': '#!/bin/sh\nfor _ in $(seq 200); do [ -e "$1" ] && break; sleep 0.05; done\n',
    hello: '#!/bin/sh\necho hello\n',
};

function fill(folder) {
    for (const [name, file] of Object.entries(windowsPrograms))
        fs.copyFileSync(path.join(packages, file), path.join(folder, name));
    for (const [name, text] of Object.entries(scripts))
        fs.writeFileSync(path.join(folder, name), text, { mode: 0o755 });
}

async function control({ say, chapter, until }) {
    const folder = fs.mkdtempSync(path.join(os.tmpdir(), 'brivonjs-demo-'));
    try {
        fill(folder);
        _setLibraryPath(folder);
        const adapter = new BrivonControlAdapter();
        const show = (name) => {
            const version = adapter.getAppVersion(name);
            const installed = version === null ? 'installed' : `installed in version ${version}`;
            const running = adapter.isAppRunning(name) ? `, running as process ${adapter.getProcessId(name)}` : '';
            say(`  ${name}: ${adapter.isAppInstalled(name) ? installed : 'not installed'}${running}`);
        };

        chapter(`The programs of ${folder}`);
        const specifiers = adapter.getSpecifiers();
        [...specifiers, '../escape'].forEach(show);
        const expected = [...Object.keys(windowsPrograms), ...Object.keys(scripts)].sort();
        if (specifiers.join() !== expected.join()) throw new Error(`expected ${expected}`);
        if (adapter.getAppVersion('7za-x64.exe') !== '21.07') throw new Error('7za-x64.exe has another version');

        chapter('One of them is launched, and ends once its file is there');
        const file = path.join(folder, 'that file');
        const launch = (name, line) =>
            new Promise((resolve) => adapter.launchApp(name, true, line, (...outcome) => resolve(outcome)));
        const [error, launched] = await launch('wait-for-file', `'${file}'`);
        if (error !== undefined || launched !== true) throw new Error('wait-for-file was not launched');
        await until('wait-for-file to be seen', () => adapter.isAppRunning('wait-for-file'));
        show('wait-for-file');
        fs.writeFileSync(file, '');
        await until('wait-for-file to end', () => !adapter.isAppRunning('wait-for-file'));
        show('wait-for-file');
        if ((await launch('missing', '')).join() !== ',false') throw new Error('a missing program was launched');
    } finally {
        fs.rmSync(folder, { recursive: true });
    }
}

module.exports = { control };
