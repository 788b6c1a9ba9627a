// The connection to the gateway, and who gets what comes over it.
import { by } from './dom.js';
import * as chart from './chart.js';
import * as gateway from './gateway.js';
import * as jobs from './jobs.js';
import { showStore } from './store.js';
import { showFolders } from './submit.js';

let events;
let page;
let storeTimer;
let since;

function say(text, isBad) {
  by('connection').textContent = text;
  by('connection').className = isBad ? 'bad' : '';
}

async function untilDone(load) {
  try { await load(); } catch { setTimeout(() => untilDone(load), 1000); }
}

function begin(start) {
  // Another process serves it now, whose files and token may be others.
  if (page && page !== start.page) return void location.reload();
  if (!page) [showFolders, gateway.loadSwitches, jobs.loadAdvice].forEach(untilDone);
  page = start.page;
  say('connected', false);
  jobs.forget();
  chart.begin(start);
  showStore();
}

function takeOrder(event) {
  jobs.add(event);
  clearTimeout(storeTimer);
  storeTimer = setTimeout(showStore, 500);
  // Only its report tells which resources the job is about.
  if (event.event === 'report' && event.time > since && event.deployId === by('filter-job').value) connect();
}

function connect() {
  events?.close();
  const wanted = new URLSearchParams({ job: by('filter-job').value, executor: by('filter-executor').value });
  if (by('filter-failures').checked) wanted.set('failures', '');
  since = Date.now();
  events = new EventSource(`events?${wanted}`);
  const on = (name, take) => events.addEventListener(name, event => take(JSON.parse(event.data)));
  on('start', begin);
  on('rows', chart.add);
  on('order', takeOrder);
  on('state', gateway.show);
  const own = events;
  events.onerror = () => {
    say('The connection is lost; trying again …', true);
    // The browser tries again by itself, but not after a refusal.
    if (own.readyState === EventSource.CLOSED) setTimeout(() => own === events && connect(), 1000);
  };
}

// A browser has six connections for all pages of one address, and each of them keeps one.
function connectWhenVisible() {
  if (!document.hidden) return connect();
  events?.close();
  events = null;
}

by('filters').onchange = connect;
by('filters').onsubmit = event => event.preventDefault();
document.onvisibilitychange = connectWhenVisible;
connectWhenVisible();
