'use strict';

// Application control as programs use it: what there is, as objects, and launches as promises.

const { BrivonControlAdapter, _setLibraryPath } = require('../index');
const { checked, coded, invalid, signalOf, text } = require('./values');

let adapter;

// The adapter of this process, which a folder that is given replaces.
function control(folder) {
    if (folder !== undefined) {
        _setLibraryPath(text('folder', folder));
        adapter = new BrivonControlAdapter();
    }
    return (adapter ??= new BrivonControlAdapter());
}

function applications(options = {}) {
    const { folder } = checked(options, ['folder']);
    const library = control(folder);
    return library.getSpecifiers().map((specifier) => ({
        specifier,
        isInstalled: library.isAppInstalled(specifier),
        path: library.getAppPath(specifier),
        version: library.getAppVersion(specifier),
        isRunning: library.isAppRunning(specifier),
        processId: library.getProcessId(specifier),
    }));
}

async function launch(specifier, options = {}) {
    const { focus = true, args = '', folder } = checked(options, ['focus', 'args', 'folder', 'signal']);
    const signal = signalOf(options);
    if (typeof focus !== 'boolean') throw invalid('focus must be a boolean');
    const [target, line] = [text('specifier', specifier), text('args', args)];
    signal?.throwIfAborted();
    const library = control(folder);
    await new Promise((resolve, reject) => {
        const abort = () => reject(signal.reason);
        signal?.addEventListener('abort', abort);
        library.launchApp(target, focus, line, (error, isLaunched) => {
            signal?.removeEventListener('abort', abort);
            if (isLaunched) resolve();
            else reject(coded('ERR_BRIVONJS_NOT_LAUNCHED', `'${target}' was not launched`, error && { cause: error }));
        });
    });
}

module.exports = { applications, launch };
