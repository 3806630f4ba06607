// The page's frame: who is in, where one is, and whether what is shown is fresh.

import {forgetMessages, toasts} from "./core/dialog.js";
import {button, h, icon, oncePerFrame, setText, show} from "./core/dom.js";
import {clock, visible} from "./core/format.js";
import {problemsOf} from "./core/problems.js";
import {service} from "./core/service.js";
import {askIdentity, session} from "./core/session.js";
import * as live from "./core/store.js";
import {cancelAll} from "./core/uploads.js";
import {auditView} from "./views/audit.js";
import {certificatesView} from "./views/certificates.js";
import {composeView, forgetOutputs} from "./views/compose.js";
import {containerView} from "./views/container.js";
import {containersView} from "./views/containers.js";
import {imagesView} from "./views/images.js";
import {loginView} from "./views/login.js";
import {overviewView} from "./views/overview.js";
import {pluginsView} from "./views/plugins.js";
import {settingsView} from "./views/settings.js";

const {store} = live;

const PLACES = [
    ["overview", "Overview", overviewView],
    ["containers", "Containers", containersView],
    ["images", "Images", imagesView],
    ["compose", "Compose", composeView],
    ["plugins", "Plugins", pluginsView],
    ["certificates", "Certificates", certificatesView],
    ["settings", "Settings", settingsView],
    ["audit", "Audit", auditView, "getAudit"], // for whom may do this
];

let view = null;
let frame = null; // what stands around the view while somebody is in

const update = oncePerFrame(() => {
    if (!frame) return;
    frame.update();
    view?.update?.();
});

function makeFrame() {
    const links = PLACES.filter(([, , , operation]) => !operation || session.may(operation)).map(([name, label]) => ({
        name,
        count: h("span.badge"),
        element: h("a", {href: `#/${name}`}, icon(name), h("span", label)),
    }));
    links[0].element.append(links[0].count);
    const nav = h(
        "nav",
        {id: "places", "aria-label": "Places"},
        links.map(({element}) => element),
    );
    const menu = button("menu", "Places", () => openMenu(!nav.classList.contains("open")), {
        text: false,
        "aria-expanded": "false",
        "aria-controls": "places",
        kind: "menu",
    });
    const host = h("span.host"),
        lost = h("div.lost", {role: "alert"});
    const main = h("main", {id: "main"});

    function openMenu(open) {
        nav.classList.toggle("open", open);
        menu.setAttribute("aria-expanded", String(open));
    }

    return {
        main,
        openMenu,
        element: h(
            "div.frame",
            h(
                "a.skip",
                {
                    href: "#main",
                    onclick: event => {
                        event.preventDefault();
                        main.querySelector("h1")?.focus();
                    },
                },
                "Skip to the content",
            ),
            h(
                "header.bar",
                menu,
                h("a.brand", {href: "#/overview"}, icon("containers"), h("span", "Korvex Container Service")),
                host,
                h("span.space"),
                h("span.who", h("span", visible(session.identity.name)), h("span.role", session.identity.role)),
                session.token
                    ? button("leave", "Log out", () => leave(""), {kind: "quiet", "aria-label": "Log out"})
                    : [],
            ),
            nav,
            lost,
            main,
        ),
        place(name) {
            for (const link of links) {
                if (link.name === name) link.element.setAttribute("aria-current", "page");
                else link.element.removeAttribute("aria-current");
            }
            openMenu(false);
        },
        update() {
            setText(host, visible(store.health?.host ?? location.host));
            setText(
                lost,
                service.reachable
                    ? ""
                    : `No connection to the service since ${clock(service.lostAt)}. What is shown is from then. Trying again…`,
            );
            show(lost, !service.reachable);
            const count = problemsOf(store).length;
            setText(links[0].count, count ? String(count) : "");
            show(links[0].count, count > 0);
            links[0].count.title = `${count} problems`;
            document.title = `${count ? `(${count}) ` : ""}${view?.title ?? ""} – Korvex Container Service`;
        },
    };
}

function showView(next, focus) {
    view?.close?.();
    view = next;
    document.title = `${view.title} – Korvex Container Service`;
    if (!frame) return document.body.replaceChildren(view.element, toasts);
    frame.main.className = view.wide ? "wide" : "";
    frame.main.replaceChildren(view.element);
    view.update?.();
    scrollTo(0, 0);
    if (focus) view.element.querySelector("h1")?.focus({preventScroll: true});
}

/** Shows what the address names: #/containers/NAME. */
function go(focus = true) {
    if (!frame) return;
    const [, name, parameter] = location.hash.split("/");
    const place =
        PLACES.find(([known, , , operation]) => known === name && (!operation || session.may(operation))) ?? PLACES[0];
    frame.place(place[0]);
    if (place[0] === "containers" && parameter) showView(containerView(decodeURIComponent(parameter)), focus);
    else showView(place[2](), focus);
}

function enter() {
    frame = makeFrame();
    document.body.replaceChildren(frame.element, toasts);
    live.open();
    frame.update();
    go();
}

/** Ends the session; nothing of it stays in the page. */
function leave(reason) {
    if (frame) live.close();
    cancelAll();
    forgetOutputs();
    forgetMessages();
    session.forget();
    frame = null;
    showView(loginView(reason, enter));
    document.getElementById("token").focus();
}

async function begin() {
    try {
        session.identity = await askIdentity(session.token);
    } catch {
        document.querySelector("main p").textContent = "The service cannot be reached. Trying again…";
        return setTimeout(begin, 2000);
    }
    if (session.identity) enter();
    else leave(session.token ? "The token of this tab no longer opens. Log in again." : "");
}

addEventListener("hashchange", () => go());
addEventListener("visibilitychange", () => !document.hidden && frame && live.readHealth());
store.addEventListener("change", update);
service.addEventListener("reach", update);
service.addEventListener(
    "refused",
    () => frame && leave("Your access has ended: the token was removed, renewed or has expired. Log in again."),
);
begin();
