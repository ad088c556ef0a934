// The collector's page. What comes from a request is shown with textContent only.

const LIMIT = 10_000; // of events and heartbeats together, and of refused requests
const ROW = 26; // pixels, as in the style sheet
const MINUTES = 30;
const MAXIMUM_LANES = 100;
const MAXIMUM_MARKS = 100_000; // of events and heartbeats, on the lanes

const $ = (id) => document.getElementById(id);

function element(tag, members = {}, ...children) {
  const made = Object.assign(document.createElement(tag), members);
  made.append(...children);
  return made;
}

function drawing(tag, attributes, ...children) {
  const made = document.createElementNS('http://www.w3.org/2000/svg', tag);
  for (const [name, value] of Object.entries(attributes)) made.setAttribute(name, value);
  made.append(...children);
  return made;
}

const cell = (className, text) => element('span', { className }, text);

// Returns a function that runs the work once in the next frame, however often it is called.
function onceAFrame(work) {
  let due = 0;
  return () => {
    due ||= requestAnimationFrame(() => {
      due = 0;
      work();
    });
  };
}

function clock(ms, digits = 3) {
  const date = new Date(ms);
  const time = date.toTimeString().slice(0, 8);
  return digits ? `${time}.${String(date.getMilliseconds()).padStart(digits, '0')}` : time;
}

const dated = (ms) => `${new Date(ms).toLocaleDateString()} ${clock(ms)}`;

// The time, with the date in place of the seconds unless it is today's.
function stamp(ms, digits) {
  const date = new Date(ms);
  if (date.toDateString() === new Date().toDateString()) return clock(ms, digits);
  return `${date.toLocaleDateString(undefined, { day: '2-digit', month: '2-digit' })} ` +
    clock(ms).slice(0, 5);
}

const plural = (count, noun) => `${count.toLocaleString()} ${noun}${count === 1 ? '' : 's'}`;
const answerText = (answer) => (answer === 0 ? 'closed' : String(answer));

// A list of rows of one height. Only those in view are in the document. It follows the newest row
// while it is scrolled to the end.
class List {
  items = [];
  selected = null;
  #rows = [];
  #isFollowing = true;
  #bottom = element('div', { className: 'bottom', role: 'presentation' });

