'use strict';

const { join } = require('../bus');
const { printer, TIME_COLUMN } = require('../table');
const { startTimer } = require('../../client/wait');
const { withoutPrefix } = require('../../texts');

const COLUMNS = [
    TIME_COLUMN,
    ['APP', ({ appId = '' }) => appId, 20],
    ['VERSION', ({ appVersion = '' }) => appVersion, 12],
    ['ID', ({ sourceId = '' }) => sourceId, 9],
    ['TYPE', ({ type }) => withoutPrefix(type), 24],
    ['PAYLOAD', ({ payload, error, fault }) => payload ?? `${error}: ${fault}`],
];

// A pattern in which '*' stands for any text.
function matcher(glob = '*') {
    const parts = glob.split('*').map((part) => part.replace(/[\\^$.*+?()[\]{}|]/g, '\\$&'));
    const pattern = new RegExp(`^${parts.join('.*')}$`, 's');
    return (text) => pattern.test(text);
}

module.exports = {
    summary:
        'joins the bus and prints what reaches it, until Ctrl-C: what is sent to everyone or to the application that it ' +
        'joins as, and errors of the bus; not what is sent to one endpoint. To hear what an application is sent, join ' +
        'as that, and as its version where that is named, too: --app-id calendar --app-version 3.0',
    joins: true,
    options: {
        type: { type: 'string', value: 'GLOB', text: "messages of such types only; '*' stands for anything" },
        app: { type: 'string', value: 'GLOB', text: 'messages of such applications only' },
        count: { type: 'string', value: 'N', text: 'ends after so many' },
        timeout: {
            type: 'string',
            value: 'S',
            text: 'ends after so many seconds, with 4 where --count was not reached',
        },
    },

    run(options, operands, endOnSignals) {
        const adapter = join(options, 'monitor');
        endOnSignals();
        const print = printer(COLUMNS, options, () => process.stdout.columns || 80);
        const [isType, isApp] = [matcher(options.type), matcher(options.app)];
        const isFiltered = options.type !== undefined || options.app !== undefined;
        return new Promise((resolve) => {
            let missing = Number(options.count ?? Infinity);
            const tell = (record) => {
                if (missing <= 0) return;
                print([{ time: new Date(), ...record }]);
                if (--missing <= 0) resolve(0);
            };
            adapter.addMessageListener((type, payload, appId, appVersion, sourceId) => {
                if (!isType(withoutPrefix(type)) || !isApp(appId)) return;
                tell({ event: 'message', type, payload, appId, appVersion, sourceId });
            });
            adapter.addErrorListener((type, error, fault) => {
                if (!isFiltered) tell({ event: 'error', type, error, fault });
            });
            if (options.timeout !== undefined)
                startTimer(() => resolve(options.count === undefined ? 0 : 4), options.timeout * 1000);
            process.stderr.write(`brivonjs: listening as ${adapter.getSelfEndpoint()}\n`);
        });
    },
};
