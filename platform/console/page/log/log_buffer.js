// The lines of a log that the page holds: the latest ones, within a bound, and which of them are selected.

import {logText, moment} from "../core/format.js";

const MOST_LINES = 50_000;
const MOST_CHARACTERS = 16 * 1024 * 1024;
const LONGEST_LINE = 16 * 1024;
const DROPPED_AT_ONCE = 2_000; // dropping costs a move of all that stays

/** Milliseconds out of nanoseconds of the epoch or RFC 3339. */
const timeOf = time => (typeof time === "number" ? time / 1e6 : moment(time));

/** Lines are {kind: "out", "err", "gap" or "state", time, text, open}; each has a number that it keeps. */
export class LogBuffer {
    first = 0; // number of the oldest line that is held
    lines = [];
    total = 0; // lines that came, dropped ones included
    #characters = 0;
    #last = {out: null, err: null}; // the line to which a next piece belongs

    get end() {
        return this.first + this.lines.length;
    }

    get isFull() {
        return this.lines.length >= MOST_LINES || this.#characters >= MOST_CHARACTERS;
    }

    at(number) {
        return this.lines[number - this.first];
    }

    addEntries(entries) {
        for (const {time, stream, text} of entries) {
            const ends = text.endsWith("\n");
            const piece = logText(ends ? text.slice(0, -1) : text);
            const open = this.#last[stream];
            if (open) {
                const taken = piece.slice(0, LONGEST_LINE - open.text.length);
                open.text += taken;
                this.#characters += taken.length;
            } else {
                this.#push(
                    (this.#last[stream] = {kind: stream, time: timeOf(time), text: piece.slice(0, LONGEST_LINE)}),
                );
            }
            if (ends) this.#last[stream] = null;
        }
        this.#drop();
    }

    /** A line that the page itself says. */
    addNote(kind, text) {
        this.#last = {out: null, err: null};
        this.#push({kind, time: Date.now(), text});
        this.#drop();
    }

    #push(line) {
        this.lines.push(line);
        this.#characters += line.text.length;
        this.total++;
    }

    #drop() {
        let count = 0,
            characters = this.#characters;
        while (this.lines.length - count > MOST_LINES || (characters > MOST_CHARACTERS && count < this.lines.length))
            characters -= this.lines[count++].text.length;
        if (!count) return;
        for (const end = Math.min(count + DROPPED_AT_ONCE, this.lines.length - 1); count < end;)
            characters -= this.lines[count++].text.length;
        this.lines.splice(0, count);
        this.first += count;
        this.#characters = characters;
    }

    /** All that is held, as a text file. */
    toText() {
        const prefix = {out: "", err: "stderr ", gap: "-- ", state: "-- "};
        return this.lines.map(line => `${new Date(line.time || 0).toISOString()} ${prefix[line.kind]}${line.text}\n`);
    }
}

/** The lines of a buffer that are shown, and those among them that hold the words looked for. Follows the buffer by `catchUp`. */
export class LogSelection {
    #buffer;
    #query = "";
    #onlyMatches = false;
    #onlyErrors = false;
    #next; // number of the first line that was not looked at
    shown = null; // numbers; null for all
    matches = [];

    constructor(buffer) {
        this.#buffer = buffer;
        this.#next = buffer.first;
    }

    get query() {
        return this.#query;
    }

    choose({query = this.#query, onlyMatches = this.#onlyMatches, onlyErrors = this.#onlyErrors}) {
        this.#query = query.toLowerCase();
        this.#onlyMatches = onlyMatches;
        this.#onlyErrors = onlyErrors;
        this.shown = onlyErrors || (onlyMatches && query) ? [] : null;
        this.matches = [];
        this.#next = this.#buffer.first;
        this.catchUp();
    }

    get length() {
        return this.shown ? this.shown.length : this.#buffer.lines.length;
    }

    numberAt(index) {
        return this.shown ? this.shown[index] : this.#buffer.first + index;
    }

    /** The place of a line among those shown, or where it would be. */
    indexOf(number) {
        return this.shown ? place(this.shown, number) : number - this.#buffer.first;
    }

    matchAfter(number) {
        return this.matches[place(this.matches, number + 1)] ?? this.matches[0];
    }

    matchBefore(number) {
        return this.matches[place(this.matches, number) - 1] ?? this.matches.at(-1);
    }

    /** Looks at new lines and forgets dropped ones. The last line is looked at again: it may have grown. */
    catchUp() {
        const {first, end} = this.#buffer;
        for (const numbers of [this.shown, this.matches]) {
            if (numbers?.length && numbers[0] < first) numbers.splice(0, place(numbers, first));
            while (numbers?.length && numbers.at(-1) >= this.#next) numbers.pop();
        }
        for (let number = Math.max(this.#next, first); number < end; number++) {
            const line = this.#buffer.at(number);
            if (this.#onlyErrors && line.kind === "out") continue;
            const matches = this.#query && line.text.toLowerCase().includes(this.#query);
            if (matches) this.matches.push(number);
            if (this.shown && (matches || !this.#onlyMatches || !this.#query)) this.shown.push(number);
        }
        this.#next = Math.max(first, end - 1);
    }
}

/** Where `number` is, or would be, in ascending numbers. */
function place(numbers, number) {
    let low = 0,
        high = numbers.length;
    while (low < high) {
        const middle = (low + high) >> 1;
        if (numbers[middle] < number) low = middle + 1;
        else high = middle;
    }
    return low;
}
