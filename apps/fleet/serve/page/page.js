// The page of pimsm-fleet serve. Its address is the question; everything shown comes from
// /api, /events and /svg, and is put in as text, never as markup.
"use strict";

const byId = (id) => document.getElementById(id);
const slow = 10000; // ms between looks at what is not followed
const most = 200; // routers in the list
const narrow = matchMedia("(max-width: 700px)");

let events = null; // the stream of the asked tree
let tree = null; // its last telling
let drawings = 0; // asked for; an older one that comes late is not shown
let placed = false; // has the reader been led to what matters?
let retry = null;

// An element with text or elements in it.
function make(name, attributes, ...children) {
  const made = document.createElement(name);
  for (const [key, value] of Object.entries(attributes)) {
    if (value !== null && value !== undefined && value !== "") made.setAttribute(key, value);
  }
  made.append(...children);
  return made;
}

function asked() {
  const given = new URLSearchParams(location.search);
  const question = {};
  for (const name of ["vrf", "source", "group", "to", "from", "history"]) {
    if (given.get(name)) question[name] = given.get(name);
  }
  return question;
}

// Of the stream alone, as the server takes it.
function query(more) {
  const { vrf, source, group, to, from } = asked();
  const parameters = new URLSearchParams();
  for (const [name, value] of Object.entries({ vrf, source, group, to, from, ...more })) {
    if (value) parameters.set(name, value);
  }
  return parameters.toString();
}

const keyText = (source, group) => `(${source}, ${group})`;

function rateText(bits) {
  const units = ["bit/s", "kbit/s", "Mbit/s", "Gbit/s", "Tbit/s"];
  let unit = 0;
  while (bits >= 1000 && unit < units.length - 1) {
    bits /= 1000;
    unit += 1;
  }
  return `${unit === 0 ? Math.round(bits) : bits.toFixed(1)} ${units[unit]}`;
}

async function answer(target) {
  const response = await fetch(target);
  const text = await response.text();
  if (response.ok) return text;
  throw new Error(text.trim() || response.statusText);
}

async function answerJson(target) {
  return JSON.parse(await answer(target));
}

// The verdict, and the tree.

function say(state, word, text) {
  const verdict = byId("verdict");
  const now = `${word} ${text}`;
  if (verdict.textContent === now) return; // a screen reader would say it again
  verdict.className = state;
  verdict.replaceChildren(make("strong", {}, word), ` ${text}`);
  const { source, group } = asked();
  document.title = `${word} ${keyText(source, group)}`;
}

function sayVerdict() {
  if (tree.broken) say("breaks", "Breaks.", tree.text);
  else if (tree.stale) say("doubt", "Stale.", tree.text);
  else if (tree.verdict !== "fine") say("doubt", "In doubt.", tree.text);
  else say("flows", "Flows.", tree.text);
}

const ends = { attached: "The source is on", rp: "The RP is", registers: "The source, with a router that registers it, is on", asked: "From", cut: "The way up ends at" };

// The edges as the packets flow.
function ordered() {
  const order = tree.roots.map((root) => root.node);
  const place = new Map(order.map((node, index) => [node, index]));
  const below = new Map();
  for (const edge of tree.edges) below.set(edge.from.node, [...(below.get(edge.from.node) || []), edge.to.node]);
  for (const node of order) {
    for (const each of below.get(node) || []) {
      if (!place.has(each)) {
        place.set(each, order.length);
        order.push(each);
      }
    }
  }
  const at = (end) => place.get(end.node) ?? order.length;
  return [...tree.edges].sort((a, b) => at(a.from) - at(b.from) || at(a.to) - at(b.to));
}

function listTree() {
  const word = (part) => (part.verdict === "stale" ? "in doubt: stale" : `BREAKS: ${part.verdict}`);
  const state = (part) => (part.verdict === "fine" ? make("span", {}, "fine") : make("span", { class: part.verdict === "stale" ? "doubtful" : "bad" }, word(part)));
  const at = (end) => (end.interface ? `${end.router} ${end.interface}` : end.router);
  byId("edges").replaceChildren(...ordered().map((edge) => make("tr", {},
    make("td", {}, make("a", { href: `?${query({ history: `${edge.from.router},${edge.to.router}` })}` }, at(edge.from))),
    make("td", {}, edge.word), make("td", { class: "name" }, at(edge.to)), make("td", {}, edge.rate),
    make("td", {}, state(edge), edge.reason ? ` ${edge.reason}` : ""))));
  const stale = (end) => {
    const node = tree.nodes[end.node];
    return (node.stale ? ", stale" : "") + (node.writer === "gone" ? ", agent gone" : "") + (node["as-of"] ? `, as of ${node["as-of"]}` : "");
  };
  const why = (end) => (end.verdict === "fine" ? "." : `. ${word(end)}, ${end.reason}`);
  byId("ends").replaceChildren(
    ...tree.roots.map((root) => make("li", {}, `${ends[root.kind]} ${at(root)}${stale(root)}${why(root)}`)),
    ...tree.receivers.map((end) => make("li", {}, `${end.known ? (end.member ? "A receiver" : "A receiver that no member is known of") : "An unknown receiver"} is on ${at(end)}${end["designated-router"] ? ", DR" : ""}${stale(end)}${why(end)}`)),
    ...tree.problems.map((problem) => make("li", {}, `${problem.router} is unreadable: ${problem.text}`)));
}

