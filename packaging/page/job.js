// One job: what it does next, what can be done, and its story.
import { read } from "./api.js";
import { el } from "./dom.js";
import { has, language, say } from "./texts.js";
import { time } from "./times.js";
import { actions, badge, english, next, stateOf } from "./words.js";

const load = ({ id }, byItself) => read(`jobs/${encodeURIComponent(id)}`, byItself);

function facts(job) {
  const row = (name, value) => [el("dt", {}, say(name)), el("dd", {}, value)];
  return el("section", { class: "card" }, el("h2", {}, say("facts")), el("dl", { class: "facts" }, row("names", job.aliases.join(", ")), row("user", job.user_name), row("check", say(`check_${job.check_type}`)),
    row("expires", time(job.expires)), row("renewal", time(job.renew)), row("next", next(job) || "–"), job.authority !== "ambrin" ? row("authority", job.authority) : null));
}

function wordsOf(event) {
  const known = `event_${event.event}`;
  return language !== "en" && has(known) ? el("p", {}, say(known)) : english("p", event.words);
}

function entry(event, index) {
  const failed = event.state === "failed";
  return el("li", { "data-key": `${event.time} ${index}`, class: failed ? "failed" : event.event === "cert_recived" ? "verified" : "" },
    el("p", { class: "soft small" }, time(event.time), failed ? [" · ", say("state_failure")] : null), wordsOf(event),
    el("details", {}, el("summary", {}, say("raw")), el("pre", {}, `${event.time} ${event.state} ${event.event}\n${event.detail}`)));
}

function story(job) {
  if (!job.events.length) return el("section", { class: "card" }, el("h2", {}, say("story")), el("div", { class: "empty" }, say("story_empty")));
  const entries = job.events.map(entry).reverse();
  return el("section", { class: "card" }, el("h2", {}, say("story")), el("ol", { class: "line" }, entries));
}

function render(job, tools) {
  return [el("div", { class: "head" }, el("div", {}, el("p", { class: "small" }, el("a", { href: "#/jobs" }, say("certificates"))), el("h1", {}, job.certname), el("p", { class: "title" }, badge(stateOf(job)), el("span", { class: "soft small" }, say("job_number", { id: job.id })))),
    el("div", { class: "actions" }, actions(job, tools))),
    el("section", { class: "card" }, english("p", job.sentence), job.findings.length ? el("details", {}, el("summary", {}, say("findings")), el("pre", { lang: "en" }, job.findings.join("\n"))) : null),
    facts(job), story(job)];
}

export const job = { load, render };
