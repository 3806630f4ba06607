// The service's own settings, and who is looking.

import {confirm, failed, succeeded} from "../core/dialog.js";
import {h, setText} from "../core/dom.js";
import {duration, visible} from "../core/format.js";
import {loader} from "../core/loader.js";
import {call} from "../core/service.js";
import {session} from "../core/session.js";
import {store} from "../core/store.js";

const MAY = {
    administrator: "may do everything",
    operator: "may look at everything but the audit record, and start, stop and restart",
    viewer: "may look, and change nothing",
};

export function settingsView() {
    const administrator = session.may("patchSettings");
    const port = h("input", {
        id: "port",
        type: "number",
        min: 1,
        max: 65535,
        required: true,
        disabled: !administrator,
        "aria-describedby": "port-hint",
    });
    const cores = h("input", {
        id: "cores",
        type: "number",
        min: 0,
        required: true,
        disabled: !administrator,
        "aria-describedby": "cores-hint",
    });
    const coresHint = h("span.hint", {id: "cores-hint"});
    const enabled = h("input", {
        id: "enabled",
        type: "checkbox",
        role: "switch",
        disabled: !administrator,
        onchange: setEnabled,
        "aria-describedby": "enabled-hint",
    });
    const state = h("span.hint"),
        about = h("dl.facts");

    const settings = loader(
        () => "/settings",
        "settings",
        body => {
            if (!form.contains(document.activeElement)) {
                port.value = body.tcp_port;
                cores.value = body.cores_num;
            }
            cores.max = body.max_allowed_cores_num;
            setText(coresHint, `Of ${body.max_allowed_cores_num} that the service may use; 0 for all.`);
            setText(state, `The container service is ${visible(body.service_state)}.`);
        },
        failed,
    );
    const enable = loader(
        () => "/settings/enable",
        "settings",
        body => (enabled.checked = body.enabled),
        failed,
    );

    async function save(event) {
        event.preventDefault();
        try {
            await call("PATCH", "/settings", {json: {tcp_port: port.valueAsNumber, cores_num: cores.valueAsNumber}});
            succeeded("Settings saved; they count from the next start on");
        } catch (error) {
            failed(`Settings: ${error.message}`);
        }
        settings.read();
    }

    async function setEnabled() {
        const wanted = enabled.checked;
        enabled.checked = !wanted; // as long as the service has not said so
        if (
            !wanted &&
            !(await confirm({
                title: "Disable the container service?",
                action: "Disable",
                text: "From now on it handles no containers, images and files until it is enabled again. Containers keep running.",
            }))
        )
            return;
        try {
            await call("PATCH", "/settings/enable", {json: {enabled: wanted}});
            succeeded(`Container service ${wanted ? "enabled" : "disabled"}`);
        } catch (error) {
            failed(`Enable: ${error.message}`);
        }
        enable.read();
    }

    const form = h(
        "form.card",
        {onsubmit: save},
        h("header.card-head", h("h2", "Podman")),
        h(
            "div.field",
            h("label", {for: "port"}, "Podman's TCP port"),
            port,
            h("span.hint", {id: "port-hint"}, "Used where Podman is reached over TCP."),
        ),
        h("div.field", h("label", {for: "cores"}, "Cores for containers"), cores, coresHint),
        administrator
            ? h(
                  "div.buttons",
                  h("button.primary", {type: "submit"}, "Save"),
                  h("span.hint", "Counts from the next start on."),
              )
            : [],
    );

    function update() {
        const {health} = store,
            {name, role} = session.identity;
        const facts = [
            ["You are", visible(name)],
            ["Your role", `${role}: ${MAY[role] ?? ""}`],
            ["Target", visible(health?.host ?? location.host)],
            ["Service up for", duration(health?.uptime)],
            ...(health?.version ? [["Version", visible(health.version)]] : []),
        ];
        const text = JSON.stringify(facts);
        if (about.dataset.shown === text) return;
        about.dataset.shown = text;
        about.replaceChildren(...facts.flatMap(([term, value]) => [h("dt", term), h("dd", value)]));
    }

    return {
        title: "Settings",
        update,
        element: h(
            "div",
            h("header.view-head", h("h1", {tabindex: -1}, "Settings")),
            h(
                "div.columns",
                h(
                    "div",
                    h(
                        "section.card",
                        {"aria-label": "Container service"},
                        h("header.card-head", h("h2", "Container service"), state),
                        h("label.check", {for: "enabled"}, enabled, "Enabled"),
                        h(
                            "p.hint",
                            {id: "enabled-hint"},
                            "Counts at once. Podman is started or left alone at the next start of the service.",
                        ),
                    ),
                    form,
                ),
                h("section.card", {"aria-label": "Session"}, h("header.card-head", h("h2", "Session")), about),
            ),
        ),
        close() {
            settings.close();
            enable.close();
        },
    };
}
