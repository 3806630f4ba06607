// Images, their upload, and the disk that is left for them.

import {confirm, failed, succeeded} from "../core/dialog.js";
import {button, h, row, setText, show, table} from "../core/dom.js";
import {ago, bytes, moment, plural, shortId, visible} from "../core/format.js";
import {path} from "../core/http.js";
import {call} from "../core/service.js";
import {session} from "../core/session.js";
import {refresh, store} from "../core/store.js";
import {uploadPanel} from "../core/upload_panel.js";

const labelOf = image => image.RepoTags?.[0] ?? shortId(image.Id);

async function remove(image) {
    const name = labelOf(image);
    if (
        !(await confirm({
            title: `Delete image ${name}?`,
            action: "Delete",
            text: `It holds ${bytes(image.Size)}. No container uses it.`,
        }))
    )
        return;
    try {
        await call("DELETE", path`/images/${image.RepoTags?.[0] ?? image.Id}`, {seconds: 150});
        succeeded(`Image ${name} deleted`);
    } catch (error) {
        failed(`Delete ${name}: ${error.message}`);
    }
    refresh("images");
    refresh("storage");
}

function makeRow(first) {
    const tags = h("span"),
        id = h("code"),
        size = h("span"),
        created = h("span"),
        used = h("span");
    let image = first;
    const away = button("remove", `Delete ${visible(labelOf(first))}`, () => remove(image), {
        text: false,
        kind: "danger",
    });
    return {
        element: row([
            ["col-name", tags],
            ["col-id", id],
            ["col-number", size],
            ["col-since", created],
            ["col-since", used],
            ["col-actions", h("div.buttons", session.may("removeImage") ? away : [])],
        ]),
        update(item) {
            image = item;
            setText(tags, visible(item.RepoTags?.join(", ") || "(no name)"));
            setText(id, shortId(item.Id));
            setText(size, bytes(item.Size));
            setText(created, ago(moment(item.Created)));
            setText(used, item.Containers > 0 ? `used by ${plural(item.Containers, "container")}` : "unused");
            show(away, !(item.Containers > 0));
        },
    };
}

function meter(label, share) {
    const bar = h(`span${share > 0.95 ? ".bad" : share > 0.9 ? ".warning" : ""}`);
    bar.style.width = `${share * 100}%`;
    const percent = Math.round(share * 100);
    return h(
        "div.meter",
        {role: "meter", "aria-label": label, "aria-valuemin": 0, "aria-valuemax": 100, "aria-valuenow": percent},
        bar,
    );
}

/** How full each volume is, as bars. */
export function volumeBars() {
    const element = h("ul.volumes");
    let shown = "";
    return {
        element,
        update() {
            const volumes = store.storage?.volumes ?? [];
            const now = JSON.stringify(volumes);
            if (now === shown) return;
            shown = now;
            element.replaceChildren(
                ...volumes.map(({What, Path, FreeBytes, TotalBytes}) => {
                    const free = TotalBytes ? FreeBytes / TotalBytes : 0;
                    return h(
                        "li",
                        h("span.volume-name", {title: Path}, visible(What)),
                        h("span.volume-free", `${bytes(FreeBytes)} of ${bytes(TotalBytes)} free`),
                        meter(`${visible(What)}: used`, 1 - free),
                    );
                }),
            );
        },
    };
}

export function imagesView() {
    const list = table(
        "Images",
        [
            ["col-name", "Name"],
            ["col-id", "Id"],
            ["col-number", "Size"],
            ["col-since", "Created"],
            ["col-since", "Use"],
            ["col-actions", "(Actions)"],
        ],
        image => image.Id,
        makeRow,
    );
    const empty = h("p.empty"),
        volumes = volumeBars();
    const note = h("span.hint");
    const panel = session.may("uploadImage")
        ? uploadPanel({
              label: "Upload an image archive",
              accept: ".tar,.gz,.tgz,.bz2,.xz,.zst",
              targets: ["/images"],
              note,
              targetOf(file) {
                  const free = store.storage?.volumes.find(({What}) => What.split(", ").includes("uploads"))?.FreeBytes;
                  return file.size > free
                      ? {refused: `it has ${bytes(file.size)}, and ${bytes(free)} of the disk are free`}
                      : "/images";
              },
              done: () => refresh("images").then(() => refresh("storage")),
          })
        : null;

    function update() {
        volumes.update();
        const images = [...(store.images ?? [])].sort((a, b) => (labelOf(a) < labelOf(b) ? -1 : 1));
        list.update(images);
        show(list.element, images.length > 0);
        show(empty, !images.length);
        setText(empty, store.errors.images ?? (store.images ? "There are no images." : "Reading…"));
        const unused = store.storage?.images?.UnusedBytes;
        setText(note, unused > 0 ? `Images that nothing uses hold ${bytes(unused)}` : "");
    }

    refresh("images");
    refresh("storage");
    return {
        title: "Images",
        update,
        close: () => panel?.close(),
        element: h(
            "div",
            h("header.view-head", h("h1", {tabindex: -1}, "Images")),
            panel?.element ?? [],
            h("section.card", {"aria-label": "Disk"}, volumes.element),
            h("div.card.flush", list.element, empty),
        ),
    };
}
