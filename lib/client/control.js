'use strict';

// Application control as programs use it: what there is, as objects, and launches as promises.

const { BrivonControlAdapter, _setLibraryPath } = require('../index');
const { checkOptions, checkText, errorWithCode } = require('./checks');
const { Wait } = require('./wait');

let adapter;

// The adapter of this process, which a folder that is given replaces.
function control(folder) {
    if (folder !== undefined) {
        _setLibraryPath(folder);
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

// The options have been checked.
async function launch(specifier, { focus = true, args = '', folder, signal }) {
    checkText('specifier', specifier);
    signal?.throwIfAborted();
    const library = control(folder);
    // The library calls back in a later turn.
    library.launchApp(specifier, focus, args, (cause, isLaunched) => {
        if (isLaunched) wait.end(() => {});
        else wait.reject(() => notLaunched(library, specifier, cause));
    });
    const wait = new Wait(undefined, { timeout: Infinity, signal });
    return (await wait.outcome)();
}

function notLaunched(library, specifier, cause) {
    let reason = 'the library refused';
    if (cause !== undefined) reason = cause.message;
    else if (!library.isAppInstalled(specifier)) reason = 'it is not installed';
    return errorWithCode('ERR_BRIVONJS_NOT_LAUNCHED', `'${specifier}' was not launched: ${reason}`, cause && { cause });
}

module.exports = { applications, launch };
