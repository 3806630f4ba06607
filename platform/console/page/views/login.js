// The way in.

import {ApiError} from "../core/http.js";
import {h} from "../core/dom.js";
import {plural} from "../core/format.js";
import {askIdentity, session} from "../core/session.js";

export function loginView(reason, entered) {
    const token = h("input", {
        id: "token",
        type: "password",
        autocomplete: "off",
        required: true,
        spellcheck: "false",
        "aria-describedby": "login-hint login-message",
    });
    const message = h("p.message", {id: "login-message", role: "alert"}, reason);
    const submit = h("button.primary", {type: "submit"}, "Log in");

    async function tryToken(event) {
        event.preventDefault();
        submit.disabled = true;
        message.textContent = "";
        try {
            const value = token.value.trim();
            const identity = /^[\x21-\x7e]+$/.test(value) ? await askIdentity(value) : null;
            if (identity) {
                session.keep(value, identity);
                return entered();
            }
            message.textContent = "This token does not open. Tokens of removed or expired identities do not either.";
            token.select();
        } catch (error) {
            message.textContent =
                error instanceof ApiError && error.status === 429
                    ? `Too many wrong tokens from this address: try again in ${plural(error.retryAfter || 60, "second")}.`
                    : `${error.message}.`;
        }
        submit.disabled = false;
        token.focus();
    }

    return {
        title: "Log in",
        element: h(
            "main.login",
            {id: "main"},
            h(
                "form",
                {onsubmit: tryToken},
                h("h1", {tabindex: -1}, "Korvex Container Service"),
                h("p.host", location.host),
                h("label", {for: "token"}, "Token"),
                token,
                h("p.hint", {id: "login-hint"}, "Kept for this tab only, until you log out or close it."),
                message,
                submit,
            ),
        ),
    };
}
