/**
 * A native module that puts a thin face on two libraries of a desktop suite: its messaging bus and its application
 * control. Everything here is called on the JavaScript thread, and listeners and callbacks are called there too.
 */

/**
 * Hears application messages, with `this` undefined; what it returns is ignored.
 *
 * It must not throw: the runtime drops the exception with a warning, and the message's memory is lost.
 *
 * @param type The full type, prefix included, such as `brivon.SuiteMessage.ping`. {@link BrivonAdapter.sendMessage} takes
 *   types without the prefix.
 * @param payload The payload, which may hold NUL characters.
 * @param appId The sending application's id, as the message carries it.
 * @param appVersion The sending application's version, as the message carries it.
 * @param sourceId The id of the endpoint that has sent the message.
 */
export type MessageListener = (
    type: string,
    payload: string,
    appId: string,
    appVersion: string,
    sourceId: string,
) => unknown;

/**
 * Hears errors of the bus, such as a destination that could not be reached; like a {@link MessageListener} otherwise.
 *
 * @param type The library's type of error messages.
 * @param error What went wrong.
 * @param fault What it went wrong with. The stand-in names an unreachable destination by its endpoint text.
 */
export type ErrorListener = (type: string, error: string, fault: string) => unknown;

/**
 * An endpoint as text: `{appId,appVersion,id}`, nothing quoted or escaped. A field that itself holds a comma or a brace
 * makes the text ambiguous.
 */
export type EndpointText = string;

/**
 * One endpoint on the messaging bus.
 *
 * An adapter lives until it is collected; there is no `close`. Keep a reference to one for as long as it listens, or call
 * {@link removeAllListeners} before dropping it. A top-level `const` is no such reference, since the runtime drops what no
 * later code uses: put the adapter on `globalThis`, export it, or use it in a listener. The collection of any adapter
 * silences the listeners and the diagnostic log of all adapters of the process.
 */
export class BrivonAdapter {
    /**
     * Configures the library, takes its dispatcher, and asks for the endpoints. Blocks the thread meanwhile: up to ten
     * minutes while the library asks to be tried again, then up to a second for readiness and one for the endpoints.
     * A library that refuses ends the process with the assertion `brivon_`.
     *
     * @param first First configuration string; the stand-in takes it as this program's application id.
     * @param second Second configuration string; the stand-in takes it as this program's version.
     * @param defaultAppId The application that messages go to unless they name another; `''` by default.
     * @throws {TypeError} With fewer than two arguments: "Wrong number of arguments".
     * @throws {Error} For an argument that is not a string: "A string was expected".
     */
    constructor(first: string, second: string);
    constructor(first: string, second: string, defaultAppId: string);

    /**
     * Sends a message: to one endpoint when application, version and endpoint id are all given; else to the cached
     * endpoints of the application, narrowed by version where one has it; else, when none is cached, to everyone.
     *
     * A failed send is not reported: the endpoint list is refreshed soon after a refusal, and the error listener hears
     * what the library has to say, if anything. A NUL character ends a string here.
     *
     * @param type The type without the prefix "brivon.SuiteMessage.".
     * @param payload Any text.
     * @param appId The application; `''` or nothing means the constructor's `defaultAppId`.
     * @param appVersion The version to narrow by.
     * @param endpointId The endpoint; counts only beside an application and a version.
     * @throws {TypeError} With fewer than two arguments, or when any argument is not a string.
     */
    sendMessage(type: string, payload: string): 'Sent';
    sendMessage(type: string, payload: string, appId: string): 'Sent';
    sendMessage(type: string, payload: string, appId: string, appVersion: string): 'Sent';
    sendMessage(type: string, payload: string, appId: string, appVersion: string, endpointId: string): 'Sent';

    /**
     * Makes the listener the one that hears the messages of every adapter of the process, in place of an earlier one, and
     * has this adapter hear messages. Keeps the process alive from then on, even after {@link removeAllListeners}.
     *
     * @param listener Called on the JavaScript thread, with `this` undefined.
     * @throws {TypeError} Without an argument: "Wrong number of arguments".
     * @throws {Error} For anything but a function: "Invalid argument".
     */
    addMessageListener(listener: MessageListener): undefined;

