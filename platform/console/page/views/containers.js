// All containers, with their state as it is now.

import {actionButtons, busy} from "../core/actions.js";
import {h, icon, row, setText, show, table} from "../core/dom.js";
import {visible} from "../core/format.js";
import {stateText} from "../core/problems.js";
import {store} from "../core/store.js";

const RUNNING = ["running", "paused", "restarting", "stopping"];
const FAILED = container =>
    !RUNNING.includes(container.state) &&
    container.detail &&
    (container.detail.State.ExitCode !== 0 || Boolean(container.detail.State.Error));
const ROWS_AT_ONCE = 100; // the browser lays out that many at once; more follow as one scrolls
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
            const kind = busy.has(container.id)
                ? "busy"
                : container.state === "running"
                  ? container.detail?.State?.Health === "unhealthy"
                      ? "bad"
                      : "ok"
                  : FAILED(container) || ["restarting", "dead"].includes(container.state)
                    ? "bad"
                    : "idle";
            const text = busy.get(container.id) ?? visible(container.state);
            if (shown === kind + text) return;
            shown = kind + text;
            element.className = `state ${kind}`;
            element.replaceChildren(icon(kind === "busy" ? "clock" : kind), text);
        },
    };
}

export const containerLink = name => `#/containers/${encodeURIComponent(name)}`;

function makeRow() {
    const mark = stateMark();
    const link = h("a");
    const buttons = actionButtons(["start", "stop", "restart", "remove"], {text: false});
    const image = h("span"),
        since = h("span"),
        group = h("span");
    const element = row(
        [
            ["col-state", mark.element],
            ["col-name", link],
            ["col-image", image],
            ["col-since", since],
            ["col-group", group],
            ["col-actions", buttons.element],
        ],
        1,
    );
    return {
        element,
        update({item, isShown}) {
            element.hidden = !isShown;
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
    const search = h("input", {
        type: "search",
        placeholder: "Name, image or compose file",
        "aria-label": "Filter containers",
        autocomplete: "off",
        oninput: update,
    });
    const choices = FILTERS.map(([name, label]) => {
        const count = h("span.count");
        const input = h("input", {
            type: "radio",
            name: "filter",
            value: name,
            onchange: () => {
                filter = name;
                most = ROWS_AT_ONCE;
                update();
            },
        });
        input.checked = name === filter;
        return {count, element: h("label", input, h("span", label, " ", count))};
    });
    const list = table(
        "Containers",
        [
            ["col-state", "State"],
            ["col-name", "Name"],
            ["col-image", "Image"],
            ["col-since", "Since"],
            ["col-group", "Compose file"],
            ["col-actions", "(Actions)"],
        ],
        ({item}) => item.id,
        makeRow,
    );
    const empty = h("p.empty");
    const found = h("p.unseen", {role: "status"}),
        more = h("p.more-rows");
    let most = ROWS_AT_ONCE;
    const lookout = new IntersectionObserver(
        ([entry]) => {
            if (!entry.isIntersecting || !more.textContent) return;
            most += ROWS_AT_ONCE;
            update();
        },
        {rootMargin: "600px"},
    );
    lookout.observe(more);

    function update() {
        const all = [...store.containers.values()].sort((a, b) => (a.name < b.name ? -1 : 1));
        choices.forEach(({count}, at) => setText(count, String(all.filter(FILTERS[at][2]).length)));
        const words = search.value.toLowerCase();
        const fits = FILTERS.find(([name]) => name === filter)[2];
        let shown = 0;
        const rows = all.map(item => ({
            item,
            isShown:
                fits(item) &&
                `${item.name} ${item.image} ${item.detail?.Compose?.File ?? ""}`.toLowerCase().includes(words) &&
                ++shown <= most,
        }));
        list.update(rows); // what is not shown is hidden, not removed: making rows takes longest
        setText(more, shown > most ? `${shown - most} more below` : "");
        show(list.element, shown > 0);
        show(empty, !shown);
        setText(
            empty,
            !store.loaded
                ? (store.errors.containers ?? "Reading…")
                : all.length
                  ? "No container fits."
                  : "There are no containers. Upload a compose file, or an image.",
        );
        setText(found, words || filter !== "all" ? `${shown} of ${all.length} containers` : "");
    }

    const tick = setInterval(update, 10_000); // what is said in minutes grows old
    return {
        title: "Containers",
        update,
        close() {
            clearInterval(tick);
            lookout.disconnect();
        },
        element: h(
            "div",
            h(
                "header.view-head",
                h("h1", {tabindex: -1}, "Containers"),
                h(
                    "fieldset.segments",
                    h("legend.unseen", "Show"),
                    choices.map(({element}) => element),
                ),
                h("span.search", icon("search"), search),
            ),
            found,
            h("div.card.flush", list.element, empty, more),
        ),
    };
}
