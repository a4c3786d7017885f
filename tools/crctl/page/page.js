// The page of "crctl ingest": what the service received, newest first, as it arrives. Whatever stands in an event may be
// hostile. It gets into the document as text and in no other way; the page's content security policy backs that up.

const rowsAtOnce = 200;
const choicesAtMost = 500;
const reconnectDelay = 2000;  // milliseconds
const knownKinds = ["abnormal:crash", "abnormal:signal", "abnormal:hang"];
const groupTitles = {event: "Event", source: "Source", env: "Environment", "": "Other data"};

const records = new Map();  // by id
let complete = 0;           // every event up to this id is in `records`
let rowLimit = rowsAtOnce;
let stream = null;
const rows = new Map();  // by id, the rows that are shown
const offered = {app: new Set(), kind: new Set()};
const filter = {search: "", app: "", kind: ""};

const byId = (id) => document.getElementById(id);

function make(tag, className, text) {
  const element = document.createElement(tag);
  if (className) element.className = className;
  if (text !== undefined) element.textContent = text;
  return element;
}

// A number that JavaScript cannot hold keeps its digits where the browser knows how.
function parse(text) {
  return JSON.parse(text, (key, value, context) =>
    typeof value === "number" && context?.source && JSON.rawJSON && String(value) !== context.source
      ? JSON.rawJSON(context.source) : value);
}

const isObject = (value) => typeof value === "object" && value !== null && !Array.isArray(value);
const dataOf = (record) => (isObject(record.event?.data) ? record.event.data : {});
const asText = (value) => (typeof value === "string" ? value : JSON.stringify(value, null, 2));
const hasProblems = (record) => record.problems.length > 0;
const problemCount = (record) => `${record.problems.length} problem${record.problems.length === 1 ? "" : "s"}`;

function localTime(received) {
  const time = new Date(received);
  if (Number.isNaN(time.getTime())) return {date: "", clock: String(received)};
  const two = (number) => String(number).padStart(2, "0");
  return {
    date: `${time.getFullYear()}-${two(time.getMonth() + 1)}-${two(time.getDate())}`,
    clock: [time.getHours(), time.getMinutes(), time.getSeconds()].map(two).join(":"),
  };
}

// ---- The service ----

function setLink(state) {
  const texts = {connecting: "Connecting", live: "Live", lost: "Connection lost, trying again"};
  if (byId("link").dataset.state === state) return;
  byId("link").dataset.state = state;
  byId("link").textContent = texts[state];
}

function connect() {
  stream?.close();
  const mine = new EventSource("api/live");
  stream = mine;
  mine.onmessage = (message) => add([parse(message.data)], true);
  mine.onopen = () => catchUp(mine).catch(() => lose(mine));
  mine.onerror = () => lose(mine);
}

// Not left to the stream, which never comes back from an answer that is none.
function lose(lost) {
  if (lost !== stream) return;
  lost.close();
  stream = null;
  setLink("lost");
  setTimeout(connect, reconnectDelay);
}

// What was received before the stream was open. A service that has fewer events than this page began anew.
async function catchUp(opened) {
  const announce = complete > 0;
  for (;;) {
    const response = await fetch(`api/events?after=${complete}`, {cache: "no-store"});
    if (!response.ok) throw new Error(response.statusText);
    const answer = parse(await response.text());
    if (opened !== stream) return;
    if (answer.last < complete) {
      forgetAll();
      return connect();
    }
    add(answer.events, announce);
    if (answer.events.length === 0 || complete >= answer.last) break;
  }
  setLink("live");
  draw();
}

function forgetAll() {
  records.clear();
  complete = 0;
  showDetail(true);
}

function add(received, announce) {
  const fresh = received.filter((record) => !records.has(record.id));
  for (const record of fresh) {
    record.isNews = announce;
    records.set(record.id, record);
  }
  while (records.has(complete + 1)) ++complete;
  if (fresh.length === 0) return;
  for (const record of fresh) {
    offer("app", record.app);
    offer("kind", record.kind);
  }
  render();
  if (announce) tellArrival(fresh);
  if (fresh.some((record) => record.id === selectedId())) showDetail(true);
}

let arrived = [];
function tellArrival(fresh) {
  if (arrived.length === 0) {
    setTimeout(() => {
      const last = arrived.at(-1);
      byId("arrivals").textContent =
        arrived.length === 1 ? `New event: ${last.kind || "refused"} of ${last.app || "no app"}` : `${arrived.length} new events`;
      arrived = [];
    }, 1000);
  }
  arrived.push(...fresh);
}

// ---- The filters ----

// An event without an app or kind can be chosen as well, hence the "=" in front.
function offer(name, value) {
  if (offered[name].has(value) || offered[name].size === choicesAtMost) return;
  offered[name].add(value);
  const select = byId(name);
  const options = [...select.options].slice(1);
  const option = make("option", "", value === "" ? "None" : value);
  option.value = "=" + value;
  select.insertBefore(option, options.find((other) => other.value > option.value) ?? null);
}

