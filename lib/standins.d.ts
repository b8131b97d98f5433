/**
 * The script of the stand-in libraries, for tests of applications. Loading this file switches the script on for the whole
 * process, which must have no adapter yet: from then on the stand-ins touch no real bus and no real programs, record
 * every call made of them and answer as they are told.
 */

/** One call that the module has made of a library. */
export interface Call {
    /** The library's operation, such as `Send`. */
    operation: string;
    /**
     * Its arguments. Listeners and contexts are numbers, the same for the same one; that of `Send` is
     * `{ type, payload, source, destinations }`.
     */
    arguments: unknown[];
    /** `library` for calls on a thread of the library's own, and for launches. */
    thread: 'caller' | 'library';
}

/** Thrown as an exception inside the library, with this text. */
export interface Thrown {
    throws: string;
}

/** A field that is left out is empty. */
export interface Endpoint {
    id?: string;
    appId?: string;
    appVersion?: string;
}

export interface Message {
    /** The full type: {@link SUITE_TYPE_PREFIX} and more, {@link ERROR_TYPE}, or anything else. */
    type: string;
    appId?: string;
    appVersion?: string;
    source?: Endpoint;
    /** A payload that is not given has size 0, and an empty one size 1. */
    payload?: string;
    error?: string;
    fault?: string;
    /** Who hears it: error listeners for errors and message listeners for the rest, unless this says which. */
    listeners?: 'message' | 'error';
}

interface Script {
    /** The calls recorded since the last time, oldest first. */
    takeCalls(): Call[];
    /**
     * Forgets calls, answers and everything else that was set, and lets go of launches. The adapters stay as they are,
     * their endpoint caches too.
     */
    reset(): void;
}

/** A status, a whole number of 32 bits, 0 being success. */
type Status = number;
/** Success without a dispatcher or controller. */
interface NoInstance {
    instance: false;
}

export interface MessagingScript extends Script {
    /**
     * Sets the next answers of an operation, after those set before. When they are used up, its usual answer stands
     * again: success for a status, and what each says.
     *
     * @param times How often it is given; may be Infinity.
     * @throws {TypeError} For an unknown operation, and for an answer that it cannot give.
     */
    answer(operation: 'SetConfig' | 'Send', status: Status | Thrown, times?: number): void;
    /** Status 4 is "ask again later", which the adapter does after six seconds. */
    answer(operation: 'GetInstance', answer: Status | NoInstance | Thrown, times?: number): void;
    /** Usually true. */
    answer(operation: 'IsReady', isReady: boolean | Thrown, times?: number): void;
    /**
     * Usually true: the adapters have rebuilt their caches when it returns. false: it ends later, by
     * {@link setEndpoints}.
     */
    answer(operation: 'RefreshEndPoints', endsAtOnce: boolean | Thrown, times?: number): void;
    /** Usually false. */
    answer(operation: 'IsRefreshing', isRefreshing: boolean | Thrown, times?: number): void;
    /** Usually what {@link setSelf} says. */
    answer(operation: 'GetSelfEndPoint', endpoint: Endpoint | Thrown, times?: number): void;
    /** Usually what {@link setEndpoints} says. `{ count: 0 }`: none, in an array that is not null. */
    answer(operation: 'GetEndPoints', endpoints: Endpoint[] | { count: 0 } | Thrown, times?: number): void;
    /** These give no answer. */
    answer(
        operation:
            | 'AddMessageListener'
            | 'RemoveMessageListener'
            | 'AddErrorListener'
            | 'RemoveErrorListener'
            | 'RegisterEndPointsCallback'
            | 'UnregisterEndPointsCallback'
            | 'ReleaseEndPoints',
        answer: Thrown,
        times?: number,
    ): void;
    /**
     * Hands a message to the adapters that listen, from the library's thread, and returns when they have taken it. The
     * listener hears it later, on the JavaScript thread. A message of a type that is neither an application's nor an
     * error's reaches no listener; `DestinationUnreachable` makes an adapter refresh.
     *
     * @throws {Error} Without an adapter.
     */
    deliver(message: Message): void;
    /** Sets the dispatcher's endpoints, and has the adapters rebuild their caches before it returns. */
    setEndpoints(endpoints: Endpoint[]): void;
    /** Sets this process's own endpoint; until then it is `self` with what the last adapter was configured with. */
    setSelf(endpoint: Endpoint): void;
}

export interface ControlScript extends Script {
    /**
     * Sets the next answers of an operation, after those set before. When they are used up, its usual answer stands
     * again: success for a status, and false, null, an empty list or 0 for the others. Bytes that are not text may be
     * given as a Buffer.
     *
     * @param times How often it is given; may be Infinity.
     * @throws {TypeError} For an unknown operation, and for an answer that it cannot give.
     */
    answer(operation: 'SetConfig' | 'SetConfigEx', status: Status, times?: number): void;
    answer(operation: 'GetInstance', answer: Status | NoInstance, times?: number): void;
    answer(operation: 'IsAppInstalled' | 'IsAppRunning' | 'IsAppRunningByName', answer: boolean, times?: number): void;
    /** `getAppVersion` reads the file at this path. */
    answer(operation: 'GetAppPath', path: string | Uint8Array | null, times?: number): void;
    answer(operation: 'GetSpecifiers', specifiers: string[], times?: number): void;
    /** A whole number of 32 bits. */
    answer(operation: 'GetProcessId', processId: number, times?: number): void;
    /** A launch that holds ends when {@link releaseLaunches} is called, as launched says (usually true). */
    answer(
        operation: 'LaunchApp',
        answer: boolean | { holds: true; launched?: boolean } | Thrown,
        times?: number,
    ): void;
    /** Lets go of every launch that is held back. */
    releaseLaunches(): void;
}

export const messaging: MessagingScript;
export const control: ControlScript;
/** With what the type of every application message begins. */
export const TYPE_PREFIX: 'brivon.SuiteMessage.';
/** The same, by its earlier name. */
export const SUITE_TYPE_PREFIX: 'brivon.SuiteMessage.';
/** The type of error messages. */
export const ERROR_TYPE: 'brivon.ErrorMessage';
