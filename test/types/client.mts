import client, { connect, launch, TYPE_PREFIX, type Message } from 'brivonjs/client';
import { once } from 'node:events';
import { promisify } from 'node:util';
import { BrivonControlAdapter } from 'brivonjs';

const notes = connect({ appId: 'notes', appVersion: '1' });
notes.on('message', ({ type, payload, source }) => `${type} ${payload.any} ${source.appId}`);
notes.on('unreachable', ({ endpoint, error }) => `${endpoint?.appId} ${error}`);
notes.handle('add', async ({ a, b }, { signal }) => !signal.aborted && a + b);
const sum: Promise<number> = notes.request<number>('add', { a: 1 }, { to: 'x', signal: AbortSignal.timeout(1) });
for await (const message of notes.messages({ type: 'x' })) {
    const heard: Message = message;
    if (heard.fullType.startsWith(TYPE_PREFIX)) break;
}
await once(notes, 'message');
{
    using shared = client.connect({ appId: 'notes', appVersion: '1' });
    shared.send('x', { any: 'json' }, { to: { appId: 'a', appVersion: '1', id: '7' } });
}
await launch('x', { focus: true });
// @ts-expect-error
notes.send('x', 5);
// @ts-expect-error
connect({ appId: 'x' });

const control = new BrivonControlAdapter();
control.launchApp('a', true, '', (error, launched) => (error === undefined ? launched : error.message));
control.launchApp('a', true, '', (error) => error?.message);
const launched: Promise<boolean> = promisify(control.launchApp.bind(control))('a', true, '');

export { launched, sum };
