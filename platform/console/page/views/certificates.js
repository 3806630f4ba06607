// The three TLS files, and how long the certificate lasts.

import {confirm, failed, succeeded} from "../core/dialog.js";
import {button, h, setText, show} from "../core/dom.js";
import {bytes, dateTime, moment, plural} from "../core/format.js";
import {loader} from "../core/loader.js";
import {call} from "../core/service.js";
import {session} from "../core/session.js";
import {readHealth, store} from "../core/store.js";
import {uploadPanel} from "../core/upload_panel.js";

const FILES = [
    {
        fileName: "server.crt",
        part: "certificate",
        title: "Server certificate",
        noun: "server certificate",
        what: "What the service shows to its clients. With its key, only HTTPS is served.",
        loss: "At the next start the service serves no HTTPS without it.",
    },
    {
        fileName: "server.key",
        part: "private-key",
        title: "Private key",
        noun: "private key",
        what: "Belongs to the server certificate. It never leaves the target.",
        loss: "At the next start the service serves no HTTPS without it.",
    },
    {
        fileName: "ca.crt",
        part: "ca-certificate",
        title: "CA of the clients",
        noun: "clients' CA",
        what: "Clients with a certificate that it signed may come in without a token.",
        loss: "From the next start on nobody gets in by a client certificate.",
    },
];

export function certificatesView() {
    const note = h("p.hint");
    const panels = [];
    const slots = FILES.map(({fileName, part, title, noun, what, loss}) => {
        const state = h("span.hint", "Reading…"),
            target = `/certs/${part}`;
        const away = button(
            "remove",
            `Delete ${noun}`,
            async () => {
                if (!(await confirm({title: `Delete the ${noun}?`, action: "Delete", text: loss}))) return;
                try {
                    await call("DELETE", target);
                    succeeded(`${title} deleted`);
                } catch (error) {
                    failed(`Delete ${noun}: ${error.message}`);
                }
                certs.read();
            },
            {text: false, kind: "danger"},
        );
        const panel = session.may("uploadCertificate")
            ? uploadPanel({
                  label: `Upload the ${noun}`,
                  accept: ".crt,.pem,.key,.cer",
                  multiple: false,
                  targets: [target],
                  targetOf: () => target,
                  done: () => certs.read(),
              })
            : null;
        if (panel) panels.push(panel);
        show(away, false);
        return {
            fileName,
            element: h(
                "li.card",
                h(
                    "header.card-head",
                    h("h2", title),
                    state,
                    h("span.space"),
                    session.may("deleteCertificate") ? away : [],
                ),
                h("p", what),
                panel?.element ?? [],
            ),
            update(file) {
                show(away, Boolean(file));
                setText(
                    state,
                    file ? `${fileName}, ${bytes(file.size)}, of ${dateTime(moment(file.modified))}` : "not there",
                );
            },
        };
    });
    const certs = loader(
        () => "/certs",
        "certificate",
        ({certs: files}) => {
            slots.forEach(slot => slot.update(files.find(file => file.fileName === slot.fileName)));
            readHealth();
        },
        text => setText(note, text),
    );

    function update() {
        const {NotAfter, days, reason} = store.health?.certificate ?? {};
        setText(
            note,
            NotAfter
                ? `The certificate is valid until ${dateTime(moment(NotAfter))}, ${plural(Math.floor(days), "day")} from now.`
                : (reason ?? ""),
        );
    }

    return {
        title: "Certificates",
        update,
        element: h(
            "div",
            h("header.view-head", h("h1", {tabindex: -1}, "Certificates"), note),
            h(
                "ul.cards",
                slots.map(({element}) => element),
            ),
        ),
        close() {
            certs.close();
            panels.forEach(panel => panel.close());
        },
    };
}
