// Who did what: the kept record, latest first.

import {button, h, icon, row, setText, show, table} from "../core/dom.js";
import {dateTime, moment, number, plural, visible} from "../core/format.js";
import {loader} from "../core/loader.js";

const PAGE = 200;

function makeRow({time, peer, identity, role, method, route, name, status, milliseconds}) {
    const kind = status >= 500 ? "bad" : status >= 400 ? "warning" : "ok";
    return {
        element: row(
            [
                ["col-since", dateTime(moment(time))],
                ["col-state", h(`span.state.${kind}`, icon(kind), String(status))],
                ["col-name", visible(identity || "–")],
                ["col-id", visible(role ?? "")],
                ["col-route", h("code", visible(`${method} ${route}`.trim() || "–"))],
                ["col-image", visible(name || "")],
                ["col-id", visible(peer)],
                ["col-number", `${number(milliseconds ?? 0)} ms`],
            ],
            2,
        ),
    };
}

export function auditView() {
    let entries = new Map(); // by seq
    let from = null; // the record is read behind this one
    const list = table(
        "Audit record",
        [
            ["col-since", "Time"],
            ["col-state", "Status"],
            ["col-name", "Identity"],
            ["col-id", "Role"],
            ["col-route", "Request"],
            ["col-image", "Name"],
            ["col-id", "Peer"],
            ["col-number", "Took"],
        ],
        entry => entry.seq,
        makeRow,
    );
    const search = h("input", {
        type: "search",
        placeholder: "Identity, request, name or peer",
        "aria-label": "Filter the record",
        autocomplete: "off",
        oninput: update,
    });
    const empty = h("p.empty", "Reading…"),
        found = h("p.hint", {role: "status"});
    const older = button("down", "Older ones", () => {
        from = Math.max(0, from - PAGE);
        record.read();
    });
    // The newest number is not known before the record was asked once.
    const record = loader(
        () => `/audit?after=${from ?? 0}&limit=${from === null ? 1 : PAGE}`,
        "",
        body => {
            if (from === null) {
                from = Math.max(0, body.last - PAGE);
                return record.read();
            }
            for (const entry of body.entries) entries.set(entry.seq, entry);
            update();
        },
        text => {
            show(empty, true);
            setText(empty, text);
        },
    );

    function update() {
        const words = search.value.toLowerCase();
        const all = [...entries.values()].sort((a, b) => b.seq - a.seq);
        const shown = all.filter(entry => JSON.stringify(Object.values(entry)).toLowerCase().includes(words));
        list.update(shown);
        show(list.element, shown.length > 0);
        show(empty, !shown.length);
        setText(empty, all.length ? "No entry fits." : "Nothing is recorded yet.");
        setText(found, plural(shown.length, "entry", "entries"));
        show(older, from > 0);
    }

    show(list.element, false);
    show(older, false);
    return {
        title: "Audit",
        close: record.close,
        element: h(
            "div",
            h(
                "header.view-head",
                h("h1", {tabindex: -1}, "Audit"),
                found,
                h("span.space"),
                h("span.search", icon("search"), search),
                button("restart", "Read again", () => {
                    from = null;
                    entries = new Map();
                    record.read();
                }),
            ),
            h("div.card.flush", list.element, empty),
            h("div.buttons.more", older),
        ),
    };
}
