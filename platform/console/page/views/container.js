// One container: its state, its figures, its log, and how it was made.

import {actionButtons} from "../core/actions.js";
import {h, setText, show} from "../core/dom.js";
import {ago, bytes, dateTime, duration, moment, plural, shortId, visible} from "../core/format.js";
import {path} from "../core/http.js";
import {Plot} from "../core/plot.js";
import {exitReason} from "../core/problems.js";
import {get, service} from "../core/service.js";
import {findContainer, inspectLater, readHealth, store} from "../core/store.js";
import {LogView} from "../log/log_view.js";
import {stateMark} from "./containers.js";

const STATS_EVERY = 2000; // milliseconds

const perSecond = value => `${bytes(value)}/s`;

/** Plots of what the control group counts, while it runs and is looked at. */
function figures(name) {
    const processor = new Plot("Processor", {format: value => `${value.toFixed(value < 9.95 ? 1 : 0)} %`, ceiling: 5});
    const memory = new Plot("Memory", {format: bytes, ceiling: 1024 * 1024});
    const network = new Plot("Network", {format: perSecond, ceiling: 10 * 1024});
    const disk = new Plot("Disk", {format: perSecond, ceiling: 10 * 1024});
    let last = null,
        timer = 0,
        closed = false;

    function take(now) {
        const time = moment(now.Time);
        const limit =
            now.MemoryLimitBytes > 0 && now.MemoryLimitBytes < 2 ** 50 ? `limit ${bytes(now.MemoryLimitBytes)}` : "";
        memory.add(
            time,
            now.MemoryBytes,
            [limit, plural(now.Processes, "process", "processes")].filter(Boolean).join(" · "),
        );
        const seconds = last ? (time - moment(last.Time)) / 1000 : 0;
        if (seconds > 0 && now.CpuNanoseconds >= last.CpuNanoseconds) {
            const rate = field => Math.max(0, now[field] - last[field]) / seconds;
            processor.add(time, rate("CpuNanoseconds") / 1e7, "of one core");
            network.add(
                time,
                rate("ReceivedBytes") + rate("SentBytes"),
                `in ${perSecond(rate("ReceivedBytes"))} · out ${perSecond(rate("SentBytes"))}`,
            );
            disk.add(
                time,
                rate("ReadBytes") + rate("WrittenBytes"),
                `read ${perSecond(rate("ReadBytes"))} · write ${perSecond(rate("WrittenBytes"))}`,
            );
        }
        last = now;
    }

    async function read() {
        clearTimeout(timer);
        if (!document.hidden && service.reachable && findContainer(name)?.state === "running") {
            try {
                take(await get(path`/containers/${name}/stats`));
            } catch {
                last = null; // it ended, or the service says so elsewhere
            }
        } else {
            last = null;
        }
        if (!closed) timer = setTimeout(read, STATS_EVERY);
    }

    read();
    return {
        element: h(
            "section.plots",
            {"aria-label": "Figures"},
            [processor, memory, network, disk].map(({element}) => element),
        ),
        close() {
            closed = true;
            clearTimeout(timer);
        },
    };
}

const RESTARTS = {
    no: "never",
    "": "never",
    always: "always",
    "on-failure": "when it fails",
    "unless-stopped": "unless it was stopped",
};

