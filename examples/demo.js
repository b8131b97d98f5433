'use strict';

// Four real programs of two applications meet on a bus of their own and talk; one of them is killed. Then a folder of
// programs is looked at, and one of them launched. Ends with 0 when everything has happened that should, and in time.

const { fork } = require('node:child_process');
const { once } = require('node:events');
const fs = require('node:fs');
const path = require('node:path');

const { control } = require('./demo/control');

const TIME_LIMIT_MS = 20_000;
const STEP_LIMIT_MS = 5_000;

const greetings = fs
    .readFileSync(path.join(__dirname, 'demo', 'greetings.txt'), 'utf8')
    .trim()
    .split('\n');
const bus = `demo-${process.pid}`;

class Participant {
    #answers = new Map();
    #nextId = 0;
    heard = [];

    constructor(name, appId, appVersion, defaultAppId) {
        Object.assign(this, { name, appId, appVersion });
        this.process = fork(path.join(__dirname, 'demo', 'participant.js'), [appId, appVersion, defaultAppId], {
            env: { ...process.env, BRIVON_BUS: bus },
        });
        this.joined = new Promise((resolve) => {
            this.process.on('message', (report) => this.#take(report, resolve));
        });
        this.gone = once(this.process, 'exit');
    }

    #take({ event, ...report }, joined) {
        if (event === 'answer') {
            this.#answers.get(report.id)(report.value);
            this.#answers.delete(report.id);
        } else if (event === 'joined') {
            this.endpoint = report.endpoint;
            this.id = report.endpoint.slice(1, -1).split(',')[2];
            joined();
        } else {
            this.heard.push({ event, ...report });
        }
    }

    call(method, ...args) {
        const id = this.#nextId++;
        return new Promise((resolve) => {
            this.#answers.set(id, resolve);
            this.process.send({ id, method, args });
        });
    }
}

const say = (text) => console.log(text);
const chapter = (title) => say(`\n${title}`);
// An endpoint's text with as much of its id as a line has room for.
const short = (endpoint) => endpoint.replace(/(?<=,[0-9a-f]{8})[0-9a-f]+(?=}$)/, '…');

// Resolves once the condition holds; it is looked at whenever a participant reports, and every few milliseconds.
async function until(what, condition) {
    const limit = Date.now() + STEP_LIMIT_MS;
    while (!(await condition())) {
        if (Date.now() > limit) throw new Error(`in vain: waited for ${what}`);
        await new Promise((resolve) => setTimeout(resolve, 10));
    }
}

async function main() {
    chapter('Two applications join the bus: notes, and calendar in two versions');
    const notes = new Participant('notes', 'notes', '1.0', 'calendar');
    const old = new Participant('old calendar', 'calendar', '1.0', '');
    const blue = new Participant('blue calendar', 'calendar', '2.0', '');
    const green = new Participant('green calendar', 'calendar', '2.0', '');
    const everyone = [notes, old, blue, green];
    await Promise.all(everyone.map(({ joined }) => joined));
    await until('everyone to see everyone', async () => {
        const lists = await Promise.all(everyone.map((participant) => participant.call('getEndpointCacheSnapshot')));
        return lists.every((list) => list.length === everyone.length - 1);
    });
    for (const { name, endpoint, process: child } of everyone)
        say(`  ${name} is ${short(endpoint)}, process ${child.pid}`);

    let unread = 0;
    // Sends greetings, and waits until exactly those have heard each who should have.
    async function send(count, from, target, receivers) {
        for (let i = 0; i < count; ++i) {
            const payload = greetings[unread++];
            await from.call('sendMessage', 'meeting', payload, ...target);
            for (const { name, heard } of receivers) {
                await until(`${name} to hear “${payload}”`, () => heard.length > 0);
                const { type, payload: text } = heard.shift();
                if (type !== 'brivon.SuiteMessage.meeting' || text !== payload)
                    throw new Error(`${name} heard ${type}: ${text} instead of ${payload}`);
            }
            say(`  ${payload}`);
        }
    }

    chapter('From notes to the blue calendar alone, and an answer');
    await send(1, notes, ['calendar', '2.0', blue.id], [blue]);
    await send(1, blue, ['notes', '1.0', notes.id], [notes]);

    chapter('From notes to the application calendar; all three have heard');
    await send(3, notes, [], [old, blue, green]);

    chapter('From notes to calendar 2.0; blue and green have heard');
    await send(3, notes, ['calendar', '2.0'], [blue, green]);

    chapter('From green to mail, which nobody is, so to everyone; the other three have heard');
    await send(3, green, ['mail'], [notes, old, blue]);

    chapter('The green calendar is killed, and notes sends to it');
    green.process.kill('SIGKILL');
    await green.gone;
    await notes.call('sendMessage', 'meeting', greetings[0], 'calendar', '2.0', green.id);
    await until('the error to come back', () => notes.heard.length > 0);
    const { event, error, fault } = notes.heard.shift();
    if (event !== 'error' || fault !== green.endpoint) throw new Error(`notes heard ${event} about ${fault}`);
    say(`  the bus to notes: ${error}: ${short(fault)}`);

    await notes.call('forceRefreshEndpoints');
    await until('the endpoint lists to lose it', async () => {
        const lists = await Promise.all([notes, old, blue].map((one) => one.call('getEndpointCacheSnapshot')));
        return lists.every((list) => !list.includes(green.endpoint));
    });
    say(`  notes knows ${(await notes.call('getEndpointCacheSnapshot')).map(short).join(' ')}`);
    await send(1, notes, ['calendar', '2.0'], [blue]);

    for (const { name, heard } of everyone)
        if (heard.length > 0) throw new Error(`${name} heard what it should not have: ${JSON.stringify(heard)}`);
    chapter('Everything that was sent has arrived where it should, and nowhere else.');
}

setTimeout(() => {
    console.error('the demo has run out of time');
    process.exit(1);
}, TIME_LIMIT_MS).unref();

// The participants end when their parent does.
main()
    .then(() => control({ say, chapter, until }))
    .then(
        () => process.exit(0),
        (failure) => {
            console.error(failure.message);
            process.exit(1);
        },
    );
