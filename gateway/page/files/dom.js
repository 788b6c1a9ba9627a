// What the other modules share. Texts of others become text nodes, never markup.

export const by = id => document.getElementById(id);

/** An element with properties (a class as `className`) and children: elements, or texts. */
export function el(name, properties = {}, ...children) {
  const element = Object.assign(document.createElement(name), properties);
  element.append(...children);
  return element;
}

export const button = (text, action, properties = {}) =>
  el('button', { type: 'button', onclick: action, ...properties }, text);

export async function readText(path) {
  const answer = await fetch(path);
  if (!answer.ok) throw new Error(await answer.text());
  return answer.text();
}

export const read = async path => JSON.parse(await readText(path));

const token = document.querySelector('meta[name=token]').content;

/** Changes something. What is said about it stands in the page's status line. */
export async function post(path, body) {
  const isForm = body instanceof FormData;
  const said = by('said');
  said.textContent = '…';
  try {
    const answer = await fetch(path, {
      method: 'POST', headers: { 'X-Token': token }, body: isForm ? body : JSON.stringify(body) });
    const text = (await answer.text()).trim();
    said.className = answer.ok ? '' : 'bad';
    said.textContent = text || (answer.ok ? 'done' : `refused: ${answer.status}`);
    return answer.ok;
  } catch (error) {
    said.className = 'bad';
    said.textContent = `The gateway does not answer: ${error.message}`;
    return false;
  }
}

/** A value with what its texts hold where that is JSON. */
export function opened(value) {
  if (typeof value === 'string' && /^\s*[[{]/.test(value)) {
    try { return opened(JSON.parse(value)); } catch { return value; }
  }
  if (Array.isArray(value)) return value.map(opened);
  if (value === null || typeof value !== 'object') return value;
  return Object.fromEntries(Object.entries(value).map(([key, inner]) => [key, opened(inner)]));
}

const longest = 200000;

export function formatted(value) {
  const inner = opened(value);
  const text = typeof inner === 'string' ? inner : JSON.stringify(inner, null, 2);
  return text.length <= longest ? text : `${text.slice(0, longest)}\n… ${text.length - longest} further characters`;
}

/** Adds what a list to choose from has not got yet. */
export function offer(select, values) {
  const known = new Set([...select.options].map(option => option.value));
  for (const value of values) if (!known.has(value)) select.append(el('option', { value }, value));
}

/** Runs `action` once in the next frame, however often it is asked for until then. */
export function oncePerFrame(action) {
  let isAsked = false;
  return () => {
    if (isAsked) return;
    isAsked = true;
    requestAnimationFrame(() => { isAsked = false; action(); });
  };
}