  constructor(container, fill, open) {
    Object.assign(this, { container, fill, open });
    container.append(this.#bottom);
    container.addEventListener('scroll', () => {
      const end = container.scrollHeight - container.clientHeight;
      this.#isFollowing = container.scrollTop >= end - ROW;
      this.render();
    });
    container.addEventListener('keydown', (event) => this.#press(event));
    new ResizeObserver(() => this.render()).observe(container);
  }

  show(items) {
    this.items = items;
    this.#isFollowing = true;
    this.render();
  }

  dropFirst(count) {
    this.items.splice(0, count);
    // What is in view stays in place.
    if (!this.#isFollowing) this.container.scrollTop -= count * ROW;
  }

  render = onceAFrame(() => {
    const { container, items } = this;
    container.hidden = items.length === 0;
    this.#bottom.style.transform = `translateY(${Math.max(0, items.length * ROW - 1)}px)`;
    if (this.#isFollowing) container.scrollTop = items.length * ROW;
    const first = Math.max(0, Math.floor(container.scrollTop / ROW) - 3);
    const end = Math.min(items.length, first + Math.ceil(container.clientHeight / ROW) + 6);
    while (this.#rows.length < end - first) this.#addRow();
    container.removeAttribute('aria-activedescendant');
    // An item keeps its row while it is in view.
    const rows = this.#rows;
    for (let at = first; at < first + rows.length; ++at) {
      const [row, item] = [rows[at % rows.length], items[at]];
      row.hidden = at >= end;
      row.ariaSelected = !row.hidden && item === this.selected;
      if (row.hidden) continue;
      row.style.transform = `translateY(${at * ROW}px)`;
      row.ariaPosInSet = at + 1;
      row.ariaSetSize = items.length;
      if (item === this.selected) container.setAttribute('aria-activedescendant', row.id);
      if (row.item !== item) this.fill(row, item);
      row.item = item;
    }
  });

  #addRow() {
    const row = element('div', { role: 'option', id: `${this.container.id}-${this.#rows.length}` });
    row.addEventListener('click', () => this.select(row.item));
    this.#rows.push(row);
    this.container.append(row);
  }

  select(item) {
    this.selected = item;
    this.render();
    if (!item) return;
    this.#isFollowing = item === this.items.at(-1);
    const top = this.items.indexOf(item) * ROW;
    const { scrollTop, clientHeight } = this.container;
    if (top < scrollTop) this.container.scrollTop = top;
    if (top + ROW > scrollTop + clientHeight) this.container.scrollTop = top + ROW - clientHeight;
    this.open(item);
  }

  #press(event) {
    const last = this.items.length - 1;
    const page = Math.max(1, Math.floor(this.container.clientHeight / ROW) - 1);
    const at = this.items.indexOf(this.selected);
    const before = at < 0 ? last + 1 : at;
    const targets = { ArrowDown: at + 1, ArrowUp: before - 1, PageDown: at + page,
      PageUp: before - page, Home: 0, End: last };
    if (event.key === 'Enter' && this.selected) $('details-title').focus();
    else if (event.key in targets && last >= 0)
      this.select(this.items[Math.min(Math.max(targets[event.key], 0), last)]);
    else return;
    event.preventDefault();
  }
}

// ---- What arrives

const totals = { event: 0, heartbeat: 0, refused: 0 };
let items = []; // events and heartbeats
let marks = []; // the same on the lanes, where more are kept
const minutes = new Map(); // since 1970, to the number of requests by their outcome

const events = new List($('events'), (row, item) => {
  row.className = item.violations?.length ? `${item.kind} violation` : item.kind;
  row.title = `arrived ${dated(item.received)}, recorded ${dated(item.time)}` +
    (item.violations ?? []).map((violation) => `\n${violation}`).join('');
  row.replaceChildren(cell('time', stamp(item.received)), cell('time', stamp(item.time)),
    cell('name', item.name),
    cell('uid', item.uid || '–'), cell('summary', summaryOf(item)),
    cell('answer', item.answer === 200 ? '' : answerText(item.answer)));
}, showItem);

const refused = new List($('refused'), (row, { received, reason }) => {
  row.title = `${dated(received)}\n${reason}`;
  row.replaceChildren(cell('time', stamp(received, 0)), cell('summary', reason));
}, showRefused);

// A list may exceed the limit a little, because dropping moves all that is kept.
const excess = (list) => (list.length > LIMIT * 1.05 ? list.length - LIMIT : 0);

function addItem(kind, data) {
  const { body, ...item } = JSON.parse(data);
  // The record as it was sent, because parsing rounds large numbers. Quotes in what comes before
  // are escaped, so this is where the record starts.
  const json = data.slice(data.indexOf(',"body":') + 8, -1);
  const { time, duration, session_id: session } = body.properties; // hosts may replace the time
  const isTime = Number.isInteger(time) && Math.abs(time - item.received) < 7 * 24 * 3_600_000;
  Object.assign(item, { kind, json, name: body.event, time: isTime ? time : item.received });
  item.text = json.includes('\\') ? JSON.stringify(body) : json; // to search, without escapes
  if (kind === 'heartbeat') Object.assign(item, { session, start: item.time - duration });
  ++totals[kind];
  items.push(item);
  marks.push({ kind, uid: item.uid, session: item.session, start: item.start, time: item.time });
  if (marks.length > MAXIMUM_MARKS * 1.05) marks = marks.slice(-MAXIMUM_MARKS);
  if (isPaused) ++missed;
  else if (matches(item)) events.items.push(item);

  const dropped = excess(items);
  if (!dropped) return;
  items.splice(0, dropped);
  if (isPaused) return; // what is shown stays
  const kept = events.items.findIndex(({ number }) => number >= items[0].number);
  events.dropFirst(kept < 0 ? events.items.length : kept);
}

function countRequest({ received, accepted, reason }) {
  const minute = Math.floor(received / 60_000);
  const outcome = accepted ? 'accepted' : reason ? 'refused' : 'failed';
  if (!minutes.has(minute)) minutes.set(minute, { accepted: 0, failed: 0, refused: 0 });
  ++minutes.get(minute)[outcome];
  if (minutes.size > MINUTES) minutes.delete(minutes.keys().next().value);
}

const receivers = {
  event: (data) => addItem('event', data),
  heartbeat: (data) => addItem('heartbeat', data),
  request: (data) => countRequest(JSON.parse(data)),
  refused: (data) => {
    const request = JSON.parse(data);
    ++totals.refused;
    countRequest(request);
    refused.items.push(request);
    refused.dropFirst(excess(refused.items));
  },
  faults: (data) => showFaults(JSON.parse(data)),
  clear: () => {
    items = [];
    marks = [];
    setPaused(false);
    Object.assign(totals, { event: 0, heartbeat: 0, refused: 0 });
    minutes.clear();
    events.show([]);
    refused.show([]);
    showDetails('Details', {}, '', 'Choose an event, a heartbeat or a refused request.');
  },
};

// ---- Filter

let matches = () => true;
let isPaused = false;
let missed = 0; // while paused

function setPaused(value) {
  [isPaused, missed] = [value, 0];
  $('pause').textContent = value ? 'Resume' : 'Pause';
  $('events').classList.toggle('paused', value);
  if (!value) applyFilter();
  refresh();
}

function applyFilter() {
  const wanted = Object.fromEntries(new FormData($('filter')));
  const tests = ['name', 'uid', 'text'].filter((key) => wanted[key]).map((key) => {
    const pattern = new RegExp(wanted[key].replace(/[\\^$.*+?()[\]{}|/]/g, '\\$&'), 'i');
    return (item) => pattern.test(item[key]);
  });
  if (wanted.kind === 'violation') tests.push((item) => item.violations?.length);
  else if (wanted.kind) tests.push((item) => item.kind === wanted.kind);
  matches = (item) => tests.every((test) => test(item));
  // While paused, only what had arrived before.
  events.show(items.slice(0, items.length - Math.min(missed, items.length)).filter(matches));
  refresh();
}

// ---- Details

// Where a property comes from, as far as its key tells. Hosts may overwrite most of them.
const [HOSTS, EXTRA, USER] = ['Event or super property', 'extra_json', 'User and state'];
const ORIGINS = {
  [HOSTS]: [],
  [EXTRA]: [],
  [USER]: ['uid', 'app_id', 'pub_uid', '$ios_ifa', 'screen_orientation', 'device_orientation'],
  'Device and application': ['$screen_height', '$screen_width', '$manufacturer', '$model', '$os',
    '$os_version', 'mp_lib', 'lib_version', '$app_build_number', '$app_version_string'],
  Automatic: ['time', '$wifi', '$carrier', 'att_auth_status'],
};
const groupIsOpen = { [HOSTS]: true, [EXTRA]: true, [USER]: true, Heartbeat: true };

// Keeps numbers as they were sent, where the browser can.
function parseExactly(json) {
  try {
    return JSON.parse(json, (key, value, context) =>
      typeof value === 'number' ? JSON.rawJSON(context.source) : value);
  } catch { // an older browser
    return JSON.parse(json);
  }
}

// Lists of [key, value] by origin.
function propertiesOf(item) {
  const { properties } = parseExactly(item.json);
  if (item.kind === 'heartbeat') return { Heartbeat: Object.entries(properties) };
  const { extra_json: extra, ...others } = properties;
  const origin = (key) => Object.keys(ORIGINS).find((name) => ORIGINS[name].includes(key));
  const groups = Object.fromEntries(Object.keys(ORIGINS).map((name) => [name, []]));
  for (const property of Object.entries(others)) groups[origin(property[0]) ?? HOSTS].push(property);
  for (const property of Object.entries(extra))
    groups[property[0] === 'att_auth_status' ? 'Automatic' : EXTRA].push(property);
  return groups;
}

function summaryOf(item) {
  if (item.kind === 'heartbeat') return `session ${item.session}`;
  const groups = propertiesOf(item);
  return [...groups[HOSTS], ...groups[EXTRA]]
    .map(([key, value]) => `${key}=${JSON.stringify(value)}`).join('  ').slice(0, 300);
}

function valueCell(key, value) {
  const text = JSON.stringify(value, null, 2);
  const isNumber = typeof value === 'number' || JSON.isRawJSON?.(value);
  const shown = element('td', {}, cell(isNumber ? 'number' : typeof value, text));
  const date = new Date(Number(text));
  if (key === 'time' && isNumber && !isNaN(date))
    shown.append(cell('note', `\n${dated(date)}`));
  return shown;
}

function foldable(title, properties) {
  const rows = properties.map(([key, value]) =>
    element('tr', {}, element('th', { scope: 'row' }, key), valueCell(key, value)));
  const made = element('details', { open: groupIsOpen[title] ?? false },
    element('summary', {}, title, element('small', {}, String(rows.length))),
    element('table', {}, ...rows));
  made.addEventListener('toggle', () => (groupIsOpen[title] = made.open));
  return made;
}

function showDetails(title, facts, json, ...parts) {
  const list = element('dl', { className: 'facts' });
  for (const [key, value] of Object.entries(facts))
    list.append(element('dt', {}, key), element('dd', {}, value));
  const copy = element('button', { type: 'button' }, 'Copy as JSON');
  const said = element('span', { role: 'status', className: 'note' });
  copy.addEventListener('click', async () => {
    const copied = await navigator.clipboard.writeText(json).then(() => true, () => false);
    said.textContent = copied ? 'Copied.' : 'The browser does not allow copying.';
  });
  $('details-title').textContent = title;
  $('details').replaceChildren(list, ...(json ? [copy, said] : []), ...parts);
}

function showItem(item) {
  refused.select(null);
  const { received, time, uid, answer } = item;
  const facts = { Arrived: dated(received), Recorded: dated(time), User: uid || '(none)', Answer: answerText(answer) };
  if (item.violations?.length) facts['Not as planned'] = item.violations.join('; ');
  const groups = Object.entries(propertiesOf(item)).filter(([, properties]) => properties.length);
  showDetails(item.name, facts, item.json, ...groups.map((group) => foldable(...group)));
}

function showRefused(request) {
  events.select(null);
  const { received, method, path, answer, reason, headers, body } = request;
  const facts = { Arrived: dated(received), Request: `${method} ${path}`, Answer: `${answer}`,
    Reason: reason };
  showDetails('Refused request', facts, JSON.stringify(request, null, 2),
    element('h3', {}, 'Headers'), element('pre', {}, headers.join('\n')),
    element('h3', {}, 'Body'), element('pre', {}, body || '(none)'));
}

// ---- Sessions as lanes

function lanesOf(marks) {
  const lanes = new Map();
  const lane = (key, uid, session, start) => {
    if (!lanes.has(key)) lanes.set(key, { uid, session, start, end: start, beats: [], events: [] });
    return lanes.get(key);
  };
  for (const { kind, uid, session, start, time } of marks) {
    if (kind !== 'heartbeat') continue;
    const found = lane(session, uid, session, start);
    found.start = Math.min(found.start, start);
    found.end = Math.max(found.end, time);
    found.beats.push(time);
  }
  // An event belongs to its user's last session that had begun.
  const sessions = Object.groupBy([...lanes.values()], ({ uid }) => uid);
  for (const { kind, uid, time } of marks) {
    if (kind !== 'event') continue;
    const found = sessions[uid]?.findLast(({ start }) => start <= time);
    (found ?? lane(`no session of ${uid}`, uid, null, time)).events.push(time);
  }
  return [...lanes.values()].slice(-MAXIMUM_LANES);
}

function showLanes() {
  const lanes = lanesOf(marks);
  let [from, to] = [Infinity, -Infinity];
  for (const { start, end, events } of lanes)
    for (const time of [start, end, ...events]) [from, to] = [Math.min(from, time), Math.max(to, time)];
  const x = (time) => Math.round(5 + 990 * (time - from) / Math.max(1, to - from));
  const ticks = (times, top, bottom) =>
    [...new Set(times.map(x))].map((at) => `M${at} ${top}V${bottom}`).join('');
  $('lanes').replaceChildren(...lanes.flatMap(({ uid, session, start, end, beats, events }) => {
    const name = `${uid || '(no user)'} · ${session?.slice(0, 8) ?? 'no session'}`;
    const picture = drawing('svg',
      { viewBox: '0 0 1000 20', preserveAspectRatio: 'none', 'aria-hidden': true },
      drawing('path', { class: 'span', d: session ? `M${x(start)} 10H${x(end)}` : '' }),
      drawing('path', { class: 'event', d: ticks(events, 5, 15) }),
      drawing('path', { class: 'beat', d: ticks(beats, 2, 18) }));
    const parts = [plural(events.length, 'event')];
    if (session) parts.unshift(`${Math.round((end - start) / 1000)} s`, plural(beats.length, 'heartbeat'));
    return [cell('lane', name), picture, cell('note', parts.join(', '))];
  }));
  $('from').textContent = lanes.length ? stamp(from, 0) : '';
  $('to').textContent = lanes.length ? stamp(to, 0) : '';
}

// ---- Requests a minute

function showPlot() {
  const first = Math.floor(Date.now() / 60_000) - MINUTES + 1;
  const none = { accepted: 0, failed: 0, refused: 0 };
  const counts = Array.from({ length: MINUTES }, (_, i) => minutes.get(first + i) ?? none);
  const sum = ({ accepted, failed, refused }) => accepted + failed + refused;
  const busiest = Math.max(...counts.map(sum));
  const total = (outcome) => counts.reduce((sum, ofMinute) => sum + ofMinute[outcome], 0);
  $('busiest').textContent = `busiest: ${busiest.toLocaleString()}`;
  $('plot').setAttribute('aria-label', `Requests in ${MINUTES} minutes: ${total('accepted')} ` +
    `accepted, ${total('failed')} failed by a fault, ${total('refused')} refused.`);
  $('plot').replaceChildren(...counts.flatMap((ofMinute, i) => {
    let y = 84;
    return Object.entries(ofMinute).filter(([, count]) => count).map(([outcome, count]) => {
      const height = 78 * count / busiest;
      y -= height;
      return drawing('rect', { class: outcome, x: i * 10 + 1, y, width: 8, height });
    });
  }));
}

// ---- Faults

const PATHS = ['/track', '/heartbeat'];
const FAULTS = [ // member, label, value, type of the input
  ['status', 'Status', '503', 'number'],
  ['latency_ms', 'Delay (ms)', '2000', 'number'],
  ['retry_after', 'Retry-After', '5', 'text'],
  ['back_off_seconds', 'Back-off (s)', '60', 'number'],
  ['body', 'Body', '{}', 'text'],
  ['drop', 'No answer'],
  ['truncate', 'Half an answer'],
  ['accept', 'Accept anyway'],
];
let armed = []; // as the collector tells them
let turn = Promise.resolve();

// A click changes what the one before has left.
function control(faults) {
  turn = turn.catch(() => {}).then(async () => {
    const response = await fetch('control', { method: 'POST', body: JSON.stringify(faults()) });
    if (response.ok) return showFaults(await response.json());
    $('armed').className = 'wrong';
    $('armed').textContent = await response.text();
  });
}

// All faults of the path, with the member added to the first one, or removed from it.
function toggled(path, member, value) {
  const [first = { path }, ...later] = armed.filter((fault) => fault.path === path);
  const { [member]: before, count, ...rest } = first;
  const changed = before === undefined ? { ...rest, [member]: value } : rest;
  const isEmpty = Object.keys(changed).length === 1;
  const limit = Number($('fault-count').value) || count;
  if (limit) changed.count = limit;
  const faults = isEmpty ? later : [changed, ...later];
  return faults.length ? faults : [{ path }];
}

function showFaults(faults) {
  armed = faults;
  for (const button of $('faults').querySelectorAll('button')) {
    const { path, member, label } = button.dataset;
    const first = faults.find((fault) => fault.path === path) ?? {};
    const isArmed = member in first;
    button.textContent = isArmed ? 'Lift' : 'Arm';
    button.classList.toggle('armed', isArmed);
    button.ariaLabel = `${button.textContent} ${label} on ${path}`;
    const input = $(`fault-${member}`);
    if (isArmed && input && input !== document.activeElement) input.value = first[member];
  }
  $('armed').className = '';
  $('armed').textContent = faults.map(({ path, count, ...members }) =>
    `${path}: ${Object.entries(members).map((member) => member.join(' ')).join(', ')}` +
    (count ? ` – ${plural(count, 'request')} left` : '')).join('\n');
}

for (const [member, label, value, type] of FAULTS) {
  const input = type && element('input', { type, value, id: `fault-${member}`, ariaLabel: label });
  const row = element('tr', {}, element('th', { scope: 'row' }, label), element('td', {}, input ?? ''));
  for (const path of PATHS) {
    const button = element('button', { type: 'button' });
    Object.assign(button.dataset, { path, member, label });
    button.addEventListener('click', () => {
      const value = type === 'number' ? Number(input.value) : input?.value ?? true;
      control(() => toggled(path, member, value));
    });
    row.append(element('td', {}, button));
  }
  $('faults').tBodies[0].append(row);
}
$('lift-all').addEventListener('click', () => control(() => PATHS.map((path) => ({ path }))));

// ---- Bringing it together

let overviewIsDue = false;
const refresh = onceAFrame(() => {
  events.render();
  refused.render();
  const [shown, all] = [events.items, items].map(({ length }) => length.toLocaleString());
  $('count').textContent = isPaused ? `paused, ${missed.toLocaleString()} new`
    : shown === all ? '' : `${shown} of ${all}`;
  $('totals').textContent = `${plural(totals.event, 'event')} · ` +
    `${plural(totals.heartbeat, 'heartbeat')} · ${totals.refused.toLocaleString()} refused`;
  if (overviewIsDue) return;
  overviewIsDue = true;
  setTimeout(() => { // the lanes go through all events
    overviewIsDue = false;
    showLanes();
    showPlot();
  }, 250);
});

$('filter').addEventListener('input', applyFilter);
$('filter').addEventListener('submit', (event) => event.preventDefault());
$('pause').addEventListener('click', () => setPaused(!isPaused));
$('clear').addEventListener('click', () => fetch('reset', { method: 'POST' }));
setInterval(showPlot, 10_000);

const stream = new EventSource('stream');
const showConnection = (state, text) =>
  Object.assign($('connection'), { className: state, textContent: text });
stream.addEventListener('open', () => showConnection('live', 'live'));
stream.addEventListener('error', () => showConnection('lost', 'connection lost; trying again'));
for (const [kind, receive] of Object.entries(receivers))
  stream.addEventListener(kind, ({ data }) => {
    receive(data);
    refresh();
  });
