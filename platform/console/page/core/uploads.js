// Files on their way to the service. They go on while the operator looks elsewhere.

import {BASE, errorOf} from "./http.js";
import {session} from "./session.js";

/** Event "change" whenever an upload moved. */
export const uploads = new EventTarget();
uploads.list = []; // {id, target, name, size, sent, rate, state: "sending", "storing", "done", "failed" or "cancelled", reason}

let count = 0;
const SMOOTHING = 3000; // milliseconds over which the speed is taken

const changed = () => uploads.dispatchEvent(new Event("change"));

/** Sends a file; resolves to whether the service took it. */
export function upload(target, file) {
    const request = new XMLHttpRequest(); // fetch does not tell how far it is
    const item = {
        id: ++count,
        target,
        name: file.name,
        size: file.size,
        sent: 0,
        rate: NaN,
        state: "sending",
        reason: "",
        cancel: () => request.abort(),
    };
    uploads.list.unshift(item);
    const marks = [[performance.now(), 0]];

    function move(sent) {
        const now = performance.now();
        item.sent = Math.min(sent, item.size);
        marks.push([now, sent]);
        while (marks.length > 2 && marks[1][0] < now - SMOOTHING) marks.shift();
        const [at, before] = marks[0];
        if (now - at > 200) item.rate = ((sent - before) * 1000) / (now - at);
        changed();
    }

    return new Promise(resolve => {
        function end(state, reason = "") {
            Object.assign(item, {state, reason});
            changed();
            resolve(state === "done");
        }

        request.upload.onprogress = event => move(event.loaded);
        request.upload.onload = () => {
            item.sent = item.size;
            item.state = "storing";
            changed();
        };
        request.onload = () => {
            if (request.status < 300) return end("done");
            end("failed", errorOf(request.status, request.responseText).message);
        };
        request.onerror = () =>
            end("failed", "The connection was cut before the service answered. Nothing was stored; try again.");
        request.onabort = () => end("cancelled");
        request.open("POST", BASE + target);
        if (session.token) request.setRequestHeader("Authorization", `Bearer ${session.token}`);
        request.setRequestHeader("Content-Type", "application/octet-stream");
        request.setRequestHeader(
            "Content-Disposition",
            `attachment; filename*=UTF-8''${encodeURIComponent(file.name).replace(
                /['()*]/g,
                character => `%${character.charCodeAt(0).toString(16).toUpperCase()}`,
            )}`,
        );
        request.send(file);
        changed();
    });
}

export const isActive = ({state}) => state === "sending" || state === "storing";

export function forget(item) {
    uploads.list = uploads.list.filter(other => other !== item);
    changed();
}

/** Ends what is under way, and forgets all. */
export function cancelAll() {
    uploads.list.filter(isActive).forEach(item => item.cancel());
    uploads.list = [];
}

addEventListener("beforeunload", event => uploads.list.some(isActive) && event.preventDefault());
