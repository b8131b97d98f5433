/// <reference types="node" />

/**
 * What programs write on top of the two classes of `brivonjs`: one client per process, with JSON in payloads, targets that
 * must be there, requests with responses, and launches as promises. Works on scripted stand-ins as on the real bus.
 */

import { EventEmitter } from 'node:events';

export * from './control';

/** The beginning of every application message's type on the bus. */
export const TYPE_PREFIX: 'brivon.SuiteMessage.';
/** The type of errors of the bus. */
export const ERROR_TYPE: 'brivon.ErrorMessage';

export interface ConnectOptions {
    /** This program's application id on the bus; not empty. */
    appId: string;
    /** This program's version on the bus; not empty. */
    appVersion: string;
    /** The application that messages go to unless they name a target. */
    defaultAppId?: string | undefined;
}

/** An endpoint on the bus. Where a field holds a comma, the parts of another program's endpoint may be cut wrongly. */
export interface Endpoint {
    appId: string;
    appVersion: string;
    id: string;
}

/** Whom a message goes to: an application, one version of it, or one endpoint. */
export type Target = string | { appId: string; appVersion?: string | undefined } | Endpoint;

/** An object or an array that JSON can hold: no function, no date, and no collection. */
export interface JsonObject {
    [key: string]: any;
    [Symbol.hasInstance]?: never;
    [Symbol.toPrimitive]?: never;
    [Symbol.toStringTag]?: never;
}

/** A text, which is sent as it is; or an object or an array, which is sent as JSON. */
export type Payload = string | JsonObject;

/**
 * What the programs of a suite send each other: payloads by the types of messages, and functions from bodies to responses
 * by the names of requests.
 *
 * @example
 * interface Suite {
 *     messages: { ping: { n: number }; note: string };
 *     requests: { add(body: { a: number; b: number }): number };
 * }
 * const client = connect<Suite>({ appId: 'notes', appVersion: '2.1' });
 */
export interface Protocol {
    messages?: object;
    requests?: object;
}

/** The protocol where none is given: any names, payloads and results. */
export interface AnyProtocol {
    messages: Record<string, any>;
    requests: Record<string, (body?: any) => any>;
}

type Messages<P extends Protocol> = P extends { messages: infer M } ? M : {};
type Requests<P extends Protocol> = P extends { requests: infer R } ? R : {};
type Name<T> = Extract<keyof T, string>;
type Sent<T> = 0 extends 1 & T ? Payload : T;
type Body<F> = F extends (body: infer B, ...others: any[]) => any ? B : never;
type Result<F> = F extends (...values: any[]) => infer R ? Awaited<R> : never;
/** The body may be left out where it may be undefined. */
type RequestArguments<F> =
    undefined extends Body<F>
        ? [body?: Body<F>, options?: RequestOptions]
        : unknown extends Body<F>
          ? [body?: undefined, options?: RequestOptions]
          : [body: Body<F>, options?: RequestOptions];

export interface SendOptions {
    /** The default application if it is left out. */
    to?: Target | undefined;
    /** What becomes of a message for which nobody is known: an error, or a message to everyone. */
    ifUnknown?: 'throw' | 'everyone' | undefined;
}

export interface WaitOptions {
    /** Milliseconds to wait, 30,000 unless given; more than 2^31 - 1, Infinity too, is no limit. */
    timeout?: number | undefined;
    /** Ends the wait with its reason. */
    signal?: AbortSignal | undefined;
}

/** A request that is given up, by its time or its signal, is taken back. */
export interface RequestOptions extends SendOptions, WaitOptions {}

export interface MessagesOptions<T extends string = string> {
    /** Messages of this type only, without the prefix. */
    type?: T | undefined;
    /** How many may wait to be read, 1,000 unless given. */
    limit?: number | undefined;
    /** Ends the loop with its reason. */
    signal?: AbortSignal | undefined;
}

