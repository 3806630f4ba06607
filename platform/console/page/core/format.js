// Values as people read them.

const CONTROL = /[\u0000-\u001f\u007f-\u009f\u200e\u200f\u2028\u2029\u202a-\u202e\u2066-\u2069\ufeff]/g;
const TERMINAL_SEQUENCE = /\u001b(?:\[[0-?]*[ -/]*[@-~]|\][^\u0007\u001b]*(?:\u0007|\u001b\\))/g;

function picture(character) {
    const code = character.charCodeAt(0);
    if (code < 0x20) return String.fromCharCode(0x2400 + code);
    return code === 0x7f ? "\u2421" : `<${code.toString(16).toUpperCase().padStart(4, "0")}>`;
}

/** A name or a line whose control characters, those that turn the writing direction included, are to be seen, not obeyed. */
export const visible = text => String(text ?? "").replace(CONTROL, picture);

/** A line of a log: colours and cursor movements meant for a terminal are left out. */
export const logText = text => visible(text.replace(TERMINAL_SEQUENCE, "").replace(/\r$/, "").replaceAll("\t", "    "));

/** Output of a program: as `logText`, with its lines. */
export const outputText = text =>
    String(text ?? "")
        .split("\n")
        .map(logText)
        .join("\n")
        .trimEnd();

export function bytes(count) {
    if (!Number.isFinite(count)) return "–";
    const units = ["B", "KiB", "MiB", "GiB", "TiB"];
    let unit = 0;
    while (count >= 1023.5 && unit < units.length - 1) {
        count /= 1024;
        unit++;
    }
    return `${unit && count < 99.95 ? count.toFixed(1) : Math.round(count)} ${units[unit]}`;
}

export const number = count => Math.round(count).toLocaleString("en");

export const plural = (count, one, many = one + "s") => `${number(count)} ${count === 1 ? one : many}`;

/** Milliseconds of the epoch from RFC 3339 or seconds; NaN where Podman says "never" or nothing was said. */
export function moment(time) {
    const value = typeof time === "number" ? time * 1000 : Date.parse(time ?? "");
    return value > 0 ? value : NaN;
}

/** "3 min", "2 h 5 min", "4 d 3 h". */
export function duration(seconds) {
    if (!Number.isFinite(seconds)) return "–";
    seconds = Math.max(0, Math.round(seconds));
    const parts = [
        [86400, "d"],
        [3600, "h"],
        [60, "min"],
        [1, "s"],
    ];
    const first = parts.findIndex(([size]) => seconds >= size);
    if (first < 0) return "0 s";
    const [size, unit] = parts[first];
    const text = `${Math.floor(seconds / size)} ${unit}`;
    const [finer, finerUnit] = parts[first + 1] ?? [];
    const rest = finer && first < 2 ? Math.floor((seconds % size) / finer) : 0;
    return rest ? `${text} ${rest} ${finerUnit}` : text;
}

export const ago = milliseconds =>
    Number.isFinite(milliseconds) ? `${duration((Date.now() - milliseconds) / 1000)} ago` : "–";

const two = value => String(value).padStart(2, "0");

export function clock(milliseconds, fraction = false) {
    const date = new Date(milliseconds);
    if (Number.isNaN(date.getTime())) return "–";
    const time = `${two(date.getHours())}:${two(date.getMinutes())}:${two(date.getSeconds())}`;
    return fraction ? `${time}.${String(date.getMilliseconds()).padStart(3, "0")}` : time;
}

/** "2026-11-24 08:31:12", in the browser's time zone. */
export function dateTime(milliseconds) {
    const date = new Date(milliseconds);
    if (Number.isNaN(date.getTime())) return "–";
    return `${date.getFullYear()}-${two(date.getMonth() + 1)}-${two(date.getDate())} ${clock(milliseconds)}`;
}

export const shortId = id =>
    String(id ?? "")
        .replace(/^sha256:/, "")
        .slice(0, 12);
