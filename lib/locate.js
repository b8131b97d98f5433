'use strict';

const path = require('node:path');

// The module's file: the one that BRIVONJS_MODULE names, else this platform's local build.
function modulePath() {
    return (
        process.env.BRIVONJS_MODULE ||
        path.join(__dirname, '..', 'build', `${process.platform}-${process.arch}`, 'BrivonJS.node')
    );
}

// The addon that scripts the stand-ins lies beside the module and the stand-ins themselves.
function standinsPath() {
    return path.join(path.dirname(modulePath()), 'standins.node');
}

module.exports = { modulePath, standinsPath };
