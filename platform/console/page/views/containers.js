// All containers, with their state as it is now.

import {actionButtons, busy} from "../core/actions.js";
import {h, icon, row, setText, show, table} from "../core/dom.js";
import {visible} from "../core/format.js";
import {stateText} from "../core/problems.js";
import {store} from "../core/store.js";

const RUNNING = ["running", "paused", "restarting", "stopping"];
const FAILED = container => !RUNNING.includes(container.state) && container.detail
    && (container.detail.State.ExitCode !== 0 || Boolean(container.detail.State.Error));
const FILTERS = [
    ["all", "All", () => true],
    ["running", "Running", container => RUNNING.includes(container.state)],
    ["ended", "Not running", container => !RUNNING.includes(container.state)],
    ["failed", "Failed", FAILED],
];

/** The state as a mark, a word and, while something is under way, what. */
export function stateMark() {
    const element = h("span.state");
    let shown = "";
    return {
        element,
        update(container) {
            const kind = busy.has(container.id) ? "busy" : container.state === "running" ? container.detail?.State?.Health === "unhealthy" ? "bad" : "ok"
                : FAILED(container) || ["restarting", "dead"].includes(container.state) ? "bad" : "idle";
            const text = busy.get(container.id) ?? visible(container.state);
            if (shown === kind + text) return;
            shown = kind + text;
            element.className = `state ${kind}`;
            element.replaceChildren(icon(kind === "busy" ? "clock" : kind), text);
        },
    };
}

export const containerLink = name => `#/containers/${encodeURIComponent(name)}`;

function makeRow(container) {
    const mark = stateMark();
    const link = h("a", {href: containerLink(container.name)});
    const buttons = actionButtons(["start", "stop", "restart", "remove"], {text: false});
    const image = h("span"), since = h("span"), group = h("span");
    return {
        element: row([["col-state", mark.element], ["col-name", link], ["col-image", image], ["col-since", since],
            ["col-group", group], ["col-actions", h("div.buttons", buttons.elements)]], 1),
        update(item) {
            mark.update(item);
            buttons.update(item);
            setText(link, visible(item.name));
            link.href = containerLink(item.name);
            setText(image, visible(item.image));
            setText(since, stateText(item));
            setText(group, visible(item.detail?.Compose?.File ?? ""));
        },
    };
}

export function containersView() {
    let filter = "all";
    const search = h("input", {type: "search", placeholder: "Name, image or compose file", "aria-label": "Filter containers", autocomplete: "off", oninput: update});
    const choices = FILTERS.map(([name, label]) => {
        const count = h("span.count");
        const input = h("input", {type: "radio", name: "filter", value: name, onchange: () => {
            filter = name;
            update();
        }});
        input.checked = name === filter;
        return {count, element: h("label", input, h("span", label, " ", count))};
    });
    const list = table("Containers", [["col-state", "State"], ["col-name", "Name"], ["col-image", "Image"], ["col-since", "Since"],
        ["col-group", "Compose file"], ["col-actions", "(Actions)"]], container => container.id, makeRow);
    const empty = h("p.empty");
    const found = h("p.unseen", {role: "status"});

    function update() {
        const all = [...store.containers.values()].sort((a, b) => a.name < b.name ? -1 : 1);
        choices.forEach(({count}, at) => setText(count, String(all.filter(FILTERS[at][2]).length)));
        const words = search.value.toLowerCase();
        const shown = all.filter(FILTERS.find(([name]) => name === filter)[2]).filter(({name, image, detail}) =>
            `${name} ${image} ${detail?.Compose?.File ?? ""}`.toLowerCase().includes(words));
        list.update(shown);
        show(list.element, shown.length > 0);
        show(empty, !shown.length);
        setText(empty, !store.loaded ? store.errors.containers ?? "Reading…" : all.length ? "No container fits." : "There are no containers. Upload a compose file, or an image.");
        setText(found, words || filter !== "all" ? `${shown.length} of ${all.length} containers` : "");
    }

    const tick = setInterval(update, 10_000); // what is said in minutes grows old
    return {title: "Containers", update, close: () => clearInterval(tick), element: h("div",
        h("header.view-head", h("h1", {tabindex: -1}, "Containers"),
            h("fieldset.segments", h("legend.unseen", "Show"), choices.map(({element}) => element)),
            h("span.search", icon("search"), search)), found, h("div.card.flush", list.element, empty))};
}
