// What has changed between two tables or two texts.

const SHOWN_ROWS = 20;
const LINES = 1500;

const cellText = (cell) => (cell === undefined || cell === null ? ''
                            : typeof cell === 'string' ? cell : JSON.stringify(cell));

/** Rows as objects by column, whichever way they are written. */
function rowObjects(table) {
  return table.rows.map((row) => (Array.isArray(row)
    ? Object.fromEntries(table.columns.map((column, i) => [column, row[i]])) : row));
}

/**
 * Rows added, removed and changed. Rows are compared by their key columns, since only those
 * enter the digest; an added and a removed row that agree in more than half of them are one
 * row that has changed.
 */
function tableDifference(before, after) {
  const keys = (after.keys && after.keys.length > 0 ? after.keys : after.columns).slice();
  const textOfRow = (row) => JSON.stringify(keys.map((key) => cellText(row[key])));
  const counts = new Map();
  const old = rowObjects(before);
  const added = [];
  for (const row of old) counts.set(textOfRow(row), (counts.get(textOfRow(row)) || 0) + 1);
  for (const row of rowObjects(after)) {
    const left = counts.get(textOfRow(row)) || 0;
    if (left > 0) counts.set(textOfRow(row), left - 1);
    else added.push(row);
  }
  const removed = old.filter((row) => {
    const left = counts.get(textOfRow(row)) || 0;
    if (left > 0) counts.set(textOfRow(row), left - 1);
    return left > 0;
  });
  const changed = [];
  if (added.length * removed.length <= 40000) {
    for (const row of added.slice()) {
      const agreeing = (other) =>
        keys.filter((key) => cellText(other[key]) === cellText(row[key])).length;
      const best = removed.reduce((found, other) =>
        (agreeing(other) > (found ? agreeing(found) : keys.length / 2) ? other : found), null);
      if (!best) continue;
      changed.push({before: best, after: row});
      added.splice(added.indexOf(row), 1);
      removed.splice(removed.indexOf(best), 1);
    }
  }
  const columns = [...keys, ...after.columns.filter((column) => !keys.includes(column))];
  const limited = (rows) => ({count: rows.length, rows: rows.slice(0, SHOWN_ROWS)});
  const order = (table) => JSON.stringify(rowObjects(table).map(textOfRow));
  return {columns, keys, added: limited(added), removed: limited(removed),
          changed: limited(changed), reordered: order(before) !== order(after)};
}

/** "2 rows added, 1 removed", or that nothing in the key columns differs. */
function differenceWords(difference) {
  const parts = ['added', 'removed', 'changed'].filter((what) => difference[what].count > 0)
    .map((what, i) => (i === 0 ? counted(difference[what].count, 'row', 'rows')
                               : countText(difference[what].count)) + ' ' + what);
  if (parts.length > 0) return parts.join(', ');
  return difference.reordered ? 'the same rows in another order' : 'no row differs in the key columns';
}

function differenceRow(mark, name, cells) {
  return make('tr', {class: name},
    make('th', {scope: 'row'}, mark, make('span', {class: 'hidden'}, name)), cells);
}

function cellOf(row, column) {
  return make('td', {}, shown(cellText(row[column]), 200));
}

function changedCell(row, column) {
  const [before, after] = [cellText(row.before[column]), cellText(row.after[column])];
  if (before === after) return make('td', {}, shown(after, 200));
  return make('td', {class: 'cell'}, make('del', {}, shown(before, 200)), ' → ',
              make('ins', {}, shown(after, 200)));
}

function renderDifference(difference) {
  const {columns, keys} = difference;
  const head = make('tr', {}, make('th', {}, make('span', {class: 'hidden'}, 'change')),
    columns.map((column) => make('th', {scope: 'col', class: keys.includes(column) ? 'key' : null},
                                 shown(column, 60))));
  const rows = [
    ...difference.removed.rows.map((row) =>
      differenceRow('−', 'removed', columns.map((column) => cellOf(row, column)))),
    ...difference.added.rows.map((row) =>
      differenceRow('+', 'added', columns.map((column) => cellOf(row, column)))),
    ...difference.changed.rows.map((row) =>
      differenceRow('~', 'changed', columns.map((column) => changedCell(row, column)))),
  ];
  const hidden = ['removed', 'added', 'changed'].reduce((sum, what) =>
    sum + difference[what].count - difference[what].rows.length, 0);
  return make('div', {class: 'scroll'},
    make('p', {}, differenceWords(difference) + '.',
      make('span', {class: 'muted'}, ' Underlined columns tell rows apart.')),
    rows.length > 0 ? make('table', {class: 'difference'}, make('thead', {}, head),
                           make('tbody', {}, rows)) : null,
    hidden > 0 ? make('p', {class: 'muted'}, `and ${counted(hidden, 'row', 'rows')} more`) : null);
}

/** Lines as [' ' | '-' | '+', text]; null when the texts are too long to compare. */
function lineDifference(before, after) {
  const [a, b] = [before.split('\n'), after.split('\n')];
  let start = 0;
  while (start < a.length && start < b.length && a[start] === b[start]) ++start;
  let end = 0;
  while (end < a.length - start && end < b.length - start &&
         a[a.length - 1 - end] === b[b.length - 1 - end]) ++end;
  const [left, right] = [a.slice(start, a.length - end), b.slice(start, b.length - end)];
  if (left.length > LINES || right.length > LINES) return null;
  // Lengths of the longest common subsequences of what is left from each place on.
  const width = right.length + 1;
  const longest = new Uint16Array((left.length + 1) * width);
  for (let i = left.length - 1; i >= 0; --i) {
    for (let j = right.length - 1; j >= 0; --j) {
      longest[i * width + j] = left[i] === right[j]
        ? longest[(i + 1) * width + j + 1] + 1
        : Math.max(longest[(i + 1) * width + j], longest[i * width + j + 1]);
    }
  }
  const lines = a.slice(0, start).map((line) => [' ', line]);
  let [i, j] = [0, 0];
  while (i < left.length || j < right.length) {
    if (i < left.length && j < right.length && left[i] === right[j]) {
      lines.push([' ', left[i++]]);
      ++j;
    } else if (i < left.length && (j === right.length || longest[(i + 1) * width + j] >=
                                                         longest[i * width + j + 1])) {
      lines.push(['-', left[i++]]);
    } else {
      lines.push(['+', right[j++]]);
    }
  }
  return lines.concat(a.slice(a.length - end).map((line) => [' ', line]));
}

/** The changed lines with two lines around them. */
function renderLines(before, after) {
  const lines = lineDifference(before, after);
  if (lines === null) return make('p', {class: 'muted'}, 'The texts are too long to compare here.');
  const near = (index) => lines.slice(Math.max(0, index - 2), index + 3)
    .some(([mark]) => mark !== ' ');
  const block = make('pre', {class: 'lines', tabindex: 0});
  let isSkipping = false;
  lines.forEach(([mark, line], i) => {
    if (!near(i)) {
      if (!isSkipping) block.append(make('span', {class: 'muted'}, '⋯\n'));
      isSkipping = true;
      return;
    }
    isSkipping = false;
    const text = [mark === '-' ? '− ' : mark + ' ', shown(line, 400), '\n'];
    block.append(mark === ' ' ? make('span', {}, text)
                              : make(mark === '-' ? 'del' : 'ins', {}, text));
  });
  return block;
}
