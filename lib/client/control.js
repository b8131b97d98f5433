'use strict';

// Application control as programs use it: what there is, as objects, and launches as promises.

const { BrivonControlAdapter, _setLibraryPath } = require('../index');
const { checkSignal, checkText, errorWithCode, invalid } = require('./checks');
const { Wait } = require('./wait');

let adapter;

// The adapter of this process, which a folder that is given replaces.
function control(folder) {
    if (folder !== undefined) {
        _setLibraryPath(checkText('folder', folder));
        adapter = new BrivonControlAdapter();
    }
    return (adapter ??= new BrivonControlAdapter());
}

function applications(folder) {
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

function launch(specifier, { focus = true, args = '', folder, signal }) {
    if (typeof focus !== 'boolean') throw invalid('focus must be a boolean');
    checkText('specifier', specifier);
    checkText('args', args);
    checkSignal({ signal })?.throwIfAborted();
    const library = control(folder);
    const wait = new Wait(Infinity, signal);
    library.launchApp(specifier, focus, args, (cause, isLaunched) => {
        if (isLaunched) wait.resolve();
        else wait.reject(() => notLaunched(library, specifier, cause));
    });
    return wait.promise;
}

function notLaunched(library, specifier, cause) {
    let reason = 'the library refused';
    if (cause !== undefined) reason = cause.message;
    else if (!library.isAppInstalled(specifier)) reason = 'it is not installed';
    return errorWithCode('ERR_BRIVONJS_NOT_LAUNCHED', `'${specifier}' was not launched: ${reason}`, cause && { cause });
}

module.exports = { applications, launch };
