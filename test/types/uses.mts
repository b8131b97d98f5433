import brivonjs, { BrivonAdapter, BrivonControlAdapter } from 'brivonjs';
import standins, { control, SUITE_TYPE_PREFIX } from 'brivonjs/standins';

const adapter: BrivonAdapter = new brivonjs.BrivonAdapter('app', '1');
const version: string | null = new BrivonControlAdapter().getAppVersion('a');
const type: 'brivon.SuiteMessage.' = SUITE_TYPE_PREFIX;
standins.messaging.setEndpoints([{ id: '1', appId: 'a', appVersion: '1' }]);
control.reset();

export { adapter, version, type };
