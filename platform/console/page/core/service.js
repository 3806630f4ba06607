// The service as the views use it: requests with the session's token, and whether it can be reached at all.

import {ApiError, callWith, ConnectionError} from "./http.js";
import {session} from "./session.js";

/** Events of this object: "reach" when the service was lost or came back, "refused" when the token no longer opens. */
export const service = new EventTarget();
service.reachable = true;
service.lostAt = NaN; // milliseconds of the epoch

function setReachable(reachable) {
    if (service.reachable === reachable) return;
    service.reachable = reachable;
    if (!reachable) service.lostAt = Date.now();
    service.dispatchEvent(new Event("reach"));
}

export async function call(method, target, options) {
    const token = session.token;
    try {
        const answer = await callWith(token, method, target, options);
        setReachable(true);
        return answer;
    } catch (error) {
        setReachable(!(error instanceof ConnectionError));
        if (error instanceof ApiError && error.status === 401 && token === session.token)
            service.dispatchEvent(new Event("refused"));
        throw error;
    }
}

export const get = async target => (await call("GET", target)).body;
