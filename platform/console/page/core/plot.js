// A little plot of the last minutes, with its latest value in words.

import {h, setText, svg} from "./dom.js";

const WIDTH = 240,
    HEIGHT = 56;

export class Plot {
    #values = []; // [milliseconds, value or NaN]

    /** `format` words a value; `span` is how many milliseconds are seen; `ceiling` is the least height of the scale. */
    constructor(title, {format, span = 180_000, ceiling = 0}) {
        Object.assign(this, {title, format, span, ceiling});
        this.line = svg("path", {class: "plot-line"});
        this.area = svg("path", {class: "plot-area"});
        this.value = h("strong.plot-value", "–");
        this.note = h("span.plot-note");
        this.drawing = svg(
            "svg",
            {
                class: "plot",
                viewBox: `0 0 ${WIDTH} ${HEIGHT}`,
                preserveAspectRatio: "none",
                role: "img",
                "aria-label": title,
            },
            svg("path", {class: "plot-grid", d: `M0 ${HEIGHT / 2}H${WIDTH}M0 ${HEIGHT - 0.5}H${WIDTH}`}),
            this.area,
            this.line,
        );
        this.element = h("figure.card.plot-card", h("figcaption", title, this.value), this.drawing, this.note);
    }

    add(time, value, note = "") {
        this.#values.push([time, value]);
        while (this.#values[0][0] < time - this.span) this.#values.shift();
        const known = this.#values.filter(([, one]) => Number.isFinite(one));
        const most = Math.max(this.ceiling, ...known.map(([, one]) => one)) * 1.1 || 1;
        const points = known.map(([at, one]) => [
            WIDTH * (1 - (time - at) / this.span),
            (HEIGHT - 2) * (1 - one / most) + 1,
        ]);
        const path = points.map(([x, y]) => `${x.toFixed(1)} ${y.toFixed(1)}`).join("L");
        this.line.setAttribute("d", path ? `M${path}` : "");
        this.area.setAttribute(
            "d",
            path ? `M${points[0][0].toFixed(1)} ${HEIGHT}L${path}L${points.at(-1)[0].toFixed(1)} ${HEIGHT}Z` : "",
        );
        const text = Number.isFinite(value) ? this.format(value) : "–";
        setText(this.value, text);
        setText(
            this.note,
            note || (known.length > 1 ? `at most ${this.format(Math.max(...known.map(([, one]) => one)))}` : ""),
        );
        this.drawing.setAttribute("aria-label", `${this.title}: ${text}`);
    }
}
