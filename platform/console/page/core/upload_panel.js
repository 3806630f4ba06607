// Where files are dropped or chosen, and how far each of them is.

import {button, h, icon, keyedChildren, setText, show} from "./dom.js";
import {bytes, duration, visible} from "./format.js";
import {failed} from "./dialog.js";
import {forget, isActive, upload, uploads} from "./uploads.js";

function progressText({state, sent, size, rate, reason}) {
    const share = size ? Math.floor((sent * 100) / size) : 100;
    switch (state) {
        case "sending":
            return (
                `${share} % · ${bytes(sent)} of ${bytes(size)}` +
                (rate > 0 ? ` · ${bytes(rate)}/s · ${duration((size - sent) / rate)} left` : "")
            );
        case "storing":
            return `${bytes(size)} sent · the service takes it in…`;
        case "done":
            return `${bytes(size)} · done`;
        case "cancelled":
            return "Cancelled; nothing was stored";
        default:
            return visible(reason);
    }
}

function makeItem(item) {
    const bar = h("progress", {max: 1, "aria-label": `Upload of ${visible(item.name)}`});
    const text = h("span.upload-text");
    const cancel = button("bad", `Cancel the upload of ${visible(item.name)}`, () => item.cancel(), {text: false});
    const close = button("bad", `Forget the upload of ${visible(item.name)}`, () => forget(item), {text: false});
    const told = h("span.unseen", {role: "status"});
    const element = h("li.upload", h("span.upload-name", visible(item.name)), text, told, cancel, close, bar);
    return {
        element,
        update() {
            element.className = `upload ${item.state}`;
            if (item.state === "storing") bar.removeAttribute("value");
            else bar.value = item.size ? item.sent / item.size : 1;
            show(bar, isActive(item));
            show(cancel, isActive(item));
            show(close, !isActive(item));
            setText(text, progressText(item));
            if (!isActive(item)) setText(told, `${item.name}: ${progressText(item)}`); // read out once, not at each step
        },
    };
}

/**
 * `targetOf(file)` gives where a file goes, or an error text in {refused}; `accept` are the file names that are offered;
 * `done()` runs after a file was taken; `note` is an element beside the button.
 */
export function uploadPanel({label, accept, multiple = true, targetOf, targets, done = () => {}, note = null}) {
    const input = h("input.unseen", {
        type: "file",
        accept,
        multiple,
        onchange: () => {
            take([...input.files]);
            input.value = "";
        },
    });
    const choose = h("label.button", input, icon("upload"), h("span", label));
    const list = h("ul.uploads");
    const update = keyedChildren(list, item => item.id, makeItem);
    const element = h(
        "section.card.drop",
        {"aria-label": label},
        h("div.drop-line", choose, h("span.hint", "or drop it here"), note ?? []),
        list,
    );

    async function take(files) {
        for (const file of multiple ? files : files.slice(0, 1)) {
            const target = targetOf(file);
            if (target.refused) failed(`${file.name}: ${target.refused}`);
            else if (await upload(target, file)) done(file);
        }
    }

    let inside = 0; // entering a child is told before leaving its parent
    const isFile = event => event.dataTransfer?.types.includes("Files");
    element.addEventListener("dragenter", event => isFile(event) && element.classList.toggle("over", ++inside > 0));
    element.addEventListener("dragleave", event => isFile(event) && element.classList.toggle("over", --inside > 0));
    element.addEventListener("dragover", event => isFile(event) && event.preventDefault());
    element.addEventListener("drop", event => {
        event.preventDefault();
        element.classList.toggle("over", (inside = 0) > 0);
        take([...event.dataTransfer.files]);
    });
    const moved = () => update(uploads.list.filter(item => targets.includes(item.target)));
    uploads.addEventListener("change", moved);
    moved();
    return {element, close: () => uploads.removeEventListener("change", moved)};
}
