// The gateway's state as tiles, and what can be done to its parts.
import { by, button, el, offer, post } from './dom.js';

// What a KIND of a misbehaving executor or parser can be.
const kinds = ['silent', 'late:3000', 'code:5', 'garbage', 'twice', 'die'];
let played = {};

const word = value => (value?.state ? `${value.state}${value.since ? `, since ${value.since}` : ''}` : 'not known');
const onBus = value => (value?.onBus ? 'on the bus' : 'not on the bus');

function served(one) {
  const called = (one.calledFor ?? []).join(' ') || 'nothing';
  const jobs = one.jobs === undefined ? '' : `, ${one.jobs} stored jobs`;
  return `${one.onBus ? 'on the bus' : one.startable ? 'started when called' : 'NOT ON THE BUS'}, called for ${called}${jobs}`;
}

function tile(name, text, isWell) {
  return el('div', { className: `tile ${isWell ? '' : 'bad'}` }, el('strong', {}, name), el('span', {}, text));
}

function tiles(state) {
  const { service = {}, identity = {}, bridge, deployment, scheduler, broker } = state;
  const under = deployment ? `${deployment.deployId}, ${deployment.phase}, ${state.waiting} waiting` : 'none';
  const last = (state.deployments ?? []).at(-1);
  const end = last ? `${last.deployId}: ${last.succeeded} succeeded, ${last.failed} failed` : 'none';
  return [
    tile('service', `${onBus(service)}, ${service.phase?.state ?? '–'}, process ${service.pid ?? '–'}`, service.onBus),
    tile('identity', `${identity.productKey ?? '–'} ${identity.deviceName ?? ''}`, identity.state === 'present'),
    tile('bridge', `${onBus(bridge)}, ${word(bridge)}`, bridge?.onBus && bridge.state !== 'refuses'),
    tile('broker', word(broker), broker?.state !== 'disconnected'),
    tile('scheduler', word(scheduler), scheduler?.state === 'answers'),
    ...(state.executors ?? []).map(one => tile(`executor ${one.name}`, served(one), one.onBus || one.startable)),
    ...(state.parsers ?? []).map(one => tile(`parser ${one.name}`, served(one), one.onBus || one.startable)),
    tile('deployment', under, true),
    tile('last deployment', end, !last?.failed),
    ...(state.deployments ?? []).filter(one => one.firstError?.message === 'interrupted by a restart')
      .map(one => tile('interrupted', `${one.deployId}: interrupted by a restart`, false)),
  ];
}

export function show({ status, faults }) {
  played = faults;
  for (const one of document.querySelectorAll('#switches button')) {
    one.setAttribute('aria-pressed', played[one.dataset.part] === one.dataset.fault);
  }
  if (!status) return;
  by('tiles').replaceChildren(...tiles(status));
  const problems = status.problems ?? [];
  by('problems').replaceChildren(...(problems.length > 0 ? problems : ['All is well.']).map(text =>
    el('li', { className: problems.length > 0 ? 'bad' : '' }, text)));
  const named = [...(status.executors ?? []), ...(status.parsers ?? [])];
  offer(by('filter-executor'), new Set(named.map(one => one.name)));
}

function switchFor(part, fault, help) {
  return button(fault, () => post('fault', { part, fault }), {
    title: help, ariaPressed: String(played[part] === fault) });
}

/** One group of switches for each part, from what gateway-fault says of itself. */
export async function loadSwitches() {
  const groups = new Map();
  for (const line of (await (await fetch('faults')).text()).split('\n')) {
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
