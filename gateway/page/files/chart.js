// The trace as a sequence chart. Only what is in sight is in the page; the rest stays where it is until
// somebody scrolls there.
import { by, el, formatted, oncePerFrame, read } from './dom.js';

const lanes = ['scheduler', 'bridge', 'service', 'web server', 'parsers', 'executors', 'others'];
const laneOfName = {
  'gateway-scheduler': 0, 'iot.bridge.mqtt': 1, 'mqtt-bridge': 1, 'task-dispatcher': 2, 'iot.job.manager': 2,
  'gateway-web': 3, 'gateway-job': 6, 'bus': 6, 'broker': 6, 'web': 6, '*': 6, 'org.freedesktop.DBus': 6,
  'iot.gateway.watchdog': 6,
};
const executors = 5;
const mostCached = 2000;
const fetched = 100;

const chart = by('chart');
const sheet = by('rows');
let numbers = null;     // of the rows that a filter leaves; null: all of them
let oldest = 0;         // the number of the first row, where they are all there
let count = 0;
let chosen = -1;
let isFollowing = true;
let isFetching = false;
const cache = new Map();  // number of a record -> its row
const shown = new Map();  // place in the list -> element

by('heads').append(...lanes.map(name => el('span', {}, name)));

const numberAt = place => (numbers ? numbers[place] : oldest + place);
const rowHeight = () => parseFloat(getComputedStyle(chart).getPropertyValue('--row'));
const center = lane => (lane + 0.5) / lanes.length * 100;

function laneOf(name, row) {
  if (Object.hasOwn(laneOfName, name)) return laneOfName[name];
  const isParser = row.member === 'deployConfig' || row.text.startsWith('deployConfig');
  return isParser ? 4 : name.startsWith(':') ? 6 : executors;
}

function arrow(row) {
  const [from, to] = [laneOf(row.from, row), laneOf(row.to, row)];
  const line = el('span', { className: `line ${to < from ? 'left' : 'right'}` });
  line.style.left = `${center(Math.min(from, to))}%`;
  line.style.width = `${Math.abs(to - from) / lanes.length * 100}%`;
  const other = [row.from, row.to].find(name => laneOf(name, row) >= 4);
  const word = el('span', { className: 'word' }, other ? `${other}: ${row.text}` : row.text);
  const isRight = Math.min(from, to) > 3;
  word.classList.toggle('from-right', isRight);
  const margin = isRight ? 100 - center(Math.max(from, to)) : center(Math.min(from, to));
  word.style[isRight ? 'right' : 'left'] = `${margin}%`;
  word.style.maxWidth = `${100 - margin}%`;
  return [line, word];
}

function describe(element, row) {
  const time = !row.time ? '' : new Date(row.time).toTimeString().slice(0, 8) + row.time.slice(19, 23);
  const hasEnds = row.from !== '*' || row.to !== '*';
  element.className = `row ${row.kind}${row.failed ? ' failed' : ''}${hasEnds ? '' : ' plain'}`;
  const lanesPart = el('span', { className: 'lanes' }, ...(hasEnds ? arrow(row) : [row.text]));
  element.replaceChildren(el('span', { className: 'time' }, time), lanesPart);
  const label = hasEnds ? `${row.from} to ${row.to}: ${row.text}` : row.text;
  element.setAttribute('aria-label', `${time} ${label}${row.failed ? ', failed' : ''}`);
  element.title = label;
}

function makeRow(place) {
  const element = el('div', { className: 'row waiting', id: `row-${place}` });
  element.setAttribute('role', 'option');
  element.style.top = `${place * rowHeight()}px`;
  element.onclick = () => { choose(place); showRecord(); };
  const row = cache.get(numberAt(place));
  if (row) describe(element, row);
  return element;
}

function render() {
  const height = rowHeight();
  sheet.style.height = `${count * height}px`;
  if (isFollowing) chart.scrollTop = count * height;
  const first = Math.max(0, Math.floor(chart.scrollTop / height) - 5);
  const last = Math.min(count, Math.ceil((chart.scrollTop + chart.clientHeight) / height) + 5);
  for (const [place, element] of shown) {
    if (place >= first && place < last) continue;
    element.remove();
    shown.delete(place);
  }
  const missing = [];
  for (let place = first; place < last; ++place) {
    if (!shown.has(place)) {
      shown.set(place, makeRow(place));
      sheet.append(shown.get(place));
    }
    shown.get(place).setAttribute('aria-selected', place === chosen);
    shown.get(place).setAttribute('aria-posinset', place + 1);
    shown.get(place).setAttribute('aria-setsize', count);
    if (!cache.has(numberAt(place))) missing.push(numberAt(place));
  }
  by('count').textContent = `${count} messages`;
  by('newest').hidden = isFollowing;
  if (missing.length > 0) fetchRows(missing);
}
const update = oncePerFrame(render);

async function fetchRows(missing) {
  if (isFetching) return;
  isFetching = true;
  try {
    for (const row of await read(`rows?numbers=[${missing.slice(0, fetched)}]`)) keep(row);
    for (const [place, element] of shown) {
      const row = cache.get(numberAt(place));
      if (row && element.classList.contains('waiting')) describe(element, row);
    }
  } catch { await new Promise(done => setTimeout(done, 1000)); }
  isFetching = false;
  update();
}

function keep(row) {
  cache.set(row.n, row);
  // The first in a map are the oldest in it.
  for (const number of cache.keys()) {
    if (cache.size <= mostCached) break;
    cache.delete(number);
  }
}

/** What there is when the connection begins. */
export function begin(start) {
  numbers = start.numbers ?? null;
  oldest = start.oldest ?? 0;
  count = numbers ? numbers.length : start.count - oldest;
  sheet.replaceChildren();
  shown.clear();
  chosen = -1;
  update();
}

export function add(rows) {
  for (const row of rows) {
    keep(row);
    if (numbers) numbers.push(row.n);
    count = numbers ? numbers.length : row.n + 1 - oldest;
  }
  update();
}

function choose(place) {
  chosen = Math.max(0, Math.min(count - 1, place));
  const top = chosen * rowHeight();
  isFollowing = false;
  if (top < chart.scrollTop) chart.scrollTop = top;
  const end = top + rowHeight() - chart.clientHeight;
  if (end > chart.scrollTop) chart.scrollTop = end;
  render();
  chart.setAttribute('aria-activedescendant', `row-${chosen}`);
}

async function showRecord() {
  if (chosen < 0) return;
  const record = await read(`record?n=${numberAt(chosen)}`).catch(error => error.message);
  by('record-title').textContent = record.member || record.from || 'Message';
  by('record-text').textContent = formatted(record);
  by('record').showModal();
}

chart.addEventListener('scroll', () => {
  isFollowing = chart.scrollTop + chart.clientHeight >= chart.scrollHeight - rowHeight();
  update();
});
chart.addEventListener('keydown', event => {
  const page = Math.max(1, Math.floor(chart.clientHeight / rowHeight()) - 1);
  const steps = { ArrowDown: 1, ArrowUp: -1, PageDown: page, PageUp: -page, Home: -count, End: count };
  if (event.key === 'Enter') showRecord();
  else if (event.key in steps) choose((chosen < 0 ? count - 1 : chosen) + steps[event.key]);
  else return;
  event.preventDefault();
});
by('newest').onclick = () => { isFollowing = true; update(); };
new ResizeObserver(() => {
  for (const [place, element] of shown) element.style.top = `${place * rowHeight()}px`;
  update();
}).observe(chart);
