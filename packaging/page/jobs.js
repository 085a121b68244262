// The table of certificates: searched, filtered, sorted and cut into pages by the service.
import { read, session } from "./api.js";
import { el } from "./dom.js";
import { say } from "./texts.js";
import { time } from "./times.js";
import { badge, next, stateOf } from "./words.js";

const STATES = ["", "failing", "waiting", "running", "verified", "expiring", "paused", "due"];
const ORDERS = ["", "name", "end"];
const LIMIT = 50;

function question(query) {
  const asked = new URLSearchParams({ limit: LIMIT });
  const search = query.get("search")?.trim();
  if (query.get("user")) asked.set("user", query.get("user"));
  if (search) asked.set("begin", search);
  else if (query.get("state")) asked.set("state", query.get("state"));
  else if (query.get("order") === "name") asked.set("order", "name");
  else if (query.get("order") === "end") asked.set("expires_within", "36500");
  if (query.get("after")) asked.set("after", query.get("after"));
  return asked;
}

async function ask(query, byItself) {
  const found = await read(`jobs?${question(query)}`, byItself);
  const search = query.get("search")?.trim();
  if (found.jobs.length || !search?.includes(".") || query.get("after")) return found;
  // No certificate is called so; one may have the name among its others.
  return read(`jobs?${new URLSearchParams({ limit: LIMIT, name: search })}`, byItself).catch(() => found);
}

// What comes by itself changes rows where they stand. What would move them is offered, not done.
async function load({ query }, byItself, before) {
  const found = await ask(query, byItself);
  const same = (list) => list.jobs.map(({ id }) => id).join();
  if (!byItself || !before || same(found) === same(before.found)) return { query, found, newer: null };
  const known = new Map(found.jobs.map((job) => [job.id, job]));
  return { query, found: { ...before.found, jobs: before.found.jobs.map((job) => known.get(job.id) ?? job) }, newer: found };
}

function hashOf(query, changes) {
  const changed = new URLSearchParams(query);
  for (const [name, value] of Object.entries(changes)) value ? changed.set(name, value) : changed.delete(name);
  return `#/jobs?${changed}`;
}

function filters({ query }, { go }) {
  const search = query.get("search") ?? "";
  const choose = (name, values, words, disabled) => el("label", {}, say(name), el("select", { name, disabled, onchange: (event) => go(hashOf(query, { [name]: event.target.value, after: "" })) },
    values.map((value) => el("option", { value, selected: (query.get(name) ?? "") === value }, say(`${words}_${value || "all"}`)))));
  const submit = (event) => {
    event.preventDefault();
    const form = new FormData(event.target);
    go(hashOf(query, { search: form.get("search"), user: form.get("user"), after: "" }));
  };
  return el("form", { class: "filters", role: "search", onsubmit: submit },
    el("label", { class: "grow" }, say("search"), el("input", { type: "search", name: "search", value: search, placeholder: say("search_hint"), autocomplete: "off" })),
    session.user ? null : el("label", {}, say("user"), el("input", { type: "text", name: "user", value: query.get("user") ?? "", autocomplete: "off" })),
    choose("state", STATES, "filter", Boolean(search)), choose("order", ORDERS, "order", Boolean(search || query.get("state"))),
    el("button", { type: "submit" }, say("search_do")));
}

function row(job) {
  const cell = (label, ...children) => el("td", { "data-label": say(label) }, children);
  return el("tr", { "data-key": job.id }, el("td", { class: "name" }, el("a", { href: `#/job/${job.id}` }, job.certname), job.aliases.length > 1 && el("div", { class: "soft small" }, job.aliases.filter((name) => name !== job.certname).join(", "))),
    cell("user", job.user_name), cell("state", badge(stateOf(job))), cell("expires", time(job.expires, "day")), cell("next", next(job)));
}

function table({ found, query }) {
  const filtered = ["search", "user", "state"].some((name) => query.get(name));
  if (!found.jobs.length)
    return el("div", { class: "empty" }, el("strong", {}, filtered ? say("none_found") : say("no_jobs")), filtered ? el("a", { href: "#/jobs" }, say("show_all")) : say("no_jobs_text"));
  return el("table", {}, el("caption", { hidden: true }, say("certificates")), el("thead", {}, el("tr", {}, el("th", { scope: "col", class: "name" }, say("certificate")), ["user", "state", "expires", "next"].map((name) => el("th", { scope: "col" }, say(name))))),
    el("tbody", {}, found.jobs.map(row)));
}

function pages({ found, query }) {
  if (!found.next && !query.get("after")) return null;
  return el("nav", { class: "pages", "aria-label": say("pages") }, query.get("after") ? el("a", { class: "button", href: hashOf(query, { after: "" }) }, say("first_page")) : el("span"),
    found.next ? el("a", { class: "button", href: hashOf(query, { after: found.next }) }, say("next_page")) : el("span"));
}

function render(data, tools) {
  const show = () => { Object.assign(data, { found: data.newer, newer: null }); tools.draw(); };
  return [el("div", { class: "head" }, el("h1", {}, say("certificates"))), el("section", { class: "card" }, filters(data, tools)),
    data.newer && el("div", { class: "changed", role: "status" }, el("span", {}, say("list_changed")), el("button", { onclick: show }, say("list_show"))),
    el("section", { class: "card" }, table(data), pages(data))].filter(Boolean);
}

export const jobs = { load, render };
