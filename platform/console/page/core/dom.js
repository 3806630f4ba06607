// Elements out of values. Everything that comes from the network becomes a text node, never markup.

const SVG = "http://www.w3.org/2000/svg";

const isContent = value =>
    typeof value === "string" || typeof value === "number" || value instanceof Node || Array.isArray(value);

function put(element, attributes) {
    for (const [name, value] of Object.entries(attributes)) {
        if (value === undefined || value === null || value === false) continue;
        if (name.startsWith("on")) element.addEventListener(name.slice(2), value);
        else element.setAttribute(name, value === true ? "" : value);
    }
}

/** h("button.quiet", {onclick}, "Stop"): an element with classes, attributes and listeners, and what is in it. */
export function h(selector, attributes, ...content) {
    const [tag, ...classes] = selector.split(".");
    const element = document.createElement(tag);
    if (classes.length) element.classList.add(...classes);
    if (isContent(attributes)) content.unshift(attributes);
    else if (attributes) put(element, attributes);
    element.append(...content.flat(3).filter(isContent));
    return element;
}

export function svg(tag, attributes, ...children) {
    const element = document.createElementNS(SVG, tag);
    put(element, attributes);
    element.append(...children);
    return element;
}

/** Replaces the content only when its text is another, so that a live region is not read out again and a selection stays. */
export function setText(element, text) {
    if (element.textContent !== text) element.textContent = text;
}

/** Shows a node or, with a false `shown`, keeps it away from everybody, screen readers included. */
export function show(element, shown) {
    element.hidden = !shown;
    return element;
}

// Paths on a grid of 16 by 16, drawn as lines.
const ICONS = {
    overview: "M2 9h3l2-5 3 9 2-4h2",
    containers: "M8 1.5 14 5v6l-6 3.5L2 11V5zM2 5l6 3.5L14 5M8 8.5v6",
    images: "M2 10.5 8 14l6-3.5M2 7.5 8 11l6-3.5M8 1.5 14 5 8 8.5 2 5z",
    compose: "M2 2.5h5v4H2zM9 9.5h5v4H9zM4.5 6.5v5H9",
    plugins: "M6 2v3M10 2v3M4 5h8v3a4 4 0 0 1-8 0zM8 12v2.5",
    certificates: "M8 1.5 13.5 4v4c0 3.5-2.5 5.5-5.5 6.5C5 13.5 2.5 11.5 2.5 8V4zM5.5 8l2 2 3-3.5",
    settings: "M2 4.5h6M12 4.5h2M2 11.5h2M8 11.5h6M10 2.7v3.6M6 9.7v3.6",
    audit: "M3.5 1.5h6l3 3v10h-9zM5.5 7h5M5.5 9.5h5M5.5 12h3",
    start: "M4.5 2.5v11l9-5.5z",
    stop: "M3.5 3.5h9v9h-9z",
    restart: "M13 8a5 5 0 1 1-1.5-3.6M13 1.8v3h-3",
    remove: "M2.5 4h11M6 4V2h4v2M4 4l.7 10h6.6L12 4M6.7 6.5v5M9.3 6.5v5",
    log: "M2 3h12v10H2zM4.5 6l2 2-2 2M8 10.5h3.5",
    upload: "M8 11V2.5M4.5 5.5 8 2l3.5 3.5M2.5 10.5v3h11v-3",
    save: "M8 2.5V11M4.5 7.5 8 11l3.5-3.5M2.5 11v2.5h11V11",
    pause: "M5 3v10M11 3v10",
    down: "M8 3v10M3.5 8.5 8 13l4.5-4.5",
    up: "M8 13V3M3.5 7.5 8 3l4.5 4.5",
    menu: "M2 4h12M2 8h12M2 12h12",
    leave: "M6 2.5H2.5v11H6M10 4.5 13.5 8 10 11.5M13 8H6",
    ok: "M3 8.5 6.5 12 13 4.5",
    bad: "M4 4l8 8M12 4l-8 8",
    warning: "M8 2 14.5 13.5h-13zM8 6.5v3.5M8 11.7v.1",
    idle: "M4 8h8",
    clock: "M8 1.8a6.2 6.2 0 1 0 0 12.4A6.2 6.2 0 0 0 8 1.8zM8 4.5V8l2.5 1.5",
    search: "M7 2.5a4.5 4.5 0 1 0 0 9 4.5 4.5 0 0 0 0-9zM10.3 10.3 14 14",
    next: "M6 3.5 10.5 8 6 12.5",
};

const drawings = {};

/** A drawing beside a text that says the same: hidden from screen readers. */
export function icon(name) {
    const drawing = (drawings[name] ??= svg(
        "svg",
        {class: `icon icon-${name}`, viewBox: "0 0 16 16", "aria-hidden": "true", focusable: "false"},
        svg("path", {d: ICONS[name]}),
    ));
    return drawing.cloneNode(true);
}

/** A button with an icon; without `text` the label is for screen readers and the tooltip. */
export function button(name, label, onclick, {kind = "", text = true, ...attributes} = {}) {
    const element = h(
        "button",
        {type: "button", onclick, ...attributes},
        name ? icon(name) : [],
        text ? h("span", label) : [],
    );
    if (kind) element.classList.add(...kind.split(" "));
    if (!text) {
        element.classList.add("bare");
        element.setAttribute("aria-label", label);
        element.title = label;
    }
    return element;
}

/**
 * Children of `parent` that follow a list of items: `make(item)` gives {element, update(item)}; an item keeps its element
 * as long as its key stays, so that focus and selection survive an update.
 */
export function keyedChildren(parent, keyOf, make) {
    const rows = new Map();
    return items => {
        const gone = new Set(rows.keys());
        let place = parent.firstElementChild;
        for (const item of items) {
            const key = keyOf(item);
            gone.delete(key);
            let row = rows.get(key);
            if (!row) rows.set(key, (row = make(item)));
            row.update?.(item);
            if (row.element === place) place = place.nextElementSibling;
            else parent.insertBefore(row.element, place);
        }
        for (const key of gone) {
            rows.get(key).element.remove();
            rows.delete(key);
        }
    };
}

/** A table with a caption for screen readers; `columns` are [class, heading] pairs. Roles are said, as a phone shows rows as cards. */
export function table(caption, columns, keyOf, make) {
    const body = h("tbody", {role: "rowgroup"});
    const heads = columns.map(([name, text]) =>
        h(
            "th",
            {scope: "col", role: "columnheader", class: name},
            text.startsWith("(") ? h("span.unseen", text.slice(1, -1)) : text,
        ),
    );
    const element = h(
        "table",
        {role: "table"},
        h("caption.unseen", caption),
        h("thead", {role: "rowgroup"}, h("tr", {role: "row"}, heads)),
        body,
    );
    return {element, update: keyedChildren(body, keyOf, make)};
}

/** A row for `table`; cells as [class, ...content], the first one is the row's heading if `heading` says so. */
export function row(cells, heading = 0) {
    return h(
        "tr",
        {role: "row"},
        cells.map(([name, ...content], at) =>
            at === heading
                ? h("th", {scope: "row", role: "rowheader", class: name}, content)
                : h("td", {role: "cell", class: name}, content),
        ),
    );
}

/** Runs `work` once in the next animation frame, however often it is asked for. */
export function oncePerFrame(work) {
    let asked = false;
    return () => {
        if (asked) return;
        asked = true;
        requestAnimationFrame(() => {
            asked = false;
            work();
        });
    };
}
