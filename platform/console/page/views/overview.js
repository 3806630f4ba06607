// The first view: what is broken, since when, why, and what can be done about it. Then how the target is.

import {actionButtons} from "../core/actions.js";
import {button, h, icon, keyedChildren, setText, show} from "../core/dom.js";
import {bytes, clock, dateTime, duration, moment, plural, visible} from "../core/format.js";
import {problemsOf} from "../core/problems.js";
import {service} from "../core/service.js";
import {store} from "../core/store.js";
import {lastLines} from "../log/last_lines.js";
import {containerLink} from "./containers.js";
import {volumeBars} from "./images.js";

const GLANCES = 6; // problems whose last lines are shown unasked
const ACTIVITY_SHOWN = 12;
const VIEWS = {images: "Go to images", certificates: "Go to certificates", settings: "Go to settings"};

const dismissed = new Set(); // keys of problems; a new end of the same container is a new problem
let glances = 0;

function makeProblem(problem) {
    const {container, level, view, actions, key} = problem;
    const since = h("span.since"),
        reason = h("p.reason"),
        title = h("span");
    const buttons = container ? actionButtons(actions) : null;
    const lines = h("pre.glance", {tabindex: 0, "aria-label": `Last lines of ${container?.name}`});
    if (container && glances++ < GLANCES)
        lastLines(container.name).then(text => {
            show(lines, Boolean(text));
            setText(lines, text);
        });
    show(lines, false);
    const links = container
        ? [h("a.button", {href: containerLink(container.name)}, icon("log"), h("span", "Log and details"))]
        : view
          ? [h("a.button", {href: `#/${view}`}, VIEWS[view])]
          : [];
    const element = h(
        `li.card.problem.${level}`,
        h(
            "div.problem-mark",
            icon(level === "bad" ? "bad" : "warning"),
            h("span.unseen", level === "bad" ? "Broken:" : "Warning:"),
        ),
        h(
            "div.problem-text",
            h("h3", container ? h("a", {href: containerLink(container.name)}, visible(container.name)) : [], title),
            since,
            reason,
            lines,
        ),
        h("div.buttons", buttons?.element ?? [], links),
        container
            ? button(
                  "bad",
                  `Dismiss: ${visible(container.name)}`,
                  () => {
                      dismissed.add(key);
                      store.dispatchEvent(new Event("change"));
                  },
                  {text: false},
              )
            : [],
    );
    return {
        element,
        update(now) {
            setText(title, (now.container ? " " : "") + visible(now.title));
            setText(
                since,
                Number.isFinite(now.since)
                    ? `since ${clock(now.since)}, ${duration((Date.now() - now.since) / 1000)}`
                    : "",
            );
            setText(reason, visible(now.reason));
            buttons?.update(now.container);
        },
    };
}

function tile(label, href) {
    const value = h("strong"),
        note = h("span.hint");
    return {
        element: h("a.card.tile", {href}, h("span.tile-label", label), value, note),
        update(text, more, kind = "") {
            setText(value, text);
            setText(note, more);
            value.className = kind;
        },
    };
}

function stateOf(part, fine) {
    if (!part) return ["–", "", ""];
    if (part.state === "ok") return [fine, visible(part.reason ?? ""), "ok"];
    return [visible(part.state), visible(part.reason ?? ""), part.state === "degraded" ? "warning" : "bad"];
}

export function overviewView() {
    glances = 0;
    const headline = h("p.headline", {role: "status"}),
        list = h("ul.problems");
    const updateProblems = keyedChildren(list, problem => problem.key, makeProblem);
    const containers = tile("Containers", "#/containers"),
        images = tile("Images", "#/images"),
        certificate = tile("Certificate", "#/certificates"),
        podman = tile("Podman", "#/settings"),
        audit = tile("Audit record", "#/audit");
    const volumes = volumeBars(),
        activity = h("ol.activity"),
        quiet = h("p.empty", "Nothing has changed since the service started.");
    const updateActivity = keyedChildren(
        activity,
        event => event.seq,
        ({time, kind, action, name}) => ({
            element: h(
                "li",
                h("time", clock(moment(time))),
                h("span.hint", `${kind} ${visible(action)}`),
                kind === "container" ? h("a", {href: containerLink(name)}, visible(name)) : h("span", visible(name)),
            ),
        }),
    );

    function update() {
        const problems = problemsOf(store).filter(({key}) => !dismissed.has(key));
        updateProblems(problems);
        const broken = problems.filter(({level}) => level === "bad").length;
        const known = store.loaded || store.errors.containers;
        const calm = store.health
            ? `Nothing is broken. The service has been up for ${duration(store.health.uptime)}.`
            : "Nothing is broken.";
        setText(
            headline,
            !known
                ? "Looking…"
                : !service.reachable
                  ? "The service cannot be reached: what is below is old."
                  : problems.length
                    ? [
                          broken && plural(broken, "thing is", "things are") + " broken",
                          problems.length > broken && plural(problems.length - broken, "warning"),
                      ]
                          .filter(Boolean)
                          .join(", ")
                    : calm,
        );
        headline.className = `headline ${!known ? "" : broken || !service.reachable ? "bad" : problems.length ? "warning" : "ok"}`;

        const all = [...store.containers.values()],
            running = all.filter(({state}) => state === "running").length;
        containers.update(store.loaded ? `${running} running` : "–", store.loaded ? `of ${all.length}` : "");
        images.update(
            store.storage ? plural(store.storage.images.Count, "image") : "–",
            store.storage
                ? `${bytes(store.storage.images.Bytes)}, ${bytes(store.storage.images.UnusedBytes)} unused`
                : "",
        );
        const {health} = store,
            days = health?.certificate?.days;
        certificate.update(
            ...(Number.isFinite(days)
                ? [
                      plural(Math.floor(days), "day"),
                      `until ${dateTime(moment(health.certificate.NotAfter))}`,
                      days < 30 ? "warning" : "ok",
                  ]
                : health?.certificate?.state === "ok"
                  ? ["none", "plain HTTP", ""]
                  : stateOf(health?.certificate, "")),
        );
        podman.update(...stateOf(health?.podman, "answers"));
        audit.update(...stateOf(health?.audit, "is kept"));
        volumes.update();
        updateActivity(store.activity.slice(0, ACTIVITY_SHOWN));
        show(quiet, !store.activity.length);
    }

    const tick = setInterval(update, 5000);
    return {
        title: "Overview",
        update,
        close: () => clearInterval(tick),
        element: h(
            "div",
            h("header.view-head", h("h1", {tabindex: -1}, "Overview"), headline),
            h("section", {"aria-label": "Problems"}, h("h2.unseen", "Problems"), list),
            h(
                "section.tiles",
                {"aria-label": "State"},
                [containers, images, podman, certificate, audit].map(({element}) => element),
            ),
            h(
                "div.columns",
                h("section.card", {"aria-label": "Disk"}, h("header.card-head", h("h2", "Disk")), volumes.element),
                h(
                    "section.card",
                    {"aria-label": "What changed lately"},
                    h("header.card-head", h("h2", "What changed lately")),
                    activity,
                    quiet,
                ),
            ),
        ),
    };
}
