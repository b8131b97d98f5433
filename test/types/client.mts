import client, {
    connect,
    launch,
    type ClientError,
    type Endpoint,
    type ErrorCode,
    type Message,
} from 'brivonjs/client';
import { promisify } from 'node:util';
import { BrivonControlAdapter } from 'brivonjs';

interface Note {
    text: string;
}
const note: Note = { text: 'milk' };

const notes = connect({ appId: 'notes', appVersion: '1', defaultAppId: undefined });
notes.on('message', ({ type, payload, source }) => `${type} ${payload.any} ${source.appId}`);
notes.handle('add', async ({ a, b }, { signal }) => !signal.aborted && a + b);
const sum: Promise<number> = notes.request<number>('add', { a: 1 }, { to: 'x', timeout: undefined });
for await (const message of notes.messages({ type: 'x', limit: undefined })) message satisfies Message;
using shared = client.connect({ appId: 'notes', appVersion: '1' });
shared.send('x', { any: 'json' }, { to: { appId: 'a', appVersion: '1', id: '7' } });
shared.broadcast('x', note);
shared.broadcast('x', [note]);
await launch('x', { focus: true });
const found: Endpoint = await launch('x', { waitFor: 'x', signal: AbortSignal.timeout(1) });
const present: Endpoint = await shared.whenPresent({ appId: 'x', appVersion: '1' });
// @ts-expect-error
notes.send('x', 5);
// @ts-expect-error
notes.send('x', () => {});
// @ts-expect-error
notes.send('x', new Date());
// @ts-expect-error
notes.send('x', '', { to: { appVersion: '1' } });
// @ts-expect-error
notes.on('mesage', () => {});
// @ts-expect-error
notes.once('message', (count: number) => count);
// @ts-expect-error
notes.off('left', ({ appID }) => appID);

interface Suite {
    messages: { ping: { n: number }; note: string };
    requests: { add(body: { a: number; b: number }): number; today(): Note[]; slow(body: string): Promise<boolean> };
}
const typed = connect<Suite>({ appId: 'notes', appVersion: '1' });
typed.send('ping', { n: 1 });
typed.broadcast('note', 'milk');
typed.on('message', (message) => {
    if (message.type === 'ping') message.payload.n satisfies number;
    else message.payload satisfies string;
});
for await (const { payload } of typed.messages({ type: 'ping' })) payload.n satisfies number;
for await (const { payload } of typed.messages()) payload satisfies string | { n: number };
typed.handle('add', ({ a, b }) => a + b);
typed.handle('slow', async (text, { source }) => text === source.appId);
(await typed.request('add', { a: 1, b: 2 }, { to: 'x' })) satisfies number;
(await typed.request('today')) satisfies Note[];
(await typed.request('slow', 'x')) satisfies boolean;
// @ts-expect-error
typed.send('pong', { n: 1 });
// @ts-expect-error
typed.send('ping', { n: '1' });
// @ts-expect-error
typed.broadcast('note', { n: 1 });
// @ts-expect-error
typed.messages({ type: 'pong' });
// @ts-expect-error
typed.handle('sub', () => 1);
// @ts-expect-error
typed.handle('add', () => 'text');
// @ts-expect-error
typed.request('sub', {});
// @ts-expect-error
typed.request('add', { a: 1 });
// @ts-expect-error
typed.request('add');
// @ts-expect-error
(await typed.request('add', { a: 1, b: 2 })) satisfies string;

// Every code has a case.
function advise({ code }: ClientError): string {
    switch (code) {
        case 'ERR_INVALID_ARG_VALUE':
        case 'ERR_BRIVONJS_CONNECTED':
        case 'ERR_BRIVONJS_HANDLED':
        case 'ERR_BRIVONJS_TOO_LARGE':
        case 'ERR_BRIVONJS_CLOSED':
            return 'change the program';
        case 'ERR_BRIVONJS_BUS':
        case 'ERR_BRIVONJS_NOT_LAUNCHED':
            return 'look at the machine';
        case 'ERR_BRIVONJS_ANSWER':
        case 'ERR_BRIVONJS_FULL':
        case 'ERR_BRIVONJS_OVERFLOW':
        case 'ERR_BRIVONJS_TIMEOUT':
        case 'ERR_BRIVONJS_UNKNOWN_TARGET':
        case 'ERR_BRIVONJS_UNREACHABLE':
            return 'try again';
    }
}
// @ts-expect-error
const unknownCode: ErrorCode = 'ERR_BRIVONJS_NONE';
const launched: Promise<boolean> = promisify(new BrivonControlAdapter().launchApp)('a', true, '');

export { advise, found, launched, present, sum, unknownCode };
