// Right uses compile; each wrong one is expected not to.
import brivonjs = require('brivonjs');
import standins = require('brivonjs/standins');
import type { ErrorListener, LaunchCallback, MessageListener } from 'brivonjs';

const { BrivonAdapter, BrivonControlAdapter, _setLibraryPath } = brivonjs;

const adapter = new BrivonAdapter('app', '1');
new BrivonAdapter('app', '1', 'default');
// @ts-expect-error
new BrivonAdapter('app');
// @ts-expect-error
new BrivonAdapter('app', 1);
// @ts-expect-error
BrivonAdapter('app', '1');

const sent: 'Sent' = adapter.sendMessage('type', 'payload');
adapter.sendMessage('type', 'payload', 'app', '1', 'id');
// @ts-expect-error
adapter.sendMessage('type');
// @ts-expect-error
adapter.sendMessage('type', { payload: true });

const hear: MessageListener = (type, payload, appId, appVersion, sourceId) =>
    [type, payload, appId, appVersion, sourceId].map((text) => text.length);
const fail: ErrorListener = (type, error, fault) => `${type}${error}${fault}`;
const nothing: undefined = adapter.addMessageListener(hear);
adapter.addErrorListener(fail);
adapter.addMessageListener(async (type) => type.length);
// @ts-expect-error
adapter.addMessageListener();
// @ts-expect-error
adapter.addMessageListener((type: number) => type);
// @ts-expect-error
adapter.addMessageListener('listener');

const endpoints: string[] = [
    adapter.getSelfEndpoint(),
    ...adapter.getEndpoints(),
    ...adapter.getEndpointCacheSnapshot(),
];
const nulls: null[] = [adapter.forceRefreshEndpoints(), adapter.setVerboseLogging(), _setLibraryPath('/path')];
adapter.removeAllListeners();
// @ts-expect-error
adapter.close();
// @ts-expect-error
_setLibraryPath();

const control = new BrivonControlAdapter();
const specifiers: string[] = control.getSpecifiers();
const booleans: boolean[] = [control.isAppInstalled('a'), control.isAppRunning('a'), control.isAppRunningByName('a')];
const path: string = control.getAppPath('a');
const version: string | null = control.getAppVersion('a');
// @ts-expect-error
const surely: string = control.getAppVersion('a');
const processId: number = control.getProcessId('a');
const launched: LaunchCallback = (error, isLaunched) => (error ? error.message : isLaunched === true);
control.launchApp('a', true, '--flag', launched);
// @ts-expect-error
control.launchApp('a', true, '--flag');
// @ts-expect-error
control.launchApp('a', 'true', '--flag', launched);
// @ts-expect-error
control.getSpecifiers('a');
// @ts-expect-error
control.isAppInstalled();

standins.messaging.answer('Send', 1);
standins.messaging.answer('Send', { throws: 'text' }, Infinity);
standins.messaging.answer('GetEndPoints', [{ id: '1' }]);
// @ts-expect-error
standins.messaging.answer('Sned', 1);
// @ts-expect-error
standins.messaging.answer('IsReady', 1);
standins.messaging.deliver({ type: standins.ERROR_TYPE, error: 'e', fault: 'f', listeners: 'error' });
// @ts-expect-error
standins.messaging.deliver({ payload: 'no type' });
const operations: string[] = standins.messaging.takeCalls().map(({ operation }) => operation);
standins.control.answer('LaunchApp', { holds: true });
// @ts-expect-error
standins.control.answer('LaunchApp', 'yes');
standins.control.releaseLaunches();

export = { sent, nothing, endpoints, nulls, specifiers, booleans, path, version, surely, processId, operations };
