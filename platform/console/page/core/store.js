// What is on the target, as far as this page knows: filled once, then kept by the service's events.

import {ApiError, path} from "./http.js";
import {call, get, service} from "./service.js";
import {LiveSocket} from "./live_socket.js";

const HEALTH_EVERY = 10_000; // milliseconds; also how a connection that died silently is noticed
const LOST_EVERY = 1_000; // milliseconds, while the service cannot be reached
const INSPECTIONS_AT_ONCE = 4; // a browser has six connections: two stay for what the operator does
const RELIST_FROM = 8; // this many changed containers are read from the list at once
const ACTIVITY_KEPT = 200;

/** Events: "change" whenever something below is another. */
export const store = new EventTarget();

Object.assign(store, {
    containers: new Map(), // by id: {id, name, image, created, state, detail}; detail is what inspecting it said
    loaded: false,
    images: null,
    composeFiles: null,
    health: null,
    storage: null,
    activity: [], // latest first
    errors: {}, // of the last attempt to read "containers", "images", …
});

let events = null;
let lastSeq = null;
let healthTimer = 0;
let reading = 0; // counts sessions: what a request of an ended one answers is dropped
const dirty = new Set(); // names of containers to be read anew
const toInspect = new Set(); // ids
let inspecting = 0;

const changed = () => store.dispatchEvent(new Event("change"));

const nameOf = container => (container.Names?.[0] ?? container.Name ?? "").replace(/^\//, "");

export const findContainer = name => {
    for (const container of store.containers.values())
        if (container.name === name || container.id === name) return container;
    return undefined;
};

/** Reads one thing into the store; a failure is kept as its text. */
async function read(name, request, take) {
    const own = reading;
    try {
        const value = await request();
        if (own !== reading) return;
        delete store.errors[name];
        take(value);
    } catch (error) {
        if (own !== reading) return;
        store.errors[name] = error.message;
        if (error instanceof ApiError && error.status >= 500) readHealth();
    }
    changed();
}

let missedSome = true; // events: what is known of single containers may be old

const readers = {
    containers: () => read("containers", () => get("/containers?all=true"), takeList),
    images: () =>
        read(
            "images",
            () => get("/images"),
            body => (store.images = body.images),
        ),
    composeFiles: () =>
        read(
            "composeFiles",
            () => get("/compose-files"),
            body => (store.composeFiles = body),
        ),
    storage: () => read("storage", () => get("/storage"), takeStorage),
};

export const refresh = name => readers[name]();

function takeList({containers}) {
    const before = store.containers;
    store.containers = new Map();
    for (const item of containers) {
        const old = before.get(item.Id);
        const entry = {
            id: item.Id,
            name: nameOf(item),
            image: item.Image,
            created: item.Created,
            state: item.State,
            detail: old?.detail ?? null,
        };
        store.containers.set(item.Id, entry);
        if (item.State !== "created" && (missedSome || !entry.detail || old.state !== item.State))
            inspectLater(item.Id);
    }
    missedSome = false;
    store.loaded = true;
}

/** Volumes that are one file system become one. */
function takeStorage({volumes, images}) {
    const merged = new Map();
    for (const volume of volumes) {
        const key = `${volume.TotalBytes} ${volume.FreeBytes}`;
        const known = merged.get(key);
        merged.set(key, known ? {...known, What: `${known.What}, ${volume.What}`} : volume);
    }
    store.storage = {volumes: [...merged.values()], images};
}

function takeDetail(detail) {
    const state = detail.State?.Status;
    store.containers.set(detail.Id, {
        ...store.containers.get(detail.Id),
        id: detail.Id,
        name: nameOf(detail),
        image: detail.Image,
        created: detail.Created,
        state,
        detail,
    });
}

/** Reads one container anew; one that is gone leaves the store. */
async function inspect(name) {
    const own = reading;
    try {
        const detail = await get(path`/containers/${name}`);
        if (own === reading) takeDetail(detail);
    } catch (error) {
        if (own !== reading || !(error instanceof ApiError)) return;
        const known = findContainer(name);
        if (error.status === 404 && known) store.containers.delete(known.id);
    }
    if (own === reading) changed();
}

export function inspectLater(id) {
    toInspect.add(id);
    while (inspecting < INSPECTIONS_AT_ONCE && toInspect.size) inspectNext();
}

async function inspectNext() {
    inspecting++;
    for (const id of toInspect) {
        toInspect.delete(id);
        await inspect(id);
    }
    inspecting--;
}

// Events come in bursts: what they touch is read together, a moment later.
let batch = 0;
const touched = new Set(); // names of readers

function readTouched() {
    batch = 0;
    if (dirty.size >= RELIST_FROM) {
        for (const name of dirty) {
            const known = findContainer(name);
            if (known) known.detail = null; // it may have been started and ended meanwhile
        }
        touched.add("containers");
    } else {
        dirty.forEach(inspectLater);
    }
    dirty.clear();
    touched.forEach(refresh);
    touched.clear();
}

function touch(kind, name) {
    if (kind === "container") dirty.add(name);
    if (kind === "image") touched.add("images").add("storage");
    if (kind === "compose") touched.add("composeFiles");
    batch ||= setTimeout(readTouched, 150);
}

function readAll() {
    missedSome = true;
    Object.keys(readers).forEach(refresh);
}

function takeEvent(event) {
    if (event.relist) {
        lastSeq = event.seq ?? 0;
        return readAll();
    }
    lastSeq = event.seq;
    store.activity.unshift(event);
    store.activity.length = Math.min(store.activity.length, ACTIVITY_KEPT);
    touch(event.kind, event.name);
    store.dispatchEvent(new CustomEvent("event", {detail: event}));
    changed();
}

export async function readHealth() {
    clearTimeout(healthTimer);
    const own = reading;
    try {
        const {body} = await call("GET", "/health", {accept: [503], seconds: 8});
        if (own === reading) store.health = body;
    } catch {
        // "reach" and "refused" tell it
    }
    if (own !== reading) return;
    changed();
    clearTimeout(healthTimer);
    healthTimer = setTimeout(tryAgain, service.reachable ? HEALTH_EVERY : LOST_EVERY);
}

/** What could not be read is asked for until it can: that Podman answers again is no event. */
function tryAgain() {
    Object.keys(store.errors).forEach(refresh);
    readHealth();
}

function comeBack() {
    if (!service.reachable) {
        clearTimeout(healthTimer);
        healthTimer = setTimeout(readHealth, LOST_EVERY);
        return changed();
    }
    readAll();
    readHealth();
}

/** Begins to follow the service. */
export function open() {
    service.addEventListener("reach", comeBack);
    events = new LiveSocket("kx.events.v1", () => `/events/ws?after=${lastSeq ?? 0}`, {
        onmessage: takeEvent,
        onrefused: readHealth,
        onstate: state => (state === "open" ? changed() : readHealth()),
    });
    readAll();
    readHealth();
}

/** Stops, and forgets everything. */
export function close() {
    reading++;
    events?.close();
    service.removeEventListener("reach", comeBack);
    clearTimeout(healthTimer);
    clearTimeout(batch);
    batch = 0;
    lastSeq = null;
    for (const set of [dirty, toInspect, touched, store.containers]) set.clear();
    Object.assign(store, {
        loaded: false,
        images: null,
        composeFiles: null,
        health: null,
        storage: null,
        activity: [],
        errors: {},
    });
}
