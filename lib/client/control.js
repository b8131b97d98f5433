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
    library.launchApp(specifier, focus, args, (...results) => wait.end(() => results));
    const wait = new Wait(undefined, { timeout: Infinity, signal });
    const [cause, isLaunched] = (await wait.outcome)();
    if (isLaunched) return;
    const reason = library.isAppInstalled(specifier) ? 'the library refused' : 'it is not installed';
    const message = `'${specifier}' was not launched: ${cause?.message ?? reason}`;
    throw errorWithCode('ERR_BRIVONJS_NOT_LAUNCHED', message, cause && { cause });
}

module.exports = { applications, launch };
