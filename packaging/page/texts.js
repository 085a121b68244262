// The words of the page, in the reader's language; English for what a translation leaves out.

let words = {};
export let language = "en";

const load = async (name) => (await fetch(`texts/${name}.json`)).json();

export async function choose(name) {
  const english = await load("en");
  words = name === "en" ? english : { ...english, ...(await load(name)) };
  language = name;
  document.documentElement.lang = name;
}

// "{name}" stands for a value. One pass, so that a value that looks so stays itself.
export function say(key, values = {}) {
  return (words[key] ?? key).replace(/\{([a-z]+)\}/g, (whole, name) => (name in values ? String(values[name]) : whole));
}

export const has = (key) => key in words;
export const count = (number) => new Intl.NumberFormat(language).format(number);
