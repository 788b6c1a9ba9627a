// The gateway's state as tiles, and what can be done to its parts.
import { by, button, el, offer, post, readText } from './dom.js';

// What a KIND of a misbehaving executor or parser can be.
const kinds = ['silent', 'late', 'code', 'garbage', 'twice', 'die'];
let played = {};

function inWords(value) {
  if (Array.isArray(value)) return value.join(' ') || 'nothing';
  if (typeof value !== 'object') return String(value);
  return Object.entries(value).filter(([, inner]) => inner !== undefined && inner !== null)
    .map(([key, inner]) => `${key} ${inWords(inner)}`).join(', ');
}

function tiles(status) {
  const { service, identity, bridge, broker, scheduler, deployment, waiting, problems } = status;
  const named = kind => ({ name, origin, onBus, startable, calledFor, jobs }) =>
    [`${kind} ${name}`, { origin, onBus, startable, calledFor, jobs }];
  const facts = [
    ...Object.entries({ service, identity, bridge, broker, scheduler }),
    ...(status.executors ?? []).map(named('executor')), ...(status.parsers ?? []).map(named('parser')),
    ['deployment', { ...deployment, waiting }], ['last deployment', status.deployments?.at(-1)],
  ];
  return facts.map(([name, value]) => {
    const isBad = problems.some(text => isAbout(text, name));
    return el('div', { className: isBad ? 'tile bad' : 'tile' }, el('strong', {}, name), inWords(value ?? 'none'));
  });
}

/** Whether a problem is one of this part: it begins with its name. */
function isAbout(problem, name) {
  return [name, `the ${name}`].some(start => problem.startsWith(start) && " ,'".includes(problem[start.length]));
}

const isPlayed = (part, fault) => played[part]?.split(':')[0] === fault;

export function show({ status, faults }) {
  played = faults;
  for (const one of document.querySelectorAll('#switches button')) {
    one.setAttribute('aria-pressed', isPlayed(one.dataset.part, one.dataset.fault));
  }
  if (!status) return;
  by('tiles').replaceChildren(...tiles(status));
  by('problems').replaceChildren(...status.problems.map(text => el('li', { className: 'bad' }, text)));
  if (status.ok) by('problems').append(el('li', {}, 'All is well.'));
  const named = [...(status.executors ?? []), ...(status.parsers ?? [])];
  offer(by('filter-executor'), new Set(named.map(one => one.name)));
}

function switchFor(part, fault, help) {
  return button(fault, () => post('fault', { part, fault }), {
    title: help, ariaPressed: String(isPlayed(part, fault)) });
}

/** One group of switches for each part, from what gateway-fault says of itself. */
export async function loadSwitches() {
  const groups = new Map();
  for (const line of (await readText('faults')).split('\n')) {
    const [kind, words, help] = line.split('\t');
    if (kind !== 'command') continue;
    const [part, fault] = words.split(' ');
    const group = groups.get(part) ?? el('div', { className: 'bar' }, el('strong', {}, part));
    groups.set(part, group);
    for (const one of fault === 'KIND' ? kinds : [fault]) {
      const element = switchFor(part, one, help);
      Object.assign(element.dataset, { part, fault: one });
      group.append(element);
    }
  }
  by('switches').replaceChildren(...groups.values());
}
