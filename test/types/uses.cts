// Right uses compile; each wrong one is expected not to.
import brivonjs = require('brivonjs');
import standins = require('brivonjs/standins');
import type { ErrorListener, LaunchCallback, MessageListener } from 'brivonjs';

const adapter = new brivonjs.BrivonAdapter('app', '1', 'default');
const sent: 'Sent' = adapter.sendMessage('type', 'payload', 'app', '1', 'id');
// @ts-expect-error
adapter.sendMessage('type', { payload: true });
const hear: MessageListener = (type, payload, appId, appVersion, sourceId) =>
    [type, payload, appId, appVersion, sourceId].map((text) => text.length);
const fail: ErrorListener = (type, error, fault) => `${type}${error}${fault}`;
const nothing: undefined[] = [adapter.addMessageListener(hear), adapter.addErrorListener(fail)];
adapter.addMessageListener(async (type) => type.length);
// @ts-expect-error
adapter.addMessageListener((type: number) => type);
const endpoints: string[] = adapter.getEndpointCacheSnapshot();
const nulls: null[] = [adapter.forceRefreshEndpoints(), adapter.setVerboseLogging(), brivonjs._setLibraryPath('/')];
// @ts-expect-error
adapter.close();

const control = new brivonjs.BrivonControlAdapter();
// @ts-expect-error
const surely: string = control.getAppVersion('a');
const launched: LaunchCallback = (error, isLaunched) => (error ? error.message : isLaunched);
control.launchApp('a', true, '--flag', launched);

standins.messaging.answer('Send', { throws: 'text' }, Infinity);
standins.messaging.answer('GetEndPoints', [{ id: '1' }]);
// @ts-expect-error
standins.messaging.answer('IsReady', 1);
standins.messaging.deliver({ type: standins.ERROR_TYPE, error: 'e', fault: 'f', listeners: 'error' });
const operations: string[] = standins.messaging.takeCalls().map(({ operation }) => operation);
// @ts-expect-error
standins.control.answer('LaunchApp', 'yes');

export = { sent, nothing, endpoints, nulls, surely, operations };
