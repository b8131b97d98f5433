/**
 * The script of the stand-in libraries, for tests of applications. Loading this file switches the script on for the whole
 * process, which must have no adapter yet: from then on the stand-ins touch no real bus and no real programs, record
 * every call made of them and answer as they are told.
 */

/** One call that the module has made of a library. */
export interface Call {
    /** The library's operation, such as `Send`. */
    operation: string;
    /** Its arguments. Listeners and contexts are numbers, the same for the same one. */
    arguments: unknown[];
    /** `library` for calls on a thread of the library's own, and for launches. */
    thread: 'caller' | 'library';
}

/** Thrown inside the library, with this text. */
export interface Thrown {
    throws: string;
}

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
    /** Forgets calls, answers and everything else that was set. */
    reset(): void;
}

/** Status, 0 being success; or no dispatcher or controller in spite of success. */
type InstanceAnswer = number | { instance: false };

export interface MessagingScript extends Script {
    /**
     * Sets the next answers of an operation, after those set before.
     *
     * @param times How often it is given; may be Infinity.
     * @throws {TypeError} For an answer that the operation cannot give.
     */
    answer(operation: 'SetConfig' | 'Send', status: number | Thrown, times?: number): void;
    answer(operation: 'GetInstance', answer: InstanceAnswer | Thrown, times?: number): void;
    answer(operation: 'IsReady' | 'IsRefreshing', answer: boolean | Thrown, times?: number): void;
    /** false: the refresh does not end at once, and {@link setEndpoints} brings the list later. */
    answer(operation: 'RefreshEndPoints', endsAtOnce: boolean | Thrown, times?: number): void;
    answer(operation: 'GetSelfEndPoint', endpoint: Endpoint | Thrown, times?: number): void;
    answer(operation: 'GetEndPoints', endpoints: Endpoint[] | { count: 0 } | Thrown, times?: number): void;
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
    /** Hands a message to the listeners from a library thread, and returns when the module has taken it. */
    deliver(message: Message): void;
    /** Sets the dispatcher's endpoints and has the adapters rebuild their caches. */
    setEndpoints(endpoints: Endpoint[]): void;
    /** Sets this process's own endpoint; until then it is `self` with what the last adapter was configured with. */
    setSelf(endpoint: Endpoint): void;
}

export interface ControlScript extends Script {
    /**
     * Sets the next answers of an operation, after those set before. Bytes that are not text may be given as a Buffer.
     *
     * @param times How often it is given; may be Infinity.
     * @throws {TypeError} For an answer that the operation cannot give.
     */
    answer(operation: 'SetConfig' | 'SetConfigEx', status: number, times?: number): void;
    answer(operation: 'GetInstance', answer: InstanceAnswer, times?: number): void;
    answer(operation: 'IsAppInstalled' | 'IsAppRunning' | 'IsAppRunningByName', answer: boolean, times?: number): void;
    answer(operation: 'GetAppPath', path: string | Uint8Array | null, times?: number): void;
    answer(operation: 'GetSpecifiers', specifiers: string[], times?: number): void;
    answer(operation: 'GetProcessId', processId: number, times?: number): void;
    /** A launch that holds ends when {@link releaseLaunches} is called. */
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