/** The codes of the errors that the client makes. */
export type ErrorCode =
    /** A wrong argument; the error is a TypeError. */
    | 'ERR_INVALID_ARG_VALUE'
    /** The other side has failed. Its error is the `cause`. */
    | 'ERR_BRIVONJS_ANSWER'
    /** The bus cannot be joined. */
    | 'ERR_BRIVONJS_BUS'
    /** The client is closed. */
    | 'ERR_BRIVONJS_CLOSED'
    /** This process is on the bus with other options. */
    | 'ERR_BRIVONJS_CONNECTED'
    /** The receiver does not read, so that the stand-ins have refused the request. */
    | 'ERR_BRIVONJS_FULL'
    /** The name has a handler. */
    | 'ERR_BRIVONJS_HANDLED'
    /** The application was not launched, for the reason in the message. */
    | 'ERR_BRIVONJS_NOT_LAUNCHED'
    /** More messages were waiting to be read than the limit allows. */
    | 'ERR_BRIVONJS_OVERFLOW'
    /** The time is over. */
    | 'ERR_BRIVONJS_TIMEOUT'
    /** The message is too large for the stand-ins, which take 32 MiB. */
    | 'ERR_BRIVONJS_TOO_LARGE'
    /** Nobody on the bus is the target. */
    | 'ERR_BRIVONJS_UNKNOWN_TARGET'
    /** All endpoints that a request was sent to cannot be reached, have left the bus, or have closed their client. */
    | 'ERR_BRIVONJS_UNREACHABLE';

/** What the client throws and rejects with, apart from the reasons of signals. */
export interface ClientError extends Error {
    code: ErrorCode;
    /**
     * Of `ERR_BRIVONJS_ANSWER`, the other side's error. Its code is `ERR_BRIVONJS_NO_HANDLER` when none of them has a
     * handler for the request.
     */
    cause?: unknown;
}

export interface Message<T extends string = string, Content = any> {
    /** Without the prefix. */
    type: T;
    /** As it arrived. */
    fullType: string;
    /** The object or the array whose JSON the payload is; otherwise its text. */
    payload: Content;
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

export interface RequestContext {
    /** Who has sent the request. */
    source: Endpoint;
    /** Aborted when the requester gives up, by its time, its signal or its end, and when this client is closed. */
    signal: AbortSignal;
}

/** Responds with anything that JSON can hold. What it throws, or rejects with, crosses to the requester. */
export type Handler<Body = any, Result = unknown> = (body: Body, request: RequestContext) => Result | Promise<Result>;

/** Any message of a protocol. */
export type AnyMessage<P extends Protocol = AnyProtocol> = {
    [T in Name<Messages<P>>]: Message<T, Messages<P>[T]>;
}[Name<Messages<P>>];

export interface ClientEvents<P extends Protocol = AnyProtocol> {
    message: [message: AnyMessage<P>];
    /** The bus could not deliver something. */
    unreachable: [event: Unreachable];
    /** An endpoint has come. */
    joined: [endpoint: Endpoint];
    /** An endpoint has gone. */
    left: [endpoint: Endpoint];
    /** A listener has failed. */
    error: [error: Error];
    close: [];
}

/**
 * This process on the bus. What it throws is a {@link ClientError}.
 *
 * A listener that throws, or whose promise is rejected, makes an `'error'` event, which ends the process where nobody
 * listens for it. The client looks for changes five times a second while somebody listens for `'joined'` or `'left'`.
 */
export interface Client<P extends Protocol = AnyProtocol> extends EventEmitter {
    /** This program's own endpoint. */
    readonly self: Endpoint;
    /** The other endpoints on the bus. Messages can be sent to all of them. It changes between turns of the event loop. */
    readonly endpoints: Endpoint[];

    /**
     * Sends a message. Nothing says whether it has arrived; what the bus says of it later is an `'unreachable'` event.
     *
     * @param type Without the prefix.
     * @throws `ERR_BRIVONJS_UNKNOWN_TARGET`, `ERR_BRIVONJS_TOO_LARGE`
     */
    send<T extends Name<Messages<P>>>(type: T, payload: Sent<Messages<P>[T]>, options?: SendOptions): void;

