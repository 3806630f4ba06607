// What is asked of the operator, and what is told in passing.

import {button, h, icon} from "./dom.js";
import {visible} from "./format.js";

const TOLD_FOR = 6000; // milliseconds; a failure stays until it is closed

/** Asks before something is destroyed; resolves to whether to do it. */
export function confirm({title, text, action}) {
    return new Promise(resolve => {
        const cancel = h("button", {type: "submit", value: "", autofocus: true}, "Cancel");
        const dialog = h(
            "dialog",
            {"aria-labelledby": "dialog-title", "aria-describedby": "dialog-text"},
            h(
                "form",
                {method: "dialog"},
                h("h2", {id: "dialog-title"}, visible(title)),
                h("p", {id: "dialog-text"}, visible(text)),
                h("div.buttons", cancel, h("button.danger", {type: "submit", value: "yes"}, action)),
            ),
        );
        const before = document.activeElement;
        dialog.addEventListener("close", () => {
            dialog.remove();
            if (before?.isConnected) before.focus();
            resolve(dialog.returnValue === "yes");
        });
        document.body.append(dialog);
        dialog.showModal();
    });
}

const politely = h("div.toasts", {role: "status"});
const urgently = h("div.toasts", {role: "alert"});
export const toasts = h("aside.toast-places", {"aria-label": "Messages"}, urgently, politely);

function tell(place, name, text) {
    const toast = h(
        `div.toast.${name}`,
        icon(name),
        h("span", visible(text)),
        button("bad", "Close the message", () => toast.remove(), {text: false}),
    );
    place.append(toast);
    return toast;
}

export function succeeded(text) {
    const toast = tell(politely, "ok", text);
    setTimeout(() => toast.remove(), TOLD_FOR);
}

export const failed = text => tell(urgently, "warning", text);

export function forgetMessages() {
    politely.replaceChildren();
    urgently.replaceChildren();
}
