'use strict';
const lines = document.getElementById('data').textContent.trim().split('\n');
const rows = lines.map(line => {
  try { return JSON.parse(line); } catch (error) { return {note: 'The page is cut here.'}; }
});
const {head} = rows[rows.length - 1].head ? rows.pop() : {head: {}};
const failures = rows.flatMap((row, index) => row.failed ? [index] : []);
const kBlock = 200;  // number of rows that are added at once
const kAlwaysShown = 3000;  // show all rows up to this number, so that the browser's search finds them
const kListed = 100;  // failures
const blocks = [];
let current = -1;  // the failure that is marked

// make('div.log', 'text', element)
function make(kind, ...children) {
  const [tag, ...classes] = kind.split('.');
  const element = document.createElement(tag);
  element.className = classes.join(' ');
  element.append(...children);
  return element;
}

function operation(row) {
  const [line, ...bytes] = (row.in || row.out).split('\n');
  const more = make('pre', [`took ${row.took} \u00b5s`, ...bytes.map(each => each.slice(8))].join('\n'));
  const element = make(row.in ? 'details.in' : 'details.out', make('summary', line), more);
  element.open = Boolean(row.open);
  element.addEventListener('toggle', () => { row.open = element.open; });
  return element;
}

function rowElement(row, index) {
  const element = row.log ? make('div.log', row.log)
                : row.note ? make('div.note', row.note) : operation(row);
  if (row.failed) element.classList.add('failed');
  if (index === failures[current]) element.classList.add('here');
  return element;
}

function fill(block) {
  if (block.firstChild) return;
  block.style.height = '';
  const from = blocks.indexOf(block) * kBlock;
  block.append(...rows.slice(from, from + kBlock).map((row, i) => rowElement(row, from + i)));
}

function empty(block) {
  if (rows.length <= kAlwaysShown || !block.firstChild) return;
  block.style.height = block.offsetHeight + 'px';
  block.replaceChildren();
}

function go(to) {
  const marked = document.querySelector('.here');
  if (marked) marked.classList.remove('here');
  current = (to + failures.length) % failures.length;
  const index = failures[current], at = Math.floor(index / kBlock);
  // What is above must have its height first, or the row would move away.
  blocks.slice(Math.max(0, at - 1), at + 2).forEach(fill);
  const element = blocks[at].children[index % kBlock];
  element.classList.add('here');
  element.scrollIntoView({block: 'center'});
}

function showFailures() {
  const list = document.querySelector('ol');
  failures.slice(0, kListed).forEach((index, at) => {
    const row = rows[index];
    const link = make('a', (row.in || row.out || row.log || row.note).split('\n', 1)[0]);
    link.href = '#';
    link.addEventListener('click', event => { event.preventDefault(); go(at); });
    list.append(make('li.failed', link));
  });
  const more = failures.length - kListed;
  list.after(more > 0 ? `and ${more} more` : failures.length ? '' : 'none');
}

function showRows() {
  const observer = new IntersectionObserver(entries => {
    for (const entry of entries) entry.isIntersecting ? fill(entry.target) : empty(entry.target);
  }, {rootMargin: '2000px'});
  for (let from = 0; from < rows.length; from += kBlock) {
    const block = make('div');
    block.style.height = 20 * Math.min(kBlock, rows.length - from) + 'px';
    blocks.push(block);
    if (rows.length <= kAlwaysShown) fill(block);
    else observer.observe(block);
  }
  document.getElementById('rows').append(...blocks);
}

addEventListener('keydown', event => {
  const step = {n: 1, p: -1}[event.key];
  if (!step || !failures.length || event.ctrlKey || event.altKey || event.metaKey) return;
  go(current < 0 && step < 0 ? -1 : current + step);
});
for (const [name, text] of Object.entries(head)) {
  if (text) document.querySelector('dl').append(make('dt', name), make('dd', text));
}
showFailures();
showRows();
