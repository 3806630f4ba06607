// Plugins. What is changed here counts from the next boot on.

import {confirm, failed, succeeded} from "../core/dialog.js";
import {button, h, row, setText, show, table} from "../core/dom.js";
import {ago, bytes, moment, visible} from "../core/format.js";
import {path} from "../core/http.js";
import {loader} from "../core/loader.js";
import {call} from "../core/service.js";
import {session} from "../core/session.js";
import {uploadPanel} from "../core/upload_panel.js";

export function pluginsView() {
    const list = table(
        "Plugins",
        [
            ["col-state", "State"],
            ["col-name", "Name"],
            ["col-group", "Version"],
            ["col-number", "Size"],
            ["col-since", "Uploaded"],
            ["col-actions", "(Actions)"],
        ],
        plugin => plugin.fileName,
        makeRow,
    );
    const empty = h("p.empty", "Reading…");
    const plugins = loader(
        () => "/plugins",
        "plugin",
        body => {
            list.update(body.plugins);
            show(list.element, body.plugins.length > 0);
            show(empty, !body.plugins.length);
            setText(empty, "There are no plugins.");
        },
        text => {
            show(empty, true);
            setText(empty, text);
        },
    );
    show(list.element, false);

    async function change(words, request) {
        try {
            const {body} = await call(...request);
            succeeded(body?.message ?? `${words}: done; it counts from the next boot on`);
        } catch (error) {
            failed(`${words}: ${error.message}`);
        }
        plugins.read();
    }

    async function remove({fileName}) {
        if (
            await confirm({title: `Delete plugin ${fileName}?`, action: "Delete", text: "It is gone at the next boot."})
        )
            change(`Delete ${fileName}`, ["DELETE", path`/plugins/${fileName}`]);
    }

    function makeRow(first) {
        let plugin = first;
        const state = h("span"),
            size = h("span"),
            since = h("span");
        const turn = button(null, "", () =>
            change(`${turn.textContent} ${plugin.name}`, [
                "PUT",
                path`/plugins/${plugin.name}/activate?pluginVersion=${plugin.version}`,
                {json: {activate: plugin.isDeactivated}},
            ]),
        );
        const away = button("remove", `Delete ${visible(first.fileName)}`, () => remove(plugin), {
            text: false,
            kind: "danger",
        });
        return {
            element: row(
                [
                    ["col-state", state],
                    ["col-name", visible(first.name)],
                    ["col-group", visible(first.version)],
                    ["col-number", size],
                    ["col-since", since],
                    [
                        "col-actions",
                        h(
                            "div.buttons",
                            session.may("activatePlugin") ? turn : [],
                            session.may("deletePlugin") ? away : [],
                        ),
                    ],
                ],
                1,
            ),
            update(item) {
                plugin = item;
                setText(state, item.isDeactivated ? "deactivated" : "active");
                setText(turn.lastChild, item.isDeactivated ? "Activate" : "Deactivate");
                turn.setAttribute("aria-label", `${turn.textContent} ${visible(item.name)} ${visible(item.version)}`);
                setText(size, bytes(item.size));
                setText(since, ago(moment(item.modified)));
            },
        };
    }

    const panel = session.may("uploadPlugin")
        ? uploadPanel({
              label: "Upload a plugin",
              accept: ".crp",
              targets: ["/plugins"],
              targetOf: file =>
                  file.name.endsWith(".crp") ? "/plugins" : {refused: "the name of a plugin ends in .crp"},
              done: plugins.read,
          })
        : null;
    return {
        title: "Plugins",
        element: h(
            "div",
            h(
                "header.view-head",
                h("h1", {tabindex: -1}, "Plugins"),
                h("p.hint", "Changes count from the next boot on."),
            ),
            panel?.element ?? [],
            h("div.card.flush", list.element, empty),
        ),
        close() {
            plugins.close();
            panel?.close();
        },
    };
}
