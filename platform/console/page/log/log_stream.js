// The log of a container as it grows: goes on where it was after a cut or a pause, and says so where something is missing.

import {path} from "../core/http.js";
import {bytes, visible} from "../core/format.js";
import {LiveSocket} from "../core/live_socket.js";

export class LogStream {
    #socket = null;
    #cursor = "";
    #state = "";

    /** Entries and notes go to `buffer`; `onchange` is told when there are new ones or the connection is another. */
    constructor(name, buffer, tail, {onchange, onrefused}) {
        Object.assign(this, {name, buffer, tail, onchange, onrefused});
        this.connection = "opening"; // "open", "cut", "paused", "ended"
        this.resume();
    }

    #target() {
        return (
            path`/containers/${this.name}/log-entries/ws` +
            (this.#cursor ? `?cursor=${encodeURIComponent(this.#cursor)}` : `?tail=${this.tail}`)
        );
    }

    #connectionIs(connection) {
        this.connection = connection;
        this.onchange();
    }

    #take(message) {
        if (message.entries) this.buffer.addEntries(message.entries);
        if (message.gap)
            this.buffer.addNote(
                "gap",
                `${message.gap.bytes === null ? "Some of the log" : bytes(message.gap.bytes)} missing here: ${visible(message.gap.reason)}`,
            );
        if (message.cursor) this.#cursor = message.cursor;
        if (message.state) this.#takeState(message.state, message.exitCode);
        this.onchange();
    }

    #takeState(state, exitCode) {
        const text =
            state === "running"
                ? "The container runs"
                : state === "removed"
                  ? "The container was removed"
                  : `The container has exited with code ${exitCode}`;
        if (text !== this.#state) this.buffer.addNote("state", text); // said again at each connection
        this.#state = text;
        if (state === "removed") this.end();
    }

    /** There is no more of this log. */
    end() {
        this.#end("ended");
    }

    /** Begins with a new container of the same name. */
    restart() {
        this.#cursor = this.connection = "";
        this.resume();
    }

    #end(connection) {
        this.#socket?.close();
        this.#socket = null;
        this.#connectionIs(connection);
    }

    /** Takes nothing more until `resume`, which goes on from here. */
    pause() {
        if (this.#socket) this.#end("paused");
    }

    resume() {
        if (this.#socket || this.connection === "ended") return;
        this.#socket = new LiveSocket("kx.entries.v1", () => this.#target(), {
            onmessage: message => this.#take(message),
            onstate: state => this.#connectionIs(state),
            onrefused: () => this.onrefused(),
        });
        this.#connectionIs("opening");
    }

    close() {
        this.#socket?.close();
        this.#socket = null;
        this.onchange = () => {};
    }
}
