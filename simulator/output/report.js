'use strict';
const {head, summary, clock, rows} = JSON.parse(document.getElementById('data').textContent);
const failures = rows.flatMap((row, index) => row.failed ? [index] : []);
const severalThreads = new Set(rows.map(row => row.thread).filter(thread => thread)).size > 1;
const kBlock = 200;  // rows that appear together
const kAlwaysShown = 3000;  // of a shorter run, so that the browser's search finds every row

// make('td.number', 'text', element)
function make(kind, ...children) {
  const [tag, ...classes] = kind.split('.');
  const element = document.createElement(tag);
  element.className = classes.join(' ');
  element.append(...children);
  return element;
}

function place(id, ...children) { document.getElementById(id).append(...children); }

function plural(count, noun) { return `${count} ${noun}${count === 1 ? '' : 's'}`; }

function label(row) {
  if (row.log || row.note) return row.log || row.note;
  const parts = [row.name];
  if (row.command) parts.push('command ' + row.command);
  if (row.request) parts.push('request ' + row.request);
  if (row.length !== undefined) {
    const part = row.moved !== undefined && row.moved !== row.length ? row.moved + ' of ' : '';
    parts.push(part + plural(row.length, 'byte'));
  }
  if (row.status) parts.push('status ' + row.status);
  return parts.join(', ') + (row.error ? ': ' + row.error : '');
}

function who(row) {
  const parts = [row.client, row.connection && '#' + row.connection,
                 row.descriptor !== undefined && 'fd ' + row.descriptor,
                 severalThreads && row.process && row.process + '/' + row.thread];
  return parts.filter(part => part).join(' ');
}

function hexDump(hex) {
  const lines = [];
  for (let at = 0; at < hex.length; at += 32) {
    const bytes = hex.slice(at, at + 32).match(/../g);
    const digits = bytes.map((byte, i) => byte + (i % 4 === 3 ? ' ' : '')).join('').padEnd(36);
    const text = bytes.map(byte => parseInt(byte, 16))
                      .map(code => code > 31 && code < 127 ? String.fromCharCode(code) : '.');
    lines.push((at / 2).toString(16).padStart(4, '0') + '  ' + digits + ' ' + text.join(''));
  }
  return lines.join('\n');
}

function detail(row) {
  const begun = new Date(clock + row.start / 1000);
  const milliseconds = String(begun.getMilliseconds()).padStart(3, '0');
  const lines = [`${begun.toLocaleString()} and ${milliseconds} ms, took ${row.took} \u00b5s`];
  if (row.process) lines[0] += `, process ${row.process}, thread ${row.thread}`;
  if (row.bytes) {
    lines.push(hexDump(row.bytes));
    const more = row.moved - row.bytes.length / 2;
    if (more > 0) lines.push(`and ${plural(more, 'more byte')}`);
  }
  return make('div.bytes', lines.join('\n'));
}

function operation(row) {
  const lanes = make('div.lanes', make('div.arrow', label(row)));
  if (row.why) lanes.append(make('div.why', row.why));
  const element = make('details.row', make('summary', make('span.number', row.number),
      make('span.time', (row.start / 1000).toFixed(3)), make('span.who', who(row)), lanes));
  if (row.read) element.classList.add('read');
  element.addEventListener('toggle', () => {
    row.open = element.open;
    if (element.open && !element.querySelector('.bytes')) element.append(detail(row));
  });
  element.open = Boolean(row.open);
  return element;
}

function rowElement(row, index) {
  if (row.gap) return make('div.gap', plural(row.gap, 'line') + ' left out');
  const element = row.note ? make('div.note', row.note)
                : row.log ? make('div.row', make('div.log', row.log)) : operation(row);
  if (row.failed) element.classList.add('failed');
  if (index === failures[current]) element.classList.add('here');
  return element;
}

let current = -1;  // the failure that is marked
const blocks = [];

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

function showOverview() {
  for (const [name, text] of Object.entries(head)) {
    if (text) place('head', make('dt', name), make('dd', make('code', text)));
  }
  const sum = counts => Object.values(counts).reduce((all, count) => all + count, 0);
  const cards = [[sum(summary.operations), 'operations'],
                 [sum(summary.failures), 'failed operations', 'bad'],
                 [summary.negative_statuses, 'negative statuses', 'bad'],
                 [summary.failed_calls, 'failed calls in the log', 'bad'],
                 [summary.bytes_sent, 'bytes sent'], [summary.bytes_received, 'bytes received'],
                 [(summary.seconds * 1000).toFixed(3), 'milliseconds']];
  for (const [figure, name, kind] of cards) {
    place('cards', make(kind && figure ? 'div.' + kind : 'div', make('b', figure), name));
  }
  const table = lines => make('table', ...lines.map((line, i) =>
      make('tr', ...line.map(cell => make(i === 0 ? 'th' : 'td', cell)))));
  place('tables', table([['operation', 'count'], ...Object.entries(summary.operations)]));
  if (sum(summary.failures)) {
    place('tables', table([['errno', 'failures'], ...Object.entries(summary.failures)]));
  }
  const commands = summary.commands.map(each => [
    `${each.client} ${each.command}`, each.count, each.failures, each.negative_statuses,
    ...(each.latency_us ? Object.values(each.latency_us) : ['', '', ''])]);
  if (commands.length) {
    place('tables', table([['command', 'count', 'failed transfers', 'negative statuses',
                            'shortest, \u00b5s', 'mean', 'longest'], ...commands]));
  }
}

function showFailures() {
  document.getElementById('failures').hidden = failures.length === 0;
  const list = document.querySelector('#failures ol');
  failures.slice(0, 100).forEach((index, at) => {
    const link = make('a', label(rows[index]));
    link.href = '#';
    link.addEventListener('click', event => { event.preventDefault(); go(at); });
    list.append(make('li', link));
  });
  if (failures.length > 100) list.after(make('p', `and ${failures.length - 100} more`));
}

function showRows() {
  const observer = new IntersectionObserver(entries => {
    for (const entry of entries) entry.isIntersecting ? fill(entry.target) : empty(entry.target);
  }, {rootMargin: '2000px'});
  for (let from = 0; from < rows.length; from += kBlock) {
    const block = make('div.block');
    block.style.height = 24 * Math.min(kBlock, rows.length - from) + 'px';
    blocks.push(block);
    if (rows.length <= kAlwaysShown) fill(block);
    else observer.observe(block);
  }
  place('rows', ...blocks);
}

addEventListener('keydown', event => {
  const step = {n: 1, p: -1}[event.key];
  if (!step || !failures.length || event.ctrlKey || event.altKey || event.metaKey) return;
  go(current < 0 && step < 0 ? -1 : current + step);
});
document.title = head.program;
showOverview();
showFailures();
showRows();