// Shrinks what is a little too wide; the rest scrolls.
function fit(svg) {
  const width = Number(svg.getAttribute("width"));
  const height = Number(svg.getAttribute("height"));
  const scale = Math.min(1, Math.max(0.75, byId("tree").clientWidth / width));
  svg.style.width = `${width * scale}px`;
  svg.style.height = `${height * scale}px`;
}

// To the first break or doubt, or else to the root.
function lead(svg) {
  if (placed) return;
  placed = true;
  const place = byId("tree").getBoundingClientRect();
  const part = (svg.querySelector(".broken rect") || svg.querySelector(".doubtful rect") || svg.querySelector("a rect")).getBoundingClientRect();
  byId("tree").scrollTop += part.top + part.height / 2 - place.top - place.height / 2;
  byId("tree").scrollLeft += part.left + part.width / 2 - place.left - place.width / 2;
}

async function draw() {
  const drawing = ++drawings;
  const place = byId("tree");
  try {
    const text = await answer(`svg?${query({ layout: narrow.matches ? "down" : "" })}`);
    if (drawing !== drawings) return;
    const svg = document.importNode(new DOMParser().parseFromString(text, "image/svg+xml").documentElement, true);
    if (svg.localName !== "svg") throw new Error("it is malformed");
    const focused = place.contains(document.activeElement) ? document.activeElement.getAttribute("href") : null;
    place.replaceChildren(svg);
    fit(svg);
    if (focused) [...svg.querySelectorAll("a")].find((each) => each.getAttribute("href") === focused)?.focus();
    byId("no-tree").hidden = true;
    place.hidden = false;
    lead(svg);
  } catch (error) {
    if (drawing !== drawings) return;
    place.hidden = true;
    byId("no-tree").textContent = `There is no picture: ${error.message}. The list below has the same.`;
    byId("no-tree").hidden = false;
    byId("list").open = true;
  }
}

function live(text, away) {
  const place = byId("live");
  place.textContent = text;
  place.className = away ? "away" : "";
}

const clock = () => new Date().toLocaleTimeString();

function take(event) {
  tree = JSON.parse(event.data);
  live(`Live; last change ${clock()}`, false);
  sayVerdict();
  listTree();
  draw();
  showChanges();
}

// The stream ended for good when the server did not want it: why, a question of its own tells.
async function lost() {
  if (events.readyState !== EventSource.CLOSED) {
    live(`The connection broke at ${clock()}; trying again. What is shown may be old.`, true);
    return;
  }
  const question = query();
  try {
    await answer(`api/path?${question}`);
  } catch (error) {
    if (question !== query()) return;
    if (tree === null) say("doubt", "No answer.", error.message);
  }
  live("No live connection; trying again.", true);
  retry = setTimeout(follow, 5000);
}

function follow() {
  clearTimeout(retry);
  if (events) events.close();
  events = new EventSource(`events?${query()}`);
  events.addEventListener("tree", take);
  events.addEventListener("problem", (event) => {
    tree = null;
    say("doubt", "No answer.", JSON.parse(event.data));
    live(`The store cannot be read since ${clock()}; trying again.`, true);
  });
  events.onopen = () => live("Live", false);
  events.onerror = lost;
}

// What else there is.

async function showChanges() {
  const { source, group, vrf, history } = asked();
  if (!group) return;
  const of = byId("changes-of");
  const all = `?${query()}`;
  const kept = query({ router: history, since: byId("since").value });
  try {
    const lines = await answerJson(`api/history?${new URLSearchParams({ vrf: vrf || "default", group, source, since: byId("since").value, router: history || "", first: "200" })}`);
    if (kept !== query({ router: asked().history, since: byId("since").value })) return;
    const count = lines.length === 0 ? "No change" : lines.length === 1 ? "1 change" : `${lines.length} changes`;
    of.replaceChildren(`${count} on ${history ? history.replace(",", " and ") : lines.length === 0 ? "any router" : "all routers"}. `);
    if (history) of.append(make("a", { href: all }, "Those of all routers"));
    byId("lines").replaceChildren(...lines.reverse().map((line) => {
      const item = make("li", {}, make("time", { datetime: line.at, title: line.at }, new Date(line.at).toLocaleString()), make("span", { class: "router" }, line.router), line.text);
      if (line.reasons.length) item.append(make("ul", {}, ...line.reasons.map((reason) => make("li", {}, `${reason.before.toFixed(3)} s before: ${reason.text}`))));
      return item;
    }));
  } catch (error) {
    of.textContent = `No history: ${error.message}`;
  }
}

