'use strict';

// Application control as programs use it: what there is, as objects, and launches as promises.

const { BrivonControlAdapter, _setLibraryPath } = require('../index');
const { checkOptions, checkSignal, checkText, errorWithCode, invalid } = require('./checks');
const { outcome } = require('./wait');

let adapter;

// The adapter of this process, which a folder that is given replaces.
function control(folder) {
    if (folder !== undefined) {
        _setLibraryPath(checkText('folder', folder));
        adapter = new BrivonControlAdapter();
    }
    return (adapter ??= new BrivonControlAdapter());
}

function applications(options = {}) {
    const { folder } = checkOptions(options, ['folder']);
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
    const { focus = true, args = '', folder } = checkOptions(options, ['focus', 'args', 'folder', 'signal']);
    const signal = checkSignal(options);
    if (typeof focus !== 'boolean') throw invalid('focus must be a boolean');
    const [target, line] = [checkText('specifier', specifier), checkText('args', args)];
    signal?.throwIfAborted();
    const library = control(folder);
    const launched = new Promise((resolve, reject) => {
        const abort = () => reject(() => signal.reason);
        signal?.addEventListener('abort', abort);
        library.launchApp(target, focus, line, (cause, isLaunched) => {
            signal?.removeEventListener('abort', abort);
            if (isLaunched) resolve();
            else reject(() => notLaunched(library, target, cause));
        });
    });
    await outcome(launched);
}

function notLaunched(library, specifier, cause) {
    let reason = 'the library refused';
    if (cause !== undefined) reason = cause.message;
    else if (!library.isAppInstalled(specifier)) reason = 'it is not installed';
    return errorWithCode('ERR_BRIVONJS_NOT_LAUNCHED', `'${specifier}' was not launched: ${reason}`, cause && { cause });
}

module.exports = { applications, launch };
