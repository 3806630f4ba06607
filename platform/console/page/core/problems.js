// What is broken, since when, why, and what can be done: the answer of the first view, made from what is known.

import {bytes, dateTime, duration, moment, plural} from "./format.js";

const RESTARTED_LATELY = 15 * 60_000; // milliseconds
const LOW_SHARE = 0.1,
    SPENT_SHARE = 0.05; // of a volume
const SOON_DAYS = 30,
    NOW_DAYS = 7; // to the certificate's end

const SIGNALS = {
    4: "an illegal instruction",
    6: "abort()",
    7: "a bus error",
    8: "an arithmetic error",
    11: "a segmentation fault",
    9: "SIGKILL",
    15: "SIGTERM",
    2: "SIGINT",
    1: "SIGHUP",
};
const CODES = {125: "Podman could not run it", 126: "its command cannot be executed", 127: "its command was not found"};
const ON_DEMAND = [130, 137, 143]; // how a container ends that somebody stops

/** What an exit code says, in words; empty for those that only the program knows. */
export function exitReason({ExitCode, OOMKilled, Error: text}) {
    if (text) return text;
    if (OOMKilled) return "out of memory: it reached its memory limit and was killed";
    if (CODES[ExitCode]) return CODES[ExitCode];
    return ExitCode > 128 && SIGNALS[ExitCode - 128] ? `ended by ${SIGNALS[ExitCode - 128]}` : "";
}

function wasStopped(container, activity, finished) {
    return (
        ON_DEMAND.includes(container.detail.State.ExitCode) &&
        activity.some(
            event =>
                event.kind === "container" &&
                event.name === container.name &&
                ["stop", "kill", "restart"].includes(event.action) &&
                Math.abs(moment(event.time) - finished) < 60_000,
        )
    );
}

function containerProblem(container, activity) {
    const state = container.detail?.State;
    if (!state) return null;
    const about = {key: `container ${container.id} ${state.FinishedAt} ${state.RestartCount}`, container};
    const started = moment(state.StartedAt),
        finished = moment(state.FinishedAt);
    if (
        container.state === "restarting" ||
        (state.RestartCount > 0 && container.state === "running" && Date.now() - started < RESTARTED_LATELY)
    )
        return {
            ...about,
            level: "bad",
            title: "keeps restarting",
            since: Number.isFinite(finished) ? finished : started,
            actions: ["stop", "restart"],
            reason:
                `Restarted ${plural(state.RestartCount, "time")}; it last ended with exit code ${state.ExitCode}` +
                (exitReason(state) ? `, ${exitReason(state)}` : "") +
                ".",
        };
    if (container.state === "running" && state.Health === "unhealthy")
        return {
            ...about,
            level: "bad",
            title: "is unhealthy",
            since: started,
            actions: ["restart", "stop"],
            reason: "Its health check fails. Its log may say why.",
        };
    if (
        ["exited", "stopped", "dead"].includes(container.state) &&
        (state.ExitCode !== 0 || state.OOMKilled || state.Error)
    ) {
        if (wasStopped(container, activity, finished)) return null;
        const reason = exitReason(state);
        return {
            ...about,
            level: ON_DEMAND.includes(state.ExitCode) && !state.OOMKilled ? "warning" : "bad",
            since: finished,
            title: state.OOMKilled ? "ran out of memory" : "ended by itself",
            actions: ["start", "remove"],
            reason:
                `Exit code ${state.ExitCode}` + (reason ? `: ${reason}.` : ". The last lines of its log may say why."),
        };
    }
    if (state.Error && container.state !== "running")
        return {
            ...about,
            level: "bad",
            title: "could not be started",
            since: moment(container.created),
            actions: ["start", "remove"],
            reason: state.Error,
        };
    return null;
}