function facts(container) {
    const detail = container.detail ?? {},
        state = detail.State ?? {};
    const list = items =>
        items?.length
            ? h(
                  "ul",
                  items.map(item => h("li", visible(item))),
              )
            : "none";
    const policy = detail.RestartPolicy?.Name ?? detail.RestartPolicy ?? "";
    return [
        ["Id", shortId(container.id)],
        ["Image", `${visible(container.image)} (${shortId(detail.ImageId)})`],
        ["Command", visible([detail.Command ?? []].flat().join(" ")) || "–"],
        ["Created", dateTime(moment(container.created))],
        ["Started", dateTime(moment(state.StartedAt))],
        ["Ended", dateTime(moment(state.FinishedAt))],
        ["Restarts", `${plural(state.RestartCount ?? 0, "time")}; restarted ${RESTARTS[policy] ?? visible(policy)}`],
        ["Health check", visible(state.Health || "none")],
        [
            "Ports",
            list(
                detail.Ports?.map(({HostIp, HostPort, ContainerPort, Protocol}) =>
                    HostPort
                        ? `${HostIp || "*"}:${HostPort} → ${ContainerPort}/${Protocol}`
                        : `${ContainerPort}/${Protocol}, not published`,
                ),
            ),
        ],
        [
            "Mounts",
            list(
                detail.Mounts?.map(
                    mount => `${mount.Source} → ${mount.Destination}${mount.ReadOnly ? " (read only)" : ""}`,
                ),
            ),
        ],
        [
            "Networks",
            list(
                (Array.isArray(detail.Networks) ? detail.Networks : Object.keys(detail.Networks ?? {})).map(
                    net => net.Name ?? net,
                ),
            ),
        ],
        ["Compose", detail.Compose ? `${visible(detail.Compose.Service)} of ${visible(detail.Compose.File)}` : "–"],
        ["Log", detail.Log ? `${visible(detail.Log.Driver)}, ${bytes(detail.Log.Bytes)}` : "–"],
    ];
}

/** What the first line says beside the name. */
function summary(container) {
    const state = container.detail?.State;
    if (!state) return visible(container.image);
    if (container.state === "running")
        return `for ${duration((Date.now() - moment(state.StartedAt)) / 1000)} · ${visible(container.image)}`;
    if (container.state === "created") return `never started · ${visible(container.image)}`;
    const reason = exitReason(state);
    return `exit code ${state.ExitCode}${reason ? `, ${visible(reason)}` : ""} · ${ago(moment(state.FinishedAt))} · ${visible(container.image)}`;
}

export function containerView(name) {
    const mark = stateMark(),
        told = h("span.summary"),
        list = h("dl.facts"),
        gone = h("p.empty", {role: "status"});
    const buttons = actionButtons(["start", "stop", "restart", "remove"]);
    const tools = buttons.element;
    const plots = figures(name),
        log = new LogView(name, refused);
    const details = h("details.card.facts-card", h("summary", "Details"), list);
    let shown = "",
        id = findContainer(name)?.id;

    function refused() {
        if (store.loaded && !findContainer(name)) log.stream.end();
        else readHealth();
    }

    function update() {
        const container = findContainer(name);
        if (container && container.id !== id) {
            id = container.id;
            if (log.stream.connection === "ended") log.stream.restart();
        }
        show(gone, !container && store.loaded);
        setText(gone, "This container does not exist (any more). What its log brought stays here until you leave.");
        for (const element of [mark.element, tools, plots.element, details]) show(element, Boolean(container));
        if (!container) return setText(told, "");
        mark.update(container);
        buttons.update(container);
        setText(told, summary(container));
        show(plots.element, container.state === "running");
        const now = JSON.stringify([container.detail, container.state]);
        if (now === shown) return;
        shown = now;
        list.replaceChildren(...facts(container).flatMap(([term, value]) => [h("dt", term), h("dd", value)]));
    }

    if (findContainer(name)) inspectLater(findContainer(name).id);
    const tick = setInterval(update, 10_000);
    return {
        title: name,
        update,
        wide: true,
        element: h(
            "div.container-view",
            h(
                "header.view-head",
                h("h1", {tabindex: -1}, h("a.crumb", {href: "#/containers"}, "Containers"), " / ", visible(name)),
                mark.element,
                told,
                h("span.space"),
                tools,
            ),
            gone,
            plots.element,
            details,
            log.element,
        ),
        close() {
            clearInterval(tick);
            plots.close();
            log.close();
        },
    };
}