    /** Sends a message to everyone else on the bus. */
    broadcast<T extends Name<Messages<P>>>(type: T, payload: Sent<Messages<P>[T]>): void;

    /**
     * Resolves to an endpoint that is the target, as soon as there is one. Rejects with `ERR_BRIVONJS_TIMEOUT`, the reason
     * of the signal or `ERR_BRIVONJS_CLOSED`.
     */
    whenPresent(target: Target, options?: WaitOptions): Promise<Endpoint>;

    /**
     * The messages from now on, for a `for await` loop. It ends when the client is closed. When more wait than the limit
     * allows, it ends with `ERR_BRIVONJS_OVERFLOW` after those that were waiting.
     */
    messages<T extends Name<Messages<P>>>(
        options: MessagesOptions<T> & { type: T },
    ): AsyncGenerator<Message<T, Messages<P>[T]>, void, void>;
    messages(options?: MessagesOptions<Name<Messages<P>>>): AsyncGenerator<AnyMessage<P>, void, void>;

    /**
     * Responds to the requests of that name. The function that it returns ends this.
     *
     * @throws `ERR_BRIVONJS_HANDLED`
     */
    handle<N extends Name<Requests<P>>>(
        name: N,
        handler: Handler<Body<Requests<P>[N]>, Result<Requests<P>[N]>>,
    ): () => void;

    /**
     * Sends a request, and resolves to the first response of those that it was sent to. Rejects with `ERR_BRIVONJS_ANSWER`
     * when the other side has failed, `ERR_BRIVONJS_UNREACHABLE`, `ERR_BRIVONJS_FULL`, `ERR_BRIVONJS_TIMEOUT`,
     * `ERR_BRIVONJS_CLOSED`, the reason of the signal, or an error of {@link send}.
     */
    request<N extends Name<Requests<P>>>(
        name: N,
        ...values: RequestArguments<Requests<P>[N]>
    ): Promise<Result<Requests<P>[N]>>;
    /** Without a protocol: the type of the response is what the caller says. */
    request<Response>(
        name: AnyProtocol extends P ? string : never,
        body?: unknown,
        options?: RequestOptions,
    ): Promise<Response>;

    /**
     * Ends everything that waits, and takes away handlers and listeners, but those of `'error'`, once it has been called as
     * often as {@link connect}. Requesters that wait for a response learn of it. The endpoint stays on the bus until the
     * process ends, where it hears nothing and refuses requests; `connect` with the same options opens it again.
     *
     * A client that has never listened does not keep the process alive. One that has keeps it alive even when it is
     * closed: the contract of the native module knows no way back, and such a program ends with `process.exit()`.
     */
    close(): void;
    [Symbol.dispose](): void;

    on<E extends keyof ClientEvents<P>>(event: E, listener: (...values: ClientEvents<P>[E]) => unknown): this;
    once<E extends keyof ClientEvents<P>>(event: E, listener: (...values: ClientEvents<P>[E]) => unknown): this;
    off<E extends keyof ClientEvents<P>>(event: E, listener: (...values: ClientEvents<P>[E]) => unknown): this;
    addListener<E extends keyof ClientEvents<P>>(event: E, listener: (...values: ClientEvents<P>[E]) => unknown): this;
    removeListener<E extends keyof ClientEvents<P>>(
        event: E,
        listener: (...values: ClientEvents<P>[E]) => unknown,
    ): this;
}

/**
 * The client of this process, which joins the bus with the first call. A later call with the same options answers the same
 * client; with others it throws `ERR_BRIVONJS_CONNECTED`. Throws `ERR_BRIVONJS_BUS` where the bus of the stand-ins cannot
 * be joined. Blocks while the library is waited for, as the constructor of `BrivonAdapter` does.
 */
export function connect<P extends Protocol = AnyProtocol>(options: ConnectOptions): Client<P>;
