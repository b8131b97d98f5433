import client, { connect, launch, type Message } from 'brivonjs/client';
import { promisify } from 'node:util';
import { BrivonControlAdapter } from 'brivonjs';

const notes = connect({ appId: 'notes', appVersion: '1' });
notes.on('message', ({ type, payload, source }) => `${type} ${payload.any} ${source.appId}`);
notes.handle('add', async ({ a, b }, { signal }) => !signal.aborted && a + b);
const sum: Promise<number> = notes.request<number>('add', { a: 1 }, { to: 'x', signal: AbortSignal.timeout(1) });
for await (const message of notes.messages({ type: 'x' })) message satisfies Message;
using shared = client.connect({ appId: 'notes', appVersion: '1' });
shared.send('x', { any: 'json' }, { to: { appId: 'a', appVersion: '1', id: '7' } });
await launch('x', { focus: true });
// @ts-expect-error
notes.send('x', 5);
// @ts-expect-error
notes.on('mesage', () => {});
// @ts-expect-error
notes.once('message', (count: number) => count);
const launched: Promise<boolean> = promisify(new BrivonControlAdapter().launchApp)('a', true, '');

export { launched, sum };
