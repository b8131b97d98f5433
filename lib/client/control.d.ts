/** Application control, as part of the client. */

import type { Endpoint, Target, WaitOptions } from './index';

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
export function applications(options?: { folder?: string | undefined }): Application[];

export interface LaunchOptions {
    /** Passed to the library, true unless given. */
    focus?: boolean | undefined;
    /** Arguments in one string. */
    args?: string | undefined;
    /** As for {@link applications}. */
    folder?: string | undefined;
    /** Ends the wait with its reason, and does not take the launch back. */
    signal?: AbortSignal | undefined;
}

/**
 * Launches an application, and resolves when the library has done so. Rejects with `ERR_BRIVONJS_NOT_LAUNCHED` when it has
 * not, with the library's error as the `cause` if there is one.
 */
export function launch(specifier: string, options?: LaunchOptions & { waitFor?: undefined }): Promise<void>;
/**
 * The same, and then waits until the target is on the bus, as `whenPresent` of this process's open client.
 *
 * @param options.timeout How long to wait for it after the launch.
 */
export function launch(
    specifier: string,
    options: LaunchOptions & WaitOptions & { waitFor: Target },
): Promise<Endpoint>;