async function showTop() {
  const { source, group, vrf } = asked();
  try {
    const streams = await answerJson(`api/top?first=20&by=${byId("by").value}`);
    byId("no-top").textContent = streams.length ? "" : "No router lists a stream: their forwarding processes count the packets.";
    byId("top").replaceChildren(...streams.map((each) => {
      const own = each["source-address"] === source && each.group === group && each.vrf === (vrf || "default");
      const target = new URLSearchParams({ vrf: each.vrf, source: each["source-address"], group: each.group });
      const name = make("td", {}, make("a", { href: `?${target}` }, keyText(each["source-address"], each.group)), each.vrf === "default" ? "" : ` ${each.vrf}`);
      return make("tr", { "aria-current": own ? "true" : null }, name, make("td", { class: "number" }, rateText(Number(each["bits-per-second"]))),
        make("td", { class: "number" }, Number(each["packets-per-second"]).toFixed(1)), make("td", { class: "number" }, String(each.routers)));
    }));
  } catch (error) {
    byId("no-top").textContent = `No streams: ${error.message}`;
  }
}

const stateClass = { live: "good", stale: "doubtful", incomplete: "doubtful", unreadable: "bad" };

async function showRouters() {
  try {
    const routers = await answerJson("api/routers");
    const live = routers.filter((each) => each.state === "live").length;
    byId("counted").textContent = live === routers.length ? `All ${live} are recorded.` : `${live} of ${routers.length} are recorded now; of the others this is the last state.`;
    if (routers.length > most) byId("counted").textContent += ` Shown are ${most}, those first that are not.`;
    // Those first that need a look.
    routers.sort((a, b) => (a.state === "live") - (b.state === "live"));
    byId("routers").replaceChildren(...routers.slice(0, most).map((each) => make("tr", {}, make("td", {}, each.router),
      make("td", {}, make("span", { class: stateClass[each.state] }, each.state), each.problem ? `: ${each.problem}` : ""),
      make("td", { class: "number" }, String(each["wc-routes"])), make("td", { class: "number" }, String(each["sg-routes"])),
      make("td", {}, each.agents.join(", ")))));
  } catch (error) {
    byId("counted").textContent = `No routers: ${error.message}`;
  }
}

function showRest() {
  if (document.hidden) return;
  showTop();
  showRouters();
}

// The page as its address says.
function show() {
  const question = asked();
  const has = Boolean(question.group && question.source);
  for (const name of ["source", "group", "to", "from", "vrf"]) byId("ask").elements[name].value = question[name] || "";
  byId("stream").hidden = !has;
  byId("changes").hidden = !has;
  showRest();
  if (!has) {
    if (events) events.close();
    events = null;
    document.title = "Multicast streams";
    return;
  }
  showChanges();
  const name = keyText(question.source, question.group) + (question.vrf && question.vrf !== "default" ? ` in VRF ${question.vrf}` : "") + (question.to ? ` towards ${question.to}` : "");
  if (events && byId("stream-name").dataset.question === query()) return;
  byId("stream-name").textContent = name;
  byId("stream-name").dataset.question = query();
  tree = null;
  placed = false;
  drawings += 1;
  byId("tree").replaceChildren();
  byId("edges").replaceChildren();
  byId("ends").replaceChildren();
  say("", "Asked.", "The answer comes in a moment.");
  follow();
}

function go(target) {
  // The same again is no step to go back from.
  if (new URL(target, location).href !== location.href) history.pushState(null, "", target);
  show();
}

byId("ask").addEventListener("submit", (event) => {
  event.preventDefault();
  const given = new URLSearchParams();
  for (const [name, value] of new FormData(event.target)) if (value.trim()) given.set(name, value.trim());
  go(`?${given}`);
});

document.addEventListener("click", (event) => {
  const link = event.target.closest("a[href^='?']");
  if (!link || event.ctrlKey || event.metaKey || event.shiftKey || event.button !== 0) return;
  event.preventDefault();
  let target = link.getAttribute("href");
  // The picture's own address does not say from which router the tree was asked.
  if (link.closest("#tree")) target = `?${query({ history: new URLSearchParams(target).get("history") })}`;
  go(target);
  if (target.includes("history=")) byId("changes").scrollIntoView({ block: "nearest" });
  else scrollTo(0, 0);
});

addEventListener("popstate", show);
document.addEventListener("visibilitychange", showRest);
narrow.addEventListener("change", () => tree && draw());
addEventListener("resize", () => {
  const svg = byId("tree").querySelector("svg");
  if (svg) fit(svg);
});
byId("since").addEventListener("change", showChanges);
byId("by").addEventListener("change", showTop);
setInterval(showRest, slow);
show();
