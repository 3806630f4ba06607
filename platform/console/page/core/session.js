// Who is in: the token, kept for this tab only, and what its role may do. The token stands in no address.

import {ApiError, callWith} from "./http.js";

const KEY = "token";

// What roles may do beside looking, by the operations' names in the API. An administrator may do everything.
const MAY_DO = {operator: ["startContainer", "stopContainer", "restartContainer", "composeStart", "composeStop"]};

export const session = {
    token: sessionStorage.getItem(KEY),
    identity: null, // {name, role}

    /** Whether the role may do something that not everybody may; what it may not do is not shown. */
    may(operation) {
        const role = this.identity?.role;
        return role === "administrator" || Boolean(MAY_DO[role]?.includes(operation));
    },

    keep(token, identity) {
        this.token = token;
        this.identity = identity;
        if (token) sessionStorage.setItem(KEY, token);
    },

    forget() {
        this.token = this.identity = null;
        sessionStorage.removeItem(KEY);
    },
};

/**
 * Who the token (or the client certificate, where it is null) is: {name, role}, or null for nobody. An ApiError of
 * another status than 401 and a connection that fails are thrown.
 */
export async function askIdentity(token) {
    try {
        const {body} = await callWith(token, "GET", "/health", {accept: [503]});
        return body?.identity ?? null;
    } catch (error) {
        if (error instanceof ApiError && error.status === 401) return null;
        throw error;
    }
}
