// The log on the screen: as many rows as fit, drawn once a frame, whatever the log brings.

import {button, h, icon, oncePerFrame, setText, show} from "../core/dom.js";
import {clock, number, plural} from "../core/format.js";
import {LogBuffer, LogSelection} from "./log_buffer.js";
import {LogStream} from "./log_stream.js";

const ROW = 18; // pixels, as in the style sheet
const SPARE_ROWS = 6; // above and below what is seen
const TAIL = 1000; // lines of the past to begin with
const LABEL = {out: "", err: "err", gap: "gap", state: ""};

/** One line on the screen; filled anew when it is to show another. */
class Row {
    #shown = null;

    constructor() {
        this.time = h("span.time");
        this.stream = h("span.stream");
        this.text = h("span.text");
        this.element = h("div.line", this.time, this.stream, this.text);
    }

    fill(top, line, number, query, selected) {
        this.element.style.transform = `translateY(${top}px)`;
        const shown = `${number} ${line.text.length} ${query} ${selected}`;
        if (shown === this.#shown) return;
        this.#shown = shown;
        this.number = number;
        this.element.className = `line ${line.kind}${selected ? " selected" : ""}`;
        this.time.textContent = Number.isFinite(line.time) ? clock(line.time, true) : "";
        this.stream.textContent = LABEL[line.kind];
        if (query) this.text.replaceChildren(...marked(line.text, query));
        else this.text.textContent = line.text;
    }
}

function marked(text, query) {
    const parts = [],
        lower = text.toLowerCase();
    let from = 0;
    for (let at = lower.indexOf(query); at >= 0 && parts.length < 200; at = lower.indexOf(query, from)) {
        parts.push(text.slice(from, at), h("mark", text.slice(at, at + query.length)));
        from = at + query.length;
    }
    return [...parts, text.slice(from)];
}

export class LogView {
    #buffer = new LogBuffer();
    #selection = new LogSelection(this.#buffer);
    #rows = [];
    #follows = true;
    #paused = false; // by the operator, not because the screen is held elsewhere
    #current = -1; // number of the selected line
    #top = {number: 0, offset: 0, first: 0}; // the line at the upper edge, and the buffer's oldest one then
    #height = 0; // of the pane, in pixels
    #rate = {total: 0, at: performance.now(), perSecond: 0};