function textOf(record) {
  record.searched ??= [record.id, record.status, record.app, record.kind, record.received, ...record.problems,
    JSON.stringify(record.event)].join("\n").toLowerCase();
  return record.searched;
}

const matches = (record) => (filter.app === "" || filter.app === "=" + record.app) &&
  (filter.kind === "" || filter.kind === "=" + record.kind) &&
  (filter.search === "" || textOf(record).includes(filter.search));

function readFilters() {
  filter.search = byId("search").value.trim().toLowerCase();
  filter.app = byId("app").value;
  filter.kind = byId("kind").value;
  rowLimit = rowsAtOnce;
  render();
}

function clearFilters() {
  byId("filters").reset();
  readFilters();
  byId("search").focus();
}

// ---- The list ----

function kindMark(record) {
  const mark = make("span", "kind", record.kind || "no kind");
  if (knownKinds.includes(record.kind)) mark.dataset.kind = record.kind;
  return mark;
}

function statusMark(record) {
  const mark = make("span", "status", String(record.status));
  mark.dataset.taken = String(record.status < 400);
  mark.title = record.status < 400 ? "The service took it" : "The service refused it";
  return mark;
}

function summaryOf(record) {
  const data = dataOf(record);
  const parts = ["event.error_type", "event.error_code", "event.error_desc"].map((key) => data[key]);
  return parts.filter((part) => part !== undefined && part !== "").map(asText).join(" · ");
}

function timeMark(record) {
  const {date, clock} = localTime(record.received);
  const time = make("time", "time");
  time.dateTime = record.received;
  time.title = record.received;
  time.append(make("span", "clock", clock), make("span", "date", date));
  return time;
}

function makeRow(record) {
  const link = make("a", "row");
  link.href = "#" + record.id;
  const first = make("span", "line");
  first.append(make("span", "app", record.app || "No app"), kindMark(record), statusMark(record));
  const second = make("span", "line");
  second.append(make("span", "summary", summaryOf(record) || "no error named"));
  if (hasProblems(record)) second.append(make("span", "problems", problemCount(record)));
  const what = make("span", "what");
  what.append(first, second);
  link.append(timeMark(record), what);
  const item = make("li");
  item.append(link);
  return item;
}

let pending = false;
function render() {
  if (pending) return;
  pending = true;
  // One pass for all that arrives at once; a timer also runs in a tab that nobody looks at.
  setTimeout(() => {
    pending = false;
    draw();
  }, 30);
}

function draw() {
  const newestFirst = [...records.values()].sort((left, right) => right.id - left.id);
  const shown = newestFirst.filter(matches);
  const list = byId("rows");
  const wanted = shown.slice(0, rowLimit);
  const wantedIds = new Set(wanted.map((record) => record.id));
  for (const [id, item] of rows) {
    if (wantedIds.has(id)) continue;
    item.remove();
    rows.delete(id);
  }
  // Rows that stay are not touched: the focus and the place in the list stay with them.
  let next = list.firstElementChild;
  for (const record of wanted) {
    let item = rows.get(record.id);
    if (item && item === next) {
      next = next.nextElementSibling;
      continue;
    }
    if (!item) {
      item = makeRow(record);
      if (record.isNews) item.classList.add("arrived");
      record.isNews = false;
      rows.set(record.id, item);
    }
    list.insertBefore(item, next);
  }

  const left = Math.max(0, shown.length - rowLimit);
  byId("more").hidden = left === 0;
  byId("more").textContent = `Show ${Math.min(rowsAtOnce, left)} more of ${left}`;
  byId("empty").hidden = records.size > 0 || byId("link").dataset.state !== "live";
  byId("nothing").hidden = records.size === 0 || shown.length > 0;
  byId("main").dataset.blank = String(records.size === 0);
  const all = `${records.size} event${records.size === 1 ? "" : "s"}`;
  byId("count").textContent = shown.length === records.size ? all : `${shown.length} of ${all}`;
  document.title = records.size === 0 ? "Ingest" : `Ingest (${records.size})`;
  markSelected();
}

function markSelected() {
  const selected = selectedId();
  for (const [id, item] of rows) {
    if (id === selected) item.firstElementChild.setAttribute("aria-current", "true");
    else item.firstElementChild.removeAttribute("aria-current");
  }
}

// ---- One event ----

function selectedId() {
  return /^#[1-9]\d*$/.test(location.hash) ? Number(location.hash.slice(1)) : 0;
}

function copyButton(label, text) {
  const button = make("button", "copy", label);
  button.type = "button";
  button.onclick = async () => {
    try {
      await navigator.clipboard.writeText(text());
      button.textContent = "Copied";
    } catch {
      button.textContent = "Not allowed";
    }
    setTimeout(() => (button.textContent = label), 1500);
  };
  return button;
}