    /**
     * The same for errors of the bus. Messages and errors are not in order with each other.
     *
     * @param listener As that of {@link addMessageListener}.
     */
    addErrorListener(listener: ErrorListener): undefined;

    /** This program's endpoint, as the dispatcher says now. */
    getSelfEndpoint(): EndpointText;

    /** The endpoints that the dispatcher knows now, in its order. */
    getEndpoints(): EndpointText[];

    /** The endpoints that sends choose from: by application id, and in the order of their arrival under one. */
    getEndpointCacheSnapshot(): EndpointText[];

    /** Asks for a new endpoint list, which reaches the cache later. */
    forceRefreshEndpoints(): null;

    /** Writes diagnostic lines to standard output from now on, which cannot be undone, whatever the arguments. */
    setVerboseLogging(): null;

    /** Silences the listeners of every adapter of the process, and has this adapter hear nothing more. */
    removeAllListeners(): undefined;
}

/**
 * Told how a launch ended: `(undefined, launched)` when the library answered, called without `this`; `(error)` alone when
 * it failed. An exception that it throws is an uncaught one.
 *
 * @param error What the library has thrown, if it has.
 * @param launched The library's answer; absent beside an error.
 */
export type LaunchCallback = (error: Error | undefined, launched: boolean) => unknown;

/**
 * What is known of suite applications, and launching them. Target specifiers are the library's: the stand-in takes the
 * name of a program in the library path's folder. A NUL character ends a string here.
 *
 * Every method but {@link launchApp} blocks the thread while the library answers.
 */
export class BrivonControlAdapter {
    /**
     * Configures the library with the path of {@link _setLibraryPath} and takes its controller; arguments are ignored. A
     * library that refuses ends the process with the assertion `_brivon`.
     */
    constructor();

    /**
     * The target specifiers that the library knows, in its order.
     *
     * @throws {TypeError} With any argument: "Wrong number of arguments".
     */
    getSpecifiers(): string[];

    /**
     * Whether the application is installed.
     *
     * @param targetSpecifier The application, by the library's name for it; so in all that follows.
     * @throws {TypeError} Unless there is one argument, a string; so do the other queries.
     */
    isAppInstalled(targetSpecifier: string): boolean;

    /** Whether the application is running. */
    isAppRunning(targetSpecifier: string): boolean;

    /**
     * Whether an application of that name is running.
     *
     * @param targetSpecifier A name; the stand-in takes the file name of a program in any folder.
     */
    isAppRunningByName(targetSpecifier: string): boolean;

    /** The path of the application's executable; `''` when the library has none. */
    getAppPath(targetSpecifier: string): string;

    /**
     * The product version that the application's executable declares in its version resource; null when there is none,
     * whatever the reason. Leaks the version block that it has read: the file's version resource, mostly some kilobytes.
     */
    getAppVersion(targetSpecifier: string): string | null;

    /** The process that the application runs as, a 32-bit number as the library gives it; the stand-in has 0 for none. */
    getProcessId(targetSpecifier: string): number;

    /**
     * Launches the application on a thread of the runtime's pool and returns at once. Keep a reference to the adapter
     * until the callback has been called.
     *
     * @param setFocus Passed to the library; the stand-in ignores it.
     * @param cmdLineArgs Arguments in one string; the stand-in splits it as the platform does.
     * @param callback Called once, unless the process ends before.
     * @throws {TypeError} Unless there are four arguments of these types, which are tested in order.
     */
    launchApp(targetSpecifier: string, setFocus: boolean, cmdLineArgs: string, callback: LaunchCallback): undefined;
}

/**
 * Sets the folder that the control library is configured with, for every {@link BrivonControlAdapter} constructed from
 * now on.
 *
 * @param path The folder; `''` until it is set.
 * @throws {TypeError} Without an argument: "Wrong number of arguments".
 * @throws {Error} For an argument that is not a string: "A string was expected". The path stays as it was.
 */
export function _setLibraryPath(path: string): null;
