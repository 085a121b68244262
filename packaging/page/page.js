// What the page is made of: who is there, which view is shown, and changes as they come.
import { begin, change, logIn, read, Refused, session } from "./api.js";
import { el, updateChildren } from "./dom.js";
import { choose, language, say } from "./texts.js";
import { deeds } from "./deeds.js";
import { job } from "./job.js";
import { jobs } from "./jobs.js";
import { notices } from "./notices.js";
import { overview } from "./overview.js";

const views = { "": overview, jobs, job, notices, deeds };
const main = document.getElementById("main");
let current = null; // {view, route, data}
let turn = 0;
let stream = null;

function routeOf(hash) {
  const [path, query] = hash.replace(/^#\/?/, "").split("?");
  const [name, id] = path.split("/");
  return { name: views[name] ? name : "", id, query: new URLSearchParams(query ?? "") };
}

export function tell(text) {
  const status = document.getElementById("status");
  status.textContent = text;
  clearTimeout(tell.timer);
  tell.timer = setTimeout(() => (status.textContent = ""), 6000);
}

const link = (name, text) =>
  el("li", {}, el("a", { href: `#/${name}`, "aria-current": current?.route.name === name ? "page" : false }, text));

function header(live) {
  const names = [link("", say("overview")), link("jobs", say("certificates")), link("notices", say("notices"))];
  if (!session.user) names.push(link("deeds", say("deeds")));
  updateChildren(document.getElementById("header"), [
    el("div", { class: "bar" }, el("a", { class: "brand", href: "#/" }, "zelvek"), el("nav", { "aria-label": say("views") }, el("ul", {}, names)),
      el("div", { class: "who" }, el("span", { class: live ? "live" : "live off", title: live ? say("live_title") : say("not_live_title") }, live ? say("live") : say("not_live")),
        el("span", {}, session.user ?? say("administrator")),
        session.session && el("button", { class: "plain", onclick: leave }, say("log_out"))))]);
}

// The door: nobody is logged in.
function door(text) {
  stream?.close();
  stream = null;
  current = null;
  tell("");
  document.title = `${say("log_in")} · zelvek`;
  updateChildren(document.getElementById("header"), [el("div", { class: "bar" }, el("span", { class: "brand" }, "zelvek"))]);
  const enter = async (event) => {
    event.preventDefault();
    const given = main.querySelector("input").value.trim();
    await enterWith(given.split("#login=").pop());
  };
  updateChildren(main, [el("section", { class: "door card" }, el("h1", {}, say("log_in")), el("p", {}, text), el("p", { class: "soft" }, say("log_in_how")),
    el("p", {}, el("code", {}, "zelvek page login")),
    el("form", { class: "filters", onsubmit: enter }, el("label", { class: "grow" }, say("log_in_link"), el("input", { type: "text", autocomplete: "off", spellcheck: "false", required: true })),
      el("button", { class: "first", type: "submit" }, say("log_in"))))]);
}

async function enterWith(token) {
  try {
    await logIn(token);
    history.replaceState(null, "", "#/");
    await start();
  } catch (error) {
    door(error.status === 429 ? say("log_in_busy") : error.status === 0 ? say("away") : say("log_in_refused"));
  }
}

async function leave() {
  await change("logout");
  door(say("logged_out"));
}

function failed(error) {
  if (!(error instanceof Refused)) throw error;
  if (error.status === 401) door(say("session_over"));
  else if (error.status === 0) header(false);
  else if (error.status === 404 && current) updateChildren(main, [el("div", { class: "card empty" }, el("strong", {}, say("not_there")), el("a", { href: "#/" }, say("overview")))]);
  else tell(error.message || say("away"));
}

function draw() {
  updateChildren(main, current.view.render(current.data, tools));
}

// Asks for the shown view anew; what is slower than a newer question is not shown.
export async function refresh(byItself = true) {
  const mine = ++turn;
  const shown = current;
  if (!shown) return;
  try {
    const data = await shown.view.load(shown.route, byItself, shown.data);
    if (mine !== turn || shown !== current) return;
    shown.data = data;
    draw();
    header(stream?.readyState === EventSource.OPEN);
  } catch (error) {
    failed(error);
  }
}

async function go() {
  if (location.hash.startsWith("#login=")) return enterWith(location.hash.slice("#login=".length));
  const route = routeOf(location.hash);
  const same = current?.route.name === route.name && current?.route.id === route.id;
  current = { view: views[route.name], route, data: same ? current.data : null };
  header(stream?.readyState === EventSource.OPEN);
  await refresh(false);
  if (!current) return;
  document.title = `${main.querySelector("h1")?.textContent ?? ""} · zelvek`;
  if (!same) {
    window.scrollTo(0, 0);
    main.focus({ preventScroll: true });
  }
}

// An action, after what it will do has been said.
async function act({ title, text, button, path, done }) {
  const dialog = document.getElementById("dialog");
  const before = document.activeElement;
  const agreed = await new Promise((resolve) => {
    const close = (answer) => { dialog.close(); resolve(answer); };
    updateChildren(dialog, [el("h2", { id: "dialog-title" }, title), el("p", { id: "dialog-text" }, text),
      el("div", { class: "actions" }, el("button", { class: "first", onclick: () => close(true) }, button), el("button", { onclick: () => close(false) }, say("cancel")))]);
    dialog.oncancel = () => resolve(false);
    dialog.showModal();
  });
  before?.focus?.();
  if (!agreed) return;
  try {
    await change(path);
    tell(done);
  } catch (error) {
    failed(error);
  }
  await refresh(false);
}

export const tools = { act, draw, refresh, tell, go: (hash) => { location.hash = hash; } };

// A stream of changes: while nothing changes, nothing is asked.
function listen() {
  stream?.close();
  stream = new EventSource("api/changes");
  let waiting = null;
  stream.onopen = () => header(true);
  stream.onmessage = () => {
    waiting ??= setTimeout(() => { waiting = null; refresh(); }, 150);
  };
  stream.onerror = () => {
    header(false);
    if (stream?.readyState === EventSource.CLOSED) setTimeout(again, 3000);
  };
}

async function again() {
  if (!stream) return;
  try {
    await begin();
    listen();
  } catch (error) {
    if (error.status === 401) failed(error);
    else setTimeout(again, 3000);
  }
}

async function start() {
  await begin();
  if (session.language !== language) await choose(session.language);
  document.getElementById("skip").textContent = say("skip");
  listen();
  await go();
}

window.addEventListener("hashchange", go);
// "In 5 minutes" grows old, without a question to the service.
setInterval(() => current?.data && draw(), 60000);

const preferred = (navigator.language ?? "en").slice(0, 2) === "de" ? "de" : "en";
await choose(preferred);
if (location.hash.startsWith("#login=")) await enterWith(location.hash.slice("#login=".length));
else await start().catch((error) => door(error.status === 401 ? say("nobody") : say("away")));
