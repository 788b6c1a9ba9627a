// The configuration store, to look at.
import { by, el, formatted, read } from './dom.js';

const open = new Set();

export async function showStore() {
  // Without a connection there is nothing to show, and something else says so.
  const entries = (await read('store').catch(() => [])).map(({ key, value }) => {
    const details = el('details', { open: open.has(key) }, el('summary', {}, key),
      el('pre', {}, value === undefined ? '(a secret)' : formatted(value)));
    details.ontoggle = () => (details.open ? open.add(key) : open.delete(key));
    return details;
  });
  by('entries').replaceChildren(...entries);
}
