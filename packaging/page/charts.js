// Bars over days. Each chart has a sentence that says the same, for whoever does not see it.
import { el, svg } from "./dom.js";
import { count, language, say } from "./texts.js";
import { dayName } from "./times.js";

const WIDTH = 560, HEIGHT = 130, BASE = 104, TOP = 14;

export function days(first, number) {
  const list = [];
  for (let i = 0; i < number; ++i) list.push(new Date(Date.parse(`${first}T12:00:00Z`) + i * 86400000).toISOString().slice(0, 10));
  return list;
}

const short = (day) => new Intl.DateTimeFormat(language, { day: "numeric", month: "short", timeZone: "UTC" }).format(new Date(`${day}T12:00:00Z`));

// `bars`: for each day its parts [class, number, words], the lowest first.
export function chart(title, summary, bars) {
  const most = Math.max(1, ...bars.map(({ parts }) => parts.reduce((sum, part) => sum + part[1], 0)));
  const step = WIDTH / bars.length;
  const shapes = bars.map(({ day, parts }, index) => {
    let top = BASE;
    const words = parts.filter((part) => part[1]).map((part) => `${count(part[1])} ${part[2]}`).join(", ");
    return svg("g", {}, svg("title", {}, `${dayName(day)}: ${words || say("nothing")}`),
      svg("rect", { x: index * step, y: TOP, width: step, height: BASE - TOP, fill: "transparent" }),
      parts.filter((part) => part[1]).map(([kind, number]) => {
        const height = Math.max(2, (number / most) * (BASE - TOP));
        top -= height;
        return svg("rect", { class: `bar-${kind}`, x: index * step + step * 0.15, y: top, width: step * 0.7, height, rx: Math.min(2, step / 4) });
      }));
  });
  const marks = [0, Math.floor(bars.length / 2), bars.length - 1].map((index, place) =>
    svg("text", { x: index * step + step / 2, y: HEIGHT - 8, "text-anchor": ["start", "middle", "end"][place] }, short(bars[index].day)));
  return el("figure", {}, svg("svg", { class: "chart", viewBox: `0 0 ${WIDTH} ${HEIGHT}`, role: "img", "aria-label": `${title}. ${summary}` },
    svg("line", { class: "axis", x1: 0, x2: WIDTH, y1: BASE + 0.5, y2: BASE + 0.5 }),
    svg("text", { x: 0, y: 10 }, count(most)), shapes, marks),
    el("figcaption", { class: "small soft" }, summary));
}
