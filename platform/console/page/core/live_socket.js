// A WebSocket that comes back by itself.

import {BASE} from "./http.js";
import {session} from "./session.js";
import {service} from "./service.js";

const PAUSES = [300, 1000, 2000, 4000, 8000]; // milliseconds before the next attempt

export class LiveSocket {
    #socket = null;
    #timer = 0;
    #failures = 0;
    #closed = false;

    /**
     * `target()` gives the path and query of each attempt, so that it can name where the last one ended. `onmessage`
     * takes parsed messages, `onstate` "open" or "cut", `onrefused` is asked after an attempt that never opened.
     */
    constructor(protocol, target, {onmessage, onstate = () => {}, onrefused = () => {}}) {
        Object.assign(this, {protocol, target, onmessage, onstate, onrefused});
        this.retryNow = () => this.#socket || this.#connect();
        service.addEventListener("reach", (this.onreach = () => (service.reachable ? this.retryNow() : this.#drop())));
        addEventListener("online", this.retryNow);
        this.#connect();
    }

    #connect() {
        clearTimeout(this.#timer);
        if (this.#closed) return;
        const url = new URL(BASE + this.target(), location.href);
        url.protocol = url.protocol.replace("http", "ws");
        const socket = (this.#socket = new WebSocket(url, [
            this.protocol,
            ...(session.token ? [`bearer.${session.token}`] : []),
        ]));
        let opened = false;
        socket.onopen = () => {
            opened = true;
            this.#failures = 0;
            this.onstate("open");
        };
        socket.onmessage = event => this.#socket === socket && this.onmessage(JSON.parse(event.data));
        socket.onclose = () => {
            if (this.#socket !== socket) return;
            this.#socket = null;
            this.#again();
            if (opened) this.onstate("cut");
            else this.onrefused();
        };
    }

    #again() {
        const pause = PAUSES[Math.min(this.#failures++, PAUSES.length - 1)];
        this.#timer = setTimeout(() => this.#connect(), pause * (0.8 + 0.4 * Math.random()));
    }

    /** A connection that nothing moves on any more is given up, not waited for. */
    #drop() {
        const socket = this.#socket;
        if (!socket) return;
        this.#socket = null;
        socket.close();
        this.#again();
        this.onstate("cut");
    }

    close() {
        this.#closed = true;
        clearTimeout(this.#timer);
        service.removeEventListener("reach", this.onreach);
        removeEventListener("online", this.retryNow);
        const socket = this.#socket;
        this.#socket = null;
        socket?.close();
    }
}
