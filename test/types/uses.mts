import brivonjs, { BrivonAdapter, BrivonControlAdapter, _setLibraryPath } from 'brivonjs';
import standins, { messaging, control, SUITE_TYPE_PREFIX } from 'brivonjs/standins';

const adapter: BrivonAdapter = new brivonjs.BrivonAdapter('app', '1');
const version: string | null = new BrivonControlAdapter().getAppVersion('a');
const type: 'brivon.SuiteMessage.' = SUITE_TYPE_PREFIX;
_setLibraryPath('/path');
messaging.setEndpoints([{ id: '1', appId: 'a', appVersion: '1' }]);
control.reset();
standins.messaging.reset();
// @ts-expect-error
messaging.setEndpoints({ id: '1' });
// @ts-expect-error
import { nothing } from 'brivonjs';

export { adapter, version, type };
