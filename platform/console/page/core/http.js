// Requests of the service. An answer that is no success is an ApiError with the service's own words.

export const BASE = "/api/cre/v1.0";

/** What the service answered. `detail` is for people. */
export class ApiError extends Error {
    constructor(status, detail, retryAfter = 0) {
        super(detail);
        this.status = status;
        this.retryAfter = retryAfter; // seconds
    }
}

/** The service cannot be reached. */
export class ConnectionError extends Error {
    constructor() {
        super("The service cannot be reached");
    }
}

/** A path out of literal parts and names: path`/containers/${name}/stop`. */
export const path = (parts, ...names) => String.raw({raw: parts}, ...names.map(encodeURIComponent));

export function errorOf(status, text, retryAfter) {
    let problem = null;
    try {
        problem = JSON.parse(text);
    } catch {
        // not from the service itself
    }
    return new ApiError(
        status,
        problem?.detail || problem?.title || `The service answered ${status}`,
        Number(retryAfter) || 0,
    );
}

/**
 * One request; gives {status, body}, the body parsed where it is JSON. `json` is sent as the body; `accept` names
 * statuses that count as success beside 2xx and 304.
 */
export async function callWith(token, method, target, {json, accept = [], seconds = 30} = {}) {
    const headers = {};
    if (token) headers.Authorization = `Bearer ${token}`;
    if (json !== undefined) headers["Content-Type"] = "application/json";
    const limit = seconds ? AbortSignal.timeout(seconds * 1000) : undefined;
    let response, text;
    try {
        response = await fetch(BASE + target, {
            method,
            headers,
            body: json === undefined ? undefined : JSON.stringify(json),
            signal: limit,
            cache: "no-store",
            credentials: "same-origin",
            redirect: "error",
        });
        text = await response.text();
    } catch {
        throw new ConnectionError();
    }
    if (!response.ok && response.status !== 304 && !accept.includes(response.status))
        throw errorOf(response.status, text, response.headers.get("Retry-After"));
    return {
        status: response.status,
        body: text && response.headers.get("Content-Type")?.includes("json") ? JSON.parse(text) : text,
    };
}