const PARTS = {
    podman: {
        title: "Podman is away",
        degraded: "No containers are handled",
        advice: "Containers keep running; lists and actions fail. The service starts a Podman that has died by itself.",
    },
    storage: {
        title: "Storage cannot be used",
        advice: "Uploads and settings fail. See the disk, then delete images that nothing uses.",
        view: "images",
    },
    audit: {
        title: "The audit record is not written",
        advice: "Changes go on without a kept record. See whether the disk is full or read-only.",
    },
    certificate: {
        title: "The certificate needs attention",
        advice: "Upload a renewed certificate and its key.",
        view: "certificates",
    },
};

function partProblems(health) {
    const found = [];
    for (const [name, part] of Object.entries(health ?? {})) {
        if (!PARTS[name] || !part?.state || part.state === "ok") continue;
        const {title, degraded, advice, view} = PARTS[name];
        found.push({
            key: `part ${name}`,
            level: part.state === "degraded" ? "warning" : "bad",
            title: (part.state === "degraded" && degraded) || title,
            view,
            since: moment(part.since),
            reason: [part.reason && part.reason.replace(/\.?$/, "."), advice].filter(Boolean).join(" "),
        });
    }
    return found;
}

function certificateProblem(health) {
    const days = health?.certificate?.days;
    if (!Number.isFinite(days) || days >= SOON_DAYS) return [];
    return [
        {
            key: "certificate",
            part: "part certificate",
            level: days < NOW_DAYS ? "bad" : "warning",
            since: NaN,
            view: "certificates",
            title:
                days < 0 ? "The certificate has ended" : `The certificate ends in ${plural(Math.floor(days), "day")}`,
            reason: `It is valid until ${dateTime(moment(health.certificate.NotAfter))}. Upload a renewed one and its key; they count at once.`,
        },
    ];
}

function volumeProblems(storage) {
    const low = (storage?.volumes ?? []).filter(
        volume => volume.TotalBytes > 0 && volume.FreeBytes / volume.TotalBytes < LOW_SHARE,
    );
    return low.map(volume => ({
        key: `volume ${volume.Path}`,
        part: "part storage",
        level: volume.FreeBytes / volume.TotalBytes < SPENT_SHARE ? "bad" : "warning",
        title: `Disk nearly full: ${volume.What}`,
        since: NaN,
        view: "images",
        reason:
            `${bytes(volume.FreeBytes)} of ${bytes(volume.TotalBytes)} are free at ${volume.Path}.` +
            (storage.images?.UnusedBytes > 0
                ? ` Images that nothing uses hold ${bytes(storage.images.UnusedBytes)}.`
                : ""),
    }));
}

/** Problems, worst and latest first: {key, level: "bad" or "warning", title, since (ms or NaN), reason, container?, actions?, view?}. */
export function problemsOf({containers, health, storage, activity, errors}) {
    const precise = [...certificateProblem(health), ...volumeProblems(storage)];
    // What these say, the parts say with less detail.
    const found = [
        ...partProblems(health).filter(
            ({key, level}) =>
                (level === "bad" && key !== "part certificate") || !precise.some(other => other.part === key),
        ),
        ...precise,
    ];
    if (errors.containers && !found.some(({key}) => key === "part podman"))
        found.push({
            key: "containers",
            level: "bad",
            title: "Containers cannot be listed",
            since: NaN,
            reason: errors.containers,
            view: "settings",
        });
    found.push(...[...containers.values()].map(container => containerProblem(container, activity)).filter(Boolean));
    const weight = ({level, container}) => (level === "bad" ? 0 : 2) + (container ? 1 : 0); // what concerns all containers comes first
    return found.sort((a, b) => weight(a) - weight(b) || (b.since || 0) - (a.since || 0));
}

/** "Up 3 h", "Exit code 137, 5 min ago". */
export function stateText(container) {
    const state = container.detail?.State;
    if (container.state === "created") return "never started";
    if (!state) return "";
    if (container.state === "running") return `for ${duration((Date.now() - moment(state.StartedAt)) / 1000)}`;
    const finished = moment(state.FinishedAt);
    return (
        `exit code ${state.ExitCode}` +
        (Number.isFinite(finished) ? `, ${duration((Date.now() - finished) / 1000)} ago` : "")
    );
}
