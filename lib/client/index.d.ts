/// <reference types="node" />

/**
 * What programs write on top of the two classes of `brivonjs`: one client per process, with JSON in payloads, targets that
 * must be there, questions with answers, and launches as promises. Works on scripted stand-ins as on the real bus.
 */

import { EventEmitter } from 'node:events';

/** The beginning of every application message's type on the bus. */
export const TYPE_PREFIX: 'brivon.SuiteMessage.';
/** The type of errors of the bus. */
export const ERROR_TYPE: 'brivon.ErrorMessage';

export interface ConnectOptions {
    /** This program's application id on the bus; not empty. */
    appId: string;
    /** This program's version on the bus. */
    appVersion: string;
    /** The application that messages go to unless they name a target. */
    defaultAppId?: string;
}

/** An endpoint on the bus. Where a field holds a comma, the parts of another program's endpoint may be cut wrongly. */
export interface Endpoint {
    appId: string;
    appVersion: string;
    id: string;
}

/** Whom a message goes to: an application, one version of it, or one endpoint. */
export type Target = string | { appId?: string; appVersion?: string } | Endpoint;

/** A text, which is sent as it is; or an object or an array that JSON can hold, which is sent as that. */
export type Payload = string | object;

export interface SendOptions {
    /** The default application if it is left out. */
    to?: Target;
    /** What becomes of a message for which nobody is known: an error, or a message to everyone. */
    ifUnknown?: 'throw' | 'everyone';
}

export interface RequestOptions extends SendOptions {
    /** Milliseconds to wait for the answer, 30,000 unless given; more than 2^31 - 1, Infinity too, is no limit. */
    timeout?: number;
    /** Ends the wait with its reason, and takes the question back. */
    signal?: AbortSignal;
}

export interface MessagesOptions {
    /** Messages of this type only, without the prefix. */
    type?: string;
    /** How many may wait to be read, 1,000 unless given. */
    limit?: number;
    /** Ends the loop with its reason. */
    signal?: AbortSignal;
}

export interface Message {
    /** Without the prefix. */
    type: string;
    /** As it arrived. */
    fullType: string;
    /** The object or the array whose JSON the payload is; otherwise its text. */
    payload: any;
    /** The payload as it arrived. */
    text: string;
    /** Who has sent it. */
    source: Endpoint;
}

/** What the bus says of something that was sent. */
export interface Unreachable {
    /** The endpoint that it names, if it names one. */
    endpoint?: Endpoint;
    /** What went wrong, and with what, in the library's words. */
    error: string;
    fault: string;
}

export interface Question {
    source: Endpoint;
    /** Aborted when whoever has asked gives up, by its time or its signal, and when this client is closed. */
    signal: AbortSignal;
}

/** Answers with anything that JSON can hold. What it throws, or rejects with, crosses to whoever has asked. */
export type Handler = (body: any, question: Question) => unknown;

export interface ClientEvents {
    message: [message: Message];
    unreachable: [event: Unreachable];
    error: [error: Error];
    close: [];
}

/**
 * This process on the bus. Errors that it throws have a `code`:
 *
 * - `ERR_INVALID_ARG_VALUE` for a wrong argument, which is a TypeError;
 * - `ERR_BRIVONJS_UNKNOWN_TARGET` when nobody on the bus is the target;
 * - `ERR_BRIVONJS_TOO_LARGE` for a type and a payload of more than nearly 32 MiB;
 * - `ERR_BRIVONJS_CLOSED` once it is closed.
 *
 * A listener that throws, or whose promise is rejected, makes an `'error'` event, which ends the process where nobody
 * listens for it.
 */
export interface Client extends EventEmitter {
    /** This program's own endpoint. */
    readonly self: Endpoint;
    /** The other endpoints that the bus knows now. */
    readonly endpoints: Endpoint[];

    /**
     * Sends a message. Nothing says whether it has arrived; what the bus says of it later is an `'unreachable'` event.
     *
     * @param type Without the prefix.
     */
    send(type: string, payload: Payload, options?: SendOptions): void;

    /** Sends a message to everyone else on the bus. */
    broadcast(type: string, payload: Payload): void;

    /**
     * The messages from now on, for a `for await` loop. It ends when the client is closed. When more wait than the limit
     * allows, it ends with `ERR_BRIVONJS_OVERFLOW` after those that were waiting.
     */
    messages(options?: MessagesOptions): AsyncGenerator<Message, void, void>;

    /**
     * Answers the questions of that name. The function that it returns ends this.
     *
     * @throws `ERR_BRIVONJS_HANDLED` when the name has a handler.
     */
    handle(name: string, handler: Handler): () => void;

    /**
     * Asks a question, and resolves to the first answer. Rejects with `ERR_BRIVONJS_ANSWER` when the other side has failed
     * (its error is the `cause`, which has the code `ERR_BRIVONJS_NO_HANDLER` when none of them answers such questions),
     * `ERR_BRIVONJS_UNREACHABLE` when nobody that it was sent to can be reached, `ERR_BRIVONJS_TIMEOUT`, the reason of the
     * signal, or an error of {@link send}.
     *
     * @param body Anything that JSON can hold.
     */
    request<Answer = any>(name: string, body?: unknown, options?: RequestOptions): Promise<Answer>;

    /**
     * Ends everything that waits, once it has been called as often as {@link connect}. The endpoint stays on the bus until
     * the process ends, where it hears nothing; `connect` with the same options opens it again.
     *
     * A client that has never listened does not keep the process alive. One that has keeps it alive even when it is
     * closed: the contract of the native module knows no way back, and such a program ends with `process.exit()`.
     */
    close(): void;
    [Symbol.dispose](): void;

    on<E extends keyof ClientEvents>(event: E, listener: (...args: ClientEvents[E]) => unknown): this;
    once<E extends keyof ClientEvents>(event: E, listener: (...args: ClientEvents[E]) => unknown): this;
}

/**
 * The client of this process, which joins the bus with the first call. A later call with the same options answers the same
 * client; with others it throws `ERR_BRIVONJS_CONNECTED`. Blocks while the library is waited for, as the constructor of
 * `BrivonAdapter` does.
 */
export function connect(options: ConnectOptions): Client;

export interface Application {
    specifier: string;
    isInstalled: boolean;
    /** `''` when the library has none. */
    path: string;
    /** The product version that the executable declares. */
    version: string | null;
    isRunning: boolean;
    processId: number;
}

/**
 * The applications that the control library knows. Blocks while it looks at them.
 *
 * @param options.folder The library path from now on, for the whole process.
 */
export function applications(options?: { folder?: string }): Application[];

/**
 * Launches an application, and resolves when the library has done so. Rejects with `ERR_BRIVONJS_NOT_LAUNCHED` when it has
 * not, with the library's error as the `cause` if there is one, and with the reason of the signal, which does not take the
 * launch back.
 *
 * @param options.focus Passed to the library, true unless given.
 * @param options.args Arguments in one string.
 * @param options.folder As for {@link applications}.
 */
export function launch(
    specifier: string,
    options?: { focus?: boolean; args?: string; folder?: string; signal?: AbortSignal },
): Promise<void>;
