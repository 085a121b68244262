// Jobs in words that several views share.
import { el } from "./dom.js";
import { count, language, say } from "./texts.js";
import { time } from "./times.js";

export function stateOf(job) {
  return job.state === "waiting" && job.failures > 0 ? "failing" : job.state;
}

export const badge = (state) => el("span", { class: `state ${state}` }, say(`state_${state}`));

// Sentences of the service are English; a reader of another language, and what reads aloud, is told so.
export const english = (name, text) => el(name, { lang: language === "en" ? false : "en", class: "break" }, text);

export function next(job) {
  if (job.state === "paused") return say("next_paused");
  if (job.state === "running") return say("next_running");
  const when = job.state === "verified" ? job.renew : job.due;
  if (!when) return "";
  if (new Date(when) <= Date.now()) return [say(job.state === "verified" ? "next_renews_now" : "next_now"), job.failures ? ` (${say("failures", { count: count(job.failures) })})` : ""];
  return [say(job.state === "verified" ? "next_renews" : job.failures ? "next_retries" : "next_runs"), " ", time(when, "near"),
    job.failures ? ` (${say("failures", { count: count(job.failures) })})` : ""];
}

// What can be done to a job: each says before what it will do.
export function actions(job, { act }) {
  const one = (name, first) => el("button", { "data-key": name, class: first ? "first" : false, "aria-label": `${say(`do_${name}`)}: ${job.certname}`, onclick: () => act({
    title: say(`do_${name}_title`, { name: job.certname }), text: say(`do_${name}_text`, { name: job.certname }), button: say(`do_${name}`), path: `jobs/${job.id}/${name}`, done: say(`done_${name}`, { name: job.certname }) }) }, say(`do_${name}`));
  if (job.paused) return [one("resume", true)];
  if (job.processing) return [one("pause")];
  return [job.verified ? one("renew") : one("retry", true), one("pause")];
}
