'use strict';

// How tools get on the bus, and whom they mean.

const { libraries } = require('../libraries');
const { load } = require('../load');
const { version } = require('../../package.json');
const { UsageError } = require('./arguments');

// Kept for as long as the process lives: a collected adapter takes its listeners along.
let adapter;

const nameOf = (options, command) => [options['app-id'] ?? `brivonjs-${command}`, options['app-version'] ?? version];

// Throws where the stand-ins cannot open the folder of their bus: an adapter would end the process with an assertion.
function checkBus() {
    const { addon } = libraries();
    if (addon !== undefined) load(addon).messaging('busFolder');
}

function join(options, command) {
    const { BrivonAdapter } = require('../index');
    checkBus();
    return (adapter = new BrivonAdapter(...nameOf(options, command)));
}

function connect(options, command) {
    const client = require('../client');
    checkBus();
    const [appId, appVersion] = nameOf(options, command);
    return client.connect({ appId, appVersion });
}

// 'APP', 'APP,VERSION' or 'APP,VERSION,ID', which may stand in braces as endpoints do.
function targetOf(text) {
    const [appId, appVersion, id, ...rest] = text.replace(/^\{(.*)\}$/s, '$1').split(',');
    if (appId === '' || rest.length > 0) throw new UsageError(`'${text}' is no APP, APP,VERSION or APP,VERSION,ID`);
    return { appId, ...(appVersion && { appVersion }), ...(id && { id }) };
}

// An operand, or what is read from standard input where it is '-'.
async function textOf(operand = '') {
    if (operand !== '-') return operand;
    process.stdin.setEncoding('utf8');
    return (await process.stdin.toArray()).join('');
}

module.exports = { connect, join, targetOf, textOf };
