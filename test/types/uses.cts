// Right uses compile; each wrong one is expected not to.
import brivonjs = require('brivonjs');
import standins = require('brivonjs/standins');

const adapter = new brivonjs.BrivonAdapter('app', '1', 'default');
const sent: 'Sent' = adapter.sendMessage('type', 'payload', 'app', '1', 'id');
// @ts-expect-error
adapter.sendMessage('type', { payload: true });
adapter.addMessageListener((...message) => message.map((text) => text.length));
adapter.addErrorListener((type, error, fault) => `${type}${error}${fault}`);

const control = new brivonjs.BrivonControlAdapter();
// @ts-expect-error
const surely: string = control.getAppVersion('a');
control.launchApp('a', true, '--flag', (error, isLaunched) => (error ? error.message : isLaunched));

standins.messaging.answer('GetEndPoints', [{ id: '1' }]);
// @ts-expect-error
standins.control.answer('LaunchApp', 'yes');

export = { sent, surely };
