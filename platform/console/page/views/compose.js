// Compose files: what each describes, whether it runs, and what the compose tool says.

import {confirm, failed, succeeded} from "../core/dialog.js";
import {button, h, keyedChildren, setText, show} from "../core/dom.js";
import {ago, bytes, moment, outputText, plural, visible} from "../core/format.js";
import {path} from "../core/http.js";
import {call} from "../core/service.js";
import {session} from "../core/session.js";
import {refresh, store} from "../core/store.js";
import {uploadPanel} from "../core/upload_panel.js";
import {containerLink, stateMark} from "./containers.js";

const COMMANDS = [
    ["composeCreate", "containers", "Create", "POST", "/create", "Creating…"],
    ["composeStart", "start", "Start", "POST", "/start", "Starting…"],
    ["composeStop", "stop", "Stop", "POST", "/stop", "Stopping…"],
    ["composeRemove", "remove", "Remove containers", "DELETE", "", "Removing…"],
];

const outputs = new Map(); // by file name: {doing} or {text, ok}; kept while the operator looks elsewhere

export const forgetOutputs = () => outputs.clear();

async function run(name, [operation, , label, method, part, doing]) {
    if (
        operation === "composeRemove" &&
        !(await confirm({
            title: `Remove the containers of ${name}?`,
            action: "Remove",
            text: "They are stopped and deleted, with what they wrote inside themselves. The file, volumes and images stay.",
        }))
    )
        return;
    outputs.set(name, {doing});
    store.dispatchEvent(new Event("change"));
    try {
        const {body} = await call(method, path`/compose-files/${name}/containers` + part, {seconds: 0});
        outputs.set(name, {ok: true, text: [body?.Message, body?.Output].filter(Boolean).join("\n")});
        succeeded(body?.Message ?? `${label} ${name}: done`);
    } catch (error) {
        outputs.set(name, {ok: false, text: error.message});
        failed(`${label} ${name} failed`);
    }
    refresh("containers");
    store.dispatchEvent(new Event("change"));
}

async function removeFile(name) {
    if (
        !(await confirm({
            title: `Delete compose file ${name}?`,
            action: "Delete",
            text: "Containers that were made from it stay, and can then only be handled one by one.",
        }))
    )
        return;
    try {
        await call("DELETE", path`/compose-files/${name}`);
        outputs.delete(name);
        succeeded(`Compose file ${name} deleted`);
    } catch (error) {
        failed(`Delete ${name}: ${error.message}`);
    }
    refresh("composeFiles");
}

function makeMember() {
    const mark = stateMark(),
        link = h("a");
    return {
        element: h("li", mark.element, link),
        update(container) {
            mark.update(container);
            link.href = containerLink(container.name);
            setText(link, visible(container.detail?.Compose?.Service ?? container.name));
        },
    };
}

function makeFile({fileName}) {
    const shownName = visible(fileName);
    const note = h("span.hint"),
        members = h("ul.members"),
        output = h("pre.output", {tabindex: 0, "aria-label": `Output for ${shownName}`});
    const updateMembers = keyedChildren(members, container => container.id, makeMember);
    const buttons = COMMANDS.filter(([operation]) => session.may(operation)).map(command => [
        command,
        button(command[1], command[2], () => run(fileName, command), {
            kind: command[0] === "composeRemove" ? "danger" : "",
        }),
    ]);
    const away = session.may("deleteComposeFile")
        ? button("remove", `Delete file ${shownName}`, () => removeFile(fileName), {text: false, kind: "danger"})
        : [];
    const element = h(
        "li.card",
        h(
            "header.card-head",
            h("h2", shownName),
            note,
            h("span.space"),
            h(
                "div.buttons",
                buttons.map(([, element]) => element),
                away,
            ),
        ),
        members,
        output,
    );
    return {
        element,
        update({size, modified}) {
            const own = [...store.containers.values()]
                .filter(({detail}) => detail?.Compose?.File === fileName)
                .sort((a, b) => (a.name < b.name ? -1 : 1));
            const running = own.filter(({state}) => state === "running").length;
            const {doing, text, ok} = outputs.get(fileName) ?? {};
            setText(
                note,
                doing ??
                    (own.length
                        ? `${running} of ${plural(own.length, "container")} running`
                        : `no containers · ${bytes(size)}, ${ago(moment(modified))}`),
            );
            updateMembers(own);
            show(members, own.length > 0);
            for (const [[operation], element] of buttons) {
                element.disabled = Boolean(doing);
                if (operation !== "composeCreate") show(element, own.length > 0); // the others want some
            }
            show(output, Boolean(text));
            output.classList.toggle("failed", ok === false);
            setText(output, outputText(text));
        },
    };
}

export function composeView() {
    const panel = session.may("uploadComposeFile")
        ? uploadPanel({
              label: "Upload a compose file",
              accept: ".yml,.yaml",
              targets: ["/compose-files"],
              targetOf: () => "/compose-files",
              done: () => refresh("composeFiles"),
          })
        : null;
    const files = h("ul.cards"),
        empty = h("p.empty.card");
    const updateFiles = keyedChildren(files, file => file.fileName, makeFile);

    function update() {
        const all = store.composeFiles ?? [];
        updateFiles(all);
        show(empty, !all.length);
        setText(empty, store.errors.composeFiles ?? (store.composeFiles ? "There are no compose files." : "Reading…"));
    }

    refresh("composeFiles");
    return {
        title: "Compose",
        update,
        close: () => panel?.close(),
        element: h(
            "div",
            h("header.view-head", h("h1", {tabindex: -1}, "Compose files")),
            panel?.element ?? [],
            files,
            empty,
        ),
    };
}
