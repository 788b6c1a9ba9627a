// The configuration store, to look at.
import { by, el, formatted, read } from './dom.js';

const open = new Set();

export async function showStore() {
  const entry = ([key, value]) => {
    const details = el('details', { open: open.has(key) }, el('summary', {}, key), el('pre', {}, formatted(value)));
    details.ontoggle = () => (details.open ? open.add(key) : open.delete(key));
    return details;
  };
  const shown = await read('store').then(store => Object.entries(store).map(entry), error => [error.message]);
  by('entries').replaceChildren(...shown);
}