function members(title, entries) {
  const section = make("section", "group");
  section.append(make("h3", "", title));
  const list = make("dl");
  for (const [key, value] of entries) {
    const pair = make("div");
    pair.append(make("dt", "", key), make("dd", typeof value === "string" ? "" : "number", asText(value)));
    list.append(pair);
  }
  section.append(list);
  return section;
}

function dataGroups(data) {
  const groups = new Map();
  for (const [key, value] of Object.entries(data)) {
    const prefix = key.slice(0, Math.max(0, key.indexOf(".")));
    const group = Object.hasOwn(groupTitles, prefix) ? prefix : "";
    if (!groups.has(group)) groups.set(group, []);
    groups.get(group).push([key, value]);
  }
  return Object.keys(groupTitles).filter((group) => groups.has(group)).map((group) =>
    members(groupTitles[group], groups.get(group).sort(([left], [right]) => (left < right ? -1 : 1))));
}

function detailHead(record) {
  const head = make("header", "head");
  const title = make("h2");
  title.append(make("span", "app", record.app || "No app"), kindMark(record));
  const {date, clock} = localTime(record.received);
  const facts = make("p", "facts");
  const time = make("time", "", `${date} ${clock}`);
  time.dateTime = record.received;
  facts.append("Received ", time, ", answered ", statusMark(record));
  const actions = make("p", "actions");
  const close = make("a", "close", "Close");
  close.href = "#";
  const permanent = make("a", "permanent", "#" + record.id);
  permanent.href = "#" + record.id;
  permanent.title = "Link to this event";
  actions.append(permanent, copyButton("Copy link", () => location.href),
    copyButton("Copy JSON", () => JSON.stringify(record.event, null, 2)), close);
  head.append(title, facts, actions);
  return head;
}

function problemList(record) {
  const section = make("section", "refusal");
  section.append(make("h3", "", `The service found ${problemCount(record)}`));
  const list = make("ul");
  for (const problem of record.problems) list.append(make("li", "", asText(problem)));
  section.append(list);
  return section;
}

let shownId = -1;
function showDetail(anew) {
  const id = selectedId();
  const record = records.get(id);
  document.body.dataset.selected = String(id > 0);
  markSelected();
  if (shownId === id && !anew) return;
  shownId = id;
  const detail = byId("detail");
  detail.replaceChildren();
  detail.scrollTop = 0;
  if (!record) {
    detail.append(make("p", "placeholder", id > 0 ? `There is no event #${id} yet.` : "Choose an event to see all of it."));
    return;
  }
  const envelope = isObject(record.event) ? Object.entries(record.event).filter(([key]) => key !== "data") : [];
  detail.append(detailHead(record));
  if (hasProblems(record)) detail.append(problemList(record));
  detail.append(...dataGroups(dataOf(record)));
  if (envelope.length > 0) detail.append(members("Envelope", envelope));
  const raw = make("details", "raw");
  raw.append(make("summary", "", "Raw JSON"), make("pre", "", JSON.stringify(record.event, null, 2)));
  detail.append(raw);
}

function deselect() {
  const row = rows.get(selectedId());
  history.pushState(null, "", location.pathname + location.search);
  showDetail(false);
  row?.firstElementChild.focus();
}

// ---- Hands ----

byId("search").addEventListener("input", readFilters);
byId("app").addEventListener("change", readFilters);
byId("kind").addEventListener("change", readFilters);
byId("filters").addEventListener("submit", (event) => event.preventDefault());
byId("clear").addEventListener("click", clearFilters);
byId("more").addEventListener("click", () => {
  const last = byId("rows").lastElementChild;
  rowLimit += rowsAtOnce;
  draw();
  last?.nextElementSibling?.firstElementChild.focus();
});
byId("rows").addEventListener("keydown", (event) => {
  const step = {ArrowDown: "nextElementSibling", ArrowUp: "previousElementSibling"}[event.key];
  const next = step && event.target.closest("li")?.[step];
  if (!next) return;
  event.preventDefault();
  next.firstElementChild.focus();
});
byId("detail").addEventListener("click", (event) => {
  if (!event.target.closest("a.close")) return;
  event.preventDefault();
  deselect();
});
addEventListener("keydown", (event) => {
  if (event.key === "Escape" && selectedId() > 0 && event.target !== byId("search")) deselect();
  if (event.key === "/" && !event.target.closest("input, select")) {
    event.preventDefault();
    byId("search").focus();
  }
});
addEventListener("hashchange", () => {
  showDetail(false);
  if (selectedId() > 0) byId("detail").focus({preventScroll: true});
});
addEventListener("popstate", () => showDetail(false));

byId("address").textContent = location.host;
byId("variable").textContent = `CRDAEMON_INGEST_URL=${location.origin}/ingest`;
byId("trust").hidden = location.protocol !== "https:";
for (const button of document.querySelectorAll(".hint .copy")) {
  const command = button.previousElementSibling;
  button.replaceWith(copyButton("Copy", () => command.textContent));
}
connect();
showDetail(true);
