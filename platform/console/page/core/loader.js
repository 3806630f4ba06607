// What only one view shows: read when the view opens, and again when an event says that it changed.

import {get, service} from "./service.js";
import {store} from "./store.js";

/** `take(value)` gets the answer, `fail(text)` why there is none. Gives {read, close}. */
export function loader(target, kind, take, fail) {
    let closed = false;

    async function read() {
        try {
            const value = await get(target());
            if (!closed) take(value);
        } catch (error) {
            if (!closed) fail(error.message);
        }
    }

    const onevent = ({detail}) => detail.kind === kind && read();
    const onreach = () => service.reachable && read();
    store.addEventListener("event", onevent);
    service.addEventListener("reach", onreach);
    read();
    return {
        read,
        close() {
            closed = true;
            store.removeEventListener("event", onevent);
            service.removeEventListener("reach", onreach);
        },
    };
}
