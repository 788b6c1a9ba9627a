// Orders: the samples, one's own folders and archives, and what needs no folder.
import { by, button, el, post, read } from './dom.js';

export async function showFolders() {
  const order = (command, { name, own }, encrypt) =>
    () => post('job', { command, folder: name, own, encrypt });
  const lines = (await read('folders')).map(folder => el('div', { className: 'bar' },
    el('strong', {}, folder.name + (folder.own ? ' (yours)' : '')),
    button('Add', order('add', folder, false), { ariaLabel: `Add ${folder.name}` }),
    button('Add encrypted', order('add', folder, true), { ariaLabel: `Add ${folder.name} encrypted` }),
    button('Delete', order('delete', folder, false), { ariaLabel: `Delete ${folder.name}` })));
  by('folders').replaceChildren(...lines);
}

/** `files` are pairs of a path and a file; the first word of the paths is the folder's name. */
async function upload(name, files) {
  const form = new FormData();
  for (const [path, file] of files) form.append(path, file);
  if (await post(`upload?name=${encodeURIComponent(name)}`, form)) showFolders();
}

const readEntries = reader => new Promise((done, failed) => reader.readEntries(done, failed));
const fileOf = entry => new Promise((done, failed) => entry.file(done, failed));

async function collect(entry, path, files) {
  if (entry.isFile) return void files.push([path + entry.name, await fileOf(entry)]);
  const reader = entry.createReader();
  // Each call gives a part of them.
  for (let part = await readEntries(reader); part.length > 0; part = await readEntries(reader)) {
    for (const inner of part) await collect(inner, `${path}${entry.name}/`, files);
  }
}

const drop = by('drop');
// A browser would go to what is dropped elsewhere.
for (const name of ['dragover', 'drop']) document.addEventListener(name, event => event.preventDefault());
drop.addEventListener('dragover', () => drop.classList.add('over'));
drop.addEventListener('dragleave', () => drop.classList.remove('over'));
drop.addEventListener('drop', async event => {
  drop.classList.remove('over');
  const entry = event.dataTransfer.items[0]?.webkitGetAsEntry();
  if (!entry) return;
  const files = [];
  await collect(entry, '', files);
  upload(entry.name.replace(/\.zip$/, ''), files);
});
by('archive').onchange = event => {
  const [file] = event.target.files;
  if (file) upload(file.name.replace(/\.zip$/, ''), [[file.name, file]]);
};
by('folder').onchange = event => {
  const files = [...event.target.files].map(file => [file.webkitRelativePath, file]);
  if (files.length > 0) upload(files[0][0].split('/')[0], files);
};
by('trigger').onsubmit = event => {
  event.preventDefault();
  post('job', { command: 'trigger', text: by('trigger-text').value });
};
by('reset').onclick = () => post('job', { command: 'reset' });
by('scheduler-reset').onclick = () => post('job', { command: 'reset', scheduler: true });
