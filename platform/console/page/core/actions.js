// What an operator does to containers.

import {path} from "./http.js";
import {confirm, failed, succeeded} from "./dialog.js";
import {button, h} from "./dom.js";
import {call} from "./service.js";
import {session} from "./session.js";
import {inspectLater, store} from "./store.js";

/** What is under way, by the container's id: "Stopping…". */
export const busy = new Map();

const STOP_SECONDS = 10;
const runs = container => ["running", "paused", "restarting", "stopping"].includes(container.state);

// `fits` is whether the action makes sense in the container's state.
const ACTIONS = {
    start: {
        operation: "startContainer",
        label: "Start",
        doing: "Starting…",
        done: "started",
        fits: container => !runs(container),
        request: name => ["POST", path`/containers/${name}/start`],
    },
    stop: {
        operation: "stopContainer",
        label: "Stop",
        doing: "Stopping…",
        done: "stopped",
        fits: runs,
        request: name => ["POST", path`/containers/${name}/stop` + `?timeout=${STOP_SECONDS}`],
    },
    restart: {
        operation: "restartContainer",
        label: "Restart",
        doing: "Restarting…",
        done: "restarted",
        fits: runs,
        request: name => ["POST", path`/containers/${name}/restart` + `?timeout=${STOP_SECONDS}`],
    },
    remove: {
        operation: "deleteContainer",
        label: "Delete",
        doing: "Deleting…",
        done: "deleted",
        fits: () => true,
        kind: "danger",
        request: (name, container) => ["DELETE", path`/containers/${name}` + (runs(container) ? "?force=true" : "")],
        question: container => ({
            title: `Delete container ${container.name}?`,
            action: "Delete",
            text:
                (runs(container) ? "It is running: it will be killed. " : "") +
                "What it wrote inside itself is lost; volumes and its image stay.",
        }),
    },
};

const changed = () => store.dispatchEvent(new Event("change"));

async function act(action, container) {
    const {question, request, doing, done, label} = ACTIONS[action];
    if (question && !(await confirm(question(container)))) return;
    busy.set(container.id, doing);
    changed();
    try {
        await call(...request(container.name, container), {seconds: 150});
        succeeded(`Container ${container.name} ${done}`);
    } catch (error) {
        failed(`${label} ${container.name}: ${error.message}`);
    }
    busy.delete(container.id);
    inspectLater(container.id);
    changed();
}

/** Buttons for what the role may do; `update(container)` shows those that fit its state. */
export function actionButtons(names, {text = true} = {}) {
    let shown = null;
    const element = h("div.buttons"),
        buttons = new Map();

    function make(name) {
        const made = button(name, ACTIONS[name].label, () => act(name, shown), {text, kind: ACTIONS[name].kind});
        buttons.set(name, made);
        element.append(...names.map(one => buttons.get(one)).filter(Boolean));
        return made;
    }

    return {
        element,
        update(container) {
            shown = container;
            for (const name of names) {
                const fits = ACTIONS[name].fits(container) && session.may(ACTIONS[name].operation);
                if (!fits && !buttons.has(name)) continue; // of hundreds of containers, most never need most of them
                const one = buttons.get(name) ?? make(name);
                one.hidden = !fits;
                one.disabled = busy.has(container.id);
                if (!text) one.setAttribute("aria-label", `${ACTIONS[name].label} ${container.name}`);
            }
        },
    };
}
