// A glance at the end of a log.

import {path} from "../core/http.js";
import {LiveSocket} from "../core/live_socket.js";
import {LogBuffer} from "./log_buffer.js";

const LINES = 4;
const PATIENCE = 4000,
    QUIET = 250; // milliseconds: in all, and after the first lines

/** Resolves to the last lines that a container wrote, "" when there are none. */
export function lastLines(name) {
    return new Promise(resolve => {
        const buffer = new LogBuffer();
        let quiet = 0;
        const end = () => {
            socket.close();
            clearTimeout(quiet);
            clearTimeout(patience);
            resolve(
                buffer.lines
                    .slice(-LINES)
                    .map(({text}) => text)
                    .join("\n"),
            );
        };
        const patience = setTimeout(end, PATIENCE);
        const socket = new LiveSocket(
            "kx.entries.v1",
            () => path`/containers/${name}/log-entries/ws` + `?tail=${LINES}`,
            {
                onmessage({entries}) {
                    if (!entries) return;
                    buffer.addEntries(entries);
                    quiet ||= setTimeout(end, QUIET);
                },
                onrefused: end,
            },
        );
    });
}