    constructor(name, onrefused) {
        this.render = oncePerFrame(() => this.#draw());
        this.#build(name);
        this.stream = new LogStream(name, this.#buffer, TAIL, {onchange: this.render, onrefused});
        this.timer = setInterval(() => this.#measure(), 1000);
        this.resized = new ResizeObserver(this.render);
        this.resized.observe(this.pane);
    }

    #build(name) {
        this.inner = h("div.lines");
        this.pane = h(
            "div.log-pane",
            {
                role: "log",
                "aria-live": "off",
                tabindex: 0,
                "aria-label": `Log of ${name}; arrow keys read line by line`,
            },
            this.inner,
        );
        this.pane.addEventListener("scroll", () => this.#scrolled(), {passive: true});
        this.pane.addEventListener("keydown", event => this.#key(event));
        this.inner.addEventListener("click", event => this.#clicked(event));
        this.search = h("input", {
            type: "search",
            placeholder: "Search",
            "aria-label": "Search the log",
            autocomplete: "off",
            spellcheck: "false",
            oninput: () => this.#choose({query: this.search.value}),
            onkeydown: event => this.#searchKey(event),
        });
        this.found = h("span.found", {role: "status"});
        this.previous = button("up", "Previous match", () => this.#goTo(this.#selection.matchBefore(this.#current)), {
            text: false,
        });
        this.next = button("down", "Next match", () => this.#goTo(this.#selection.matchAfter(this.#current)), {
            text: false,
        });
        this.pauseButton = button("pause", "Pause", () => this.#pause(!this.#paused), {"aria-pressed": "false"});
        this.endButton = button("down", "To the end", () => this.#toEnd());
        this.status = h("p.log-status");
        this.line = h("div.line-detail", {role: "status"});
        this.element = h(
            "section.log",
            {"aria-label": "Log"},
            h(
                "div.toolbar",
                {role: "group", "aria-label": "Log tools"},
                h("span.search", icon("search"), this.search),
                this.found,
                this.previous,
                this.next,
                check("Only matches", checked => this.#choose({onlyMatches: checked})),
                check("Only stderr", checked => this.#choose({onlyErrors: checked})),
                h("span.space"),
                this.endButton,
                this.pauseButton,
                button("save", "Save what is held", () => this.#save(name), {text: false}),
            ),
            this.pane,
            show(this.line, false),
            this.status,
        );
    }

    #choose(choice) {
        this.#selection.choose(choice);
        this.#top.first = -1;
        this.render();
    }

    /** What may be dropped while the operator reads further up is not taken in the first place. */
    #draw() {
        const {pane, inner} = this;
        this.#selection.catchUp();
        if (!this.#follows && this.#buffer.isFull) this.stream.pause();
        const count = this.#selection.length;
        inner.style.height = `${count * ROW}px`;
        if (this.#follows) pane.scrollTop = count * ROW;
        else if (this.#top.first !== this.#buffer.first)
            pane.scrollTop = this.#selection.indexOf(this.#top.number) * ROW + this.#top.offset;
        this.#remember();
        const height = (this.#height = pane.clientHeight);
        const begin = Math.max(0, Math.floor(pane.scrollTop / ROW) - SPARE_ROWS);
        const shown = Math.min(count - begin, Math.ceil(height / ROW) + 2 * SPARE_ROWS);
        while (this.#rows.length < shown) {
            const row = new Row();
            this.#rows.push(row);
            inner.append(row.element);
        }
        this.#rows.forEach((row, at) => {
            row.element.hidden = at >= shown;
            if (at >= shown) return;
            const number = this.#selection.numberAt(begin + at);
            row.fill(
                (begin + at) * ROW,
                this.#buffer.at(number),
                number,
                this.#selection.query,
                number === this.#current,
            );
        });
        this.#tell(count);
    }

    #remember() {
        const {scrollTop} = this.pane;
        const index = Math.min(Math.floor(scrollTop / ROW), Math.max(0, this.#selection.length - 1));
        this.#top = {
            number: this.#selection.numberAt(index) ?? 0,
            offset: scrollTop - index * ROW,
            first: this.#buffer.first,
        };
    }

    #tell(count) {
        const {connection} = this.stream;
        const how =
            connection === "open"
                ? this.#follows
                    ? "following"
                    : "open, the view is held"
                : {
                      opening: "opening",
                      cut: "connection cut, trying again",
                      ended: "ended",
                      paused: this.#paused
                          ? "paused: goes on where it stopped"
                          : "held while you read: goes on at the end",
                  }[connection];
        const held = this.#buffer.lines.length;
        setText(
            this.status,
            `${plural(held, "line")}${this.#buffer.first ? ` of ${number(this.#buffer.total)}, older ones dropped` : ""}` +
                `${count !== held ? `, ${number(count)} shown` : ""} · ${number(this.#rate.perSecond)} lines/s · ${how}`,
        );
        const {query, matches} = this.#selection;
        setText(this.found, query ? plural(matches.length, "match", "matches") : "");
        this.previous.disabled = this.next.disabled = !matches.length;
        this.endButton.hidden = this.#follows;
        this.element.classList.toggle("is-cut", connection === "cut");
    }

    #measure() {
        const now = performance.now(),
            {total, at} = this.#rate;
        this.#rate = {
            total: this.#buffer.total,
            at: now,
            perSecond: ((this.#buffer.total - total) * 1000) / (now - at),
        };
        this.render();
    }

    #scrolled() {
        const {pane} = this;
        if (pane.clientHeight !== this.#height) return this.render(); // the pane has another size; nobody has scrolled
        this.#follows = pane.scrollHeight - pane.scrollTop - pane.clientHeight < 2 * ROW;
        if (this.#follows && !this.#paused) this.stream.resume();
        if (this.#top.first === this.#buffer.first) this.#remember();
        this.render();
    }

    #pause(paused) {
        this.#paused = paused;
        this.pauseButton.setAttribute("aria-pressed", String(paused));
        setText(this.pauseButton.lastChild, paused ? "Go on" : "Pause");
        if (paused) this.stream.pause();
        else this.#toEnd();
    }

    #toEnd() {
        this.#follows = true;
        if (!this.#paused) this.stream.resume();
        this.render();
    }

    #select(number) {
        const line = this.#buffer.at(number);
        this.#current = line ? number : -1;
        show(this.line, Boolean(line));
        if (line) setText(this.line, `${clock(line.time, true)} ${line.kind === "err" ? "stderr: " : ""}${line.text}`);
        this.render();
    }

    #goTo(number) {
        if (number === undefined) return;
        this.#select(number);
        const top = this.#selection.indexOf(number) * ROW,
            {pane} = this;
        if (top >= pane.scrollTop && top + ROW <= pane.scrollTop + pane.clientHeight) return;
        this.#follows = false;
        pane.scrollTop = top - pane.clientHeight / 2;
    }

    #clicked(event) {
        const element = event.target.closest(".line");
        const row = this.#rows.find(row => row.element === element);
        if (row && getSelection().isCollapsed) this.#select(row.number === this.#current ? -1 : row.number);
    }

    #key(event) {
        const step = {ArrowUp: -1, ArrowDown: 1}[event.key];
        if (event.key === "Escape") this.#select(-1);
        if (!step || !this.#selection.length) return;
        event.preventDefault();
        const {pane} = this;
        const at =
            this.#current >= 0
                ? this.#selection.indexOf(this.#current) + step
                : Math.floor((pane.scrollTop + pane.clientHeight) / ROW) - 1;
        const index = Math.min(Math.max(at, 0), this.#selection.length - 1);
        this.#goTo(this.#selection.numberAt(index));
    }

    #searchKey(event) {
        if (event.key !== "Enter") return;
        event.preventDefault();
        const from = this.#current >= 0 ? this.#current : this.#buffer.end;
        this.#goTo(event.shiftKey ? this.#selection.matchAfter(from) : this.#selection.matchBefore(from));
    }

    #save(name) {
        const url = URL.createObjectURL(new Blob(this.#buffer.toText(), {type: "text/plain"}));
        h("a", {href: url, download: `${name}.log`}).click();
        setTimeout(() => URL.revokeObjectURL(url), 10_000);
    }

    close() {
        this.stream.close();
        clearInterval(this.timer);
        this.resized.disconnect();
    }
}

function check(label, onchange) {
    const input = h("input", {type: "checkbox", onchange: () => onchange(input.checked)});
    return h("label.check", input, label);
}
