// Every order, what became of it, and how long that took.
import { by, button, el, offer, oncePerFrame, post, read, readText } from './dom.js';

const jobs = new Map();  // token -> what is known of the order
const open = new Set();  // tokens whose details somebody looks at
const advice = [];  // pairs of a code, or of numbers behind a code, and a sentence

/** The tables of the document for operators. */
async function loadAdvice() {
  const text = await readText('advice');
  for (const line of text.split('\n')) {
    const [, key, cause, remedy] = line.split('|').map(cell => cell.trim());
    if (remedy) advice.push([key, `${cause}: ${remedy}`]);
  }
  update();
}

/** Whether `ranges`, like "−1" or "1 to 4, 7", have the number. */
function isMeant(ranges, number) {
  return ranges.replace('−', '-').split(', ').some(range => {
    const [low, high = low] = range.split(' to ').map(Number);
    return number >= low && number <= high;
  });
}

export function adviceFor({ code, message }) {
  const [, before, number] = (String(code) === '101208' && /(Fail_|res =)(-?\d+)$/.exec(message)) || [];
  const prefix = before === 'res =' ? '"unzip res =" ' : '';
  const isFor = ([key]) => (number ? key.startsWith(prefix) && isMeant(key.slice(prefix.length), number)
    : key === String(code || 'none'));
  const other = number ? 'any other number' : 'any other';
  return (advice.find(isFor) ?? advice.find(([key]) => key === other))?.[1] ?? '';
}

export function forget() { jobs.clear(); }

export function add(event) {
  const job = jobs.get(event.token) ?? { token: event.token, times: {}, resources: [] };
  jobs.set(event.token, Object.assign(job, { jobId: event.jobId, deployId: event.deployId || job.deployId }));
  job.times[event.event] = event.time;
  if (event.event === 'report') job.resources = event.resources;
  if (event.event === 'status') job.detail = event.result?.detail;
  job.succeeded = event.succeeded ?? job.succeeded;
  update();
}

function stateOf(job) {
  if (job.succeeded === true) return 'succeeded';
  if (job.succeeded === false) return 'failed';
  if (job.times.status) return 'accepted';
  return job.times['handed out'] ? 'handed out' : 'waits for a heartbeat';
}

const shownValue = value => (value === null || value === undefined ? '–' : String(value));

function resultTable(job) {
  const heads = ['resource', 'type', 'result', 'code', 'message'];
  const rows = job.resources.flatMap(row => {
    const result = `${row.operate === 1 ? 'delete' : 'add'} ${row.succeeded ? 'ok' : 'FAILED'}`;
    const cells = [row.resourceId ?? row.snapshotId, row.resourceType, result, row.code, row.message];
    const sentence = row.succeeded ? '' : adviceFor(row);
    return [el('tr', { className: row.succeeded ? '' : 'bad' }, ...cells.map(value => el('td', {}, shownValue(value)))),
      ...(sentence ? [el('tr', { className: 'advice' }, el('td', { colSpan: heads.length }, sentence))] : [])];
  });
  return el('div', { className: 'wide' },
    el('table', {}, el('thead', {}, el('tr', {}, ...heads.map(head => el('th', {}, head)))), el('tbody', {}, ...rows)));
}

const duration = ms => (ms < 10000 ? `${Math.round(ms)} ms` : `${(ms / 1000).toFixed(1)} s`);

/** Each phase lasts until the next one begins; the last, until the report. */
async function loadPhases(job) {
  const { queued, 'handed out': begun, report } = job.times;
  if (!begun || !report || job.phases !== undefined) return;
  job.phases = '';
  const begins = await read(`phases?job=${job.deployId}`).catch(() => ({}));
  const seen = Object.entries(begins).sort(([, one], [, other]) => (one < other ? -1 : 1));
  const ends = [...seen.slice(1).map(([, time]) => Date.parse(time)), report];
  // On a busy machine the bus is read a little later than the report is written.
  const spans = seen.map(([name, time], i) => [name, Math.max(0, ends[i] - Date.parse(time))]);
  job.phases = [['waited', begun - queued], ...spans, ['altogether', report - begun]]
    .map(([name, ms]) => `${name} ${duration(ms)}`).join(', ');
  update();
}

function entry(job) {
  const state = stateOf(job);
  const name = job.deployId || `order of job ${job.jobId}`;
  const details = el('details', { open: open.has(job.token), className: `job ${state}` },
    el('summary', {}, el('span', {}, name), el('span', { className: 'state' }, state)));
  details.ontoggle = () => {
    if (details.open === open.has(job.token)) return;
    details.open ? open.add(job.token) : open.delete(job.token);
    update();
  };
  if (!open.has(job.token)) return details;
  loadPhases(job);
  details.append(el('p', {}, `job ${job.jobId}`, job.detail && !job.times.report ? `, ${job.detail}` : '', job.phases ? `; ${job.phases}` : ''));
  if (job.resources.length > 0) details.append(resultTable(job));
  details.append(button('Delete this job', () => post('job', { command: 'delete', jobId: String(job.jobId) })));
  return details;
}

let mostShown = 100;

const update = oncePerFrame(() => {
  const focused = document.activeElement?.closest('details')?.dataset.token;
  const entries = [...jobs.values()].reverse().slice(0, mostShown).map(job => {
    const element = entry(job);
    element.dataset.token = job.token;
    return element;
  });
  const older = jobs.size - entries.length;
  const more = button(`${older} older`, () => { mostShown += 100; update(); });
  by('job-list').replaceChildren(...(entries.length > 0 ? entries : ['none yet']), ...(older > 0 ? [more] : []));
  entries.find(element => element.dataset.token === focused)?.firstChild.focus();
  offer(by('filter-job'), [...jobs.values()].map(job => job.deployId || String(job.jobId)));
});

export { loadAdvice };
