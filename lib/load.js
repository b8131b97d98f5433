'use strict';

// Loads the file of a native module, which must be absolute, as require() does.

const { createRequire } = require('node:module');

const { loadError } = require('./locate');

const LONGEST_PAUSE_MS = 64;

// Bundlers leave this require() alone, which a plain one of a computed name they do not. It belongs to the file itself,
// because a bundle that is an ES module has no __filename.
function load(file) {
    const requireFile = createRequire(file);
    for (let pauseMs = 1; ; pauseMs *= 2) {
        try {
            return requireFile(file);
        } catch (error) {
            if (error.code !== 'ERR_DLOPEN_FAILED') throw error;
            if (!isForgotten(error) || pauseMs > LONGEST_PAUSE_MS) throw loadError(file, error);
        }
        Atomics.wait(new Int32Array(new SharedArrayBuffer(4)), 0, 0, pauseMs);
    }
}

// An environment that ends closes the file and forgets it in two steps. A thread that loads the file meanwhile finds it
// open, so that it does not register itself again, and then forgotten. The next try opens it anew.
function isForgotten(error) {
    return error.message.startsWith('Module did not self-register');
}

module.exports = { isForgotten, load };
