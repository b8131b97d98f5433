'use strict';

// Application control as programs use it: what there is, as objects.

const { BrivonControlAdapter, _setLibraryPath } = require('../index');
const { checkOptions } = require('./checks');

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

module.exports = { applications, control };
