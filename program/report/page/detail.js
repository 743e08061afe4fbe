// What unfolds below a row: the rule, the drawing, the alerts and what has changed.

/** A value with quotes where it is a text; a table's digest in short. */
function valueNode(value, isTable) {
  if (value === null) return make('span', {class: 'muted'}, 'not given');
  if (isTable) return make('code', {title: plain(value)}, plain(value, 8));
  return make('span', {class: 'value'}, shown(typeof value === 'number' ? numberText(value) : value, 160));
}

const fact = (name, ...value) => make('div', {}, make('dt', {}, name), make('dd', {}, ...value));

function originWords(variable, detail) {
  if (variable.origin === NOT_STORED) return 'not in the databases';
  if (variable.origin === NO_RULE) return 'no rule yet';
  if (variable.origin === PRESCRIBED) return 'prescribed';
  const learned = detail.rules[detail.rules.length - 1];
  const isNewest = learned && learned.parameterText === detail.parameterText &&
                   learned.type === variable.type;
  return 'learned' + (isNewest ? ' ' + timeText(learned.time) : '');
}

function facts(variable, detail) {
  const points = detail.points;
  const newest = points[points.length - 1];
  const golden = detail.golden[detail.golden.length - 1];
  const isTable = variable.type === TABLE_MD5 || detail.kind === 5;
  const list = make('dl', {class: 'facts'},
    fact('Expected', variable.words ? make('strong', {}, shown(variable.words, 400)) : '–'),
    fact('Rule', variable.type >= 0 ? make('code', {}, KIND_NAMES[variable.type]) : '–', ' ',
         make('span', {class: 'muted'}, originWords(variable, detail))),
    fact('History', points.length > 0
      ? [counted(points.length, 'point', 'points'), make('span', {class: 'muted'},
         ` ${timeText(points[0].time)} – ${timeBeside(newest.time, points[0].time)}`)]
      : detail.damaged ? 'is stored, but cannot be read'
                       : variable.origin === PRESCRIBED ? 'none: prescribed rules keep none' : 'none'),
    newest ? fact('Newest in history', valueNode(newest.value, isTable)) : null,
    golden ? fact('Golden value', valueNode(golden.value, isTable),
                  make('span', {class: 'muted'}, ' of ' + timeText(golden.time))) : null,
    detail.refused ? fact('Refused', counted(detail.refused.count, 'value', 'values'),
                          make('span', {class: 'muted'}, ` up to ${timeText(detail.refused.time)}: `),
                          shown(detail.refused.reason, 400)) : null);
  return list;
}

function legend(detail, rules, lanes) {
  const entry = (shape, words) => make('li', {},
    draw('svg', {viewBox: '0 0 20 14', width: 20, height: 14, 'aria-hidden': true}, shape), words);
  const entries = [];
  if (detail.points.length > 0) {
    entries.push(entry(lanes ? draw('rect', {class: 'point', x: 8.5, y: 0, width: 3, height: 14})
                             : draw('circle', {class: 'point', cx: 10, cy: 7, r: 3}), 'history'));
  }
  if (rules.some((rule) => (lanes ? allowedValues(rule) : shapesOf(rule)) !== null)) {
    entries.push(entry([draw('rect', {class: 'band', x: 1, y: 2, width: 18, height: 10}),
                        draw('line', {class: 'limit', x1: 1, x2: 19, y1: 7, y2: 7})], 'expected'));
  }
  if (detail.golden.length > 0) {
    entries.push(entry(draw('path', {class: 'golden', d: diamond(10, 7, 6)}), 'golden value'));
  }
  if (detail.episodes.length > 0) {
    entries.push(entry(draw('path', {class: 'alert', d: triangle(10, 7, 5.5)}), 'alert'),
                 entry(draw('rect', {class: 'episode', x: 1, y: 0, width: 18, height: 14}),
                       'time of alerts'));
  }
  return make('ul', {class: 'legend'}, entries);
}

/** The drawing with its choice of time; answers it and a function that shows a span. */
function drawingOf(variable, detail, results) {
  const rules = rulesInForce(variable, detail, results);
  const lanes = hasLanes(variable, detail);
  const marks = marksOf(detail);
  const box = make('div', {class: 'drawing-box'});
  if (marks.length === 0) {
    box.append(make('p', {class: 'empty'}, detail.damaged
      ? 'The stored history cannot be read; there is nothing to draw.'
      : 'No value is stored yet; there is nothing to draw.'));
    return {node: box, show: () => {}};
  }
  const whole = wholeTime(marks, results);
  let time = whole;
  const canvas = make('div');
  const label = `Drawing of ${plain(variable.name)}: ${counted(detail.points.length, 'point', 'points')} ` +
                `of history, ${counted(variable.alerts, 'alert', 'alerts')}`;
  const render = () => {
    const width = Math.max(280, Math.round(canvas.clientWidth || 720));
    canvas.replaceChildren(...(lanes ? drawLanes : drawNumbers)(detail, rules, time, width, label));
  };
  const alerts = marks.filter((mark) => mark.what === 'alert').map((mark) => mark.time);
  const buttons = make('div', {class: 'spans', role: 'group', 'aria-label': 'Time shown'});
  const show = (span, button) => {
    time = span;
    for (const other of buttons.children) {
      other.setAttribute('aria-pressed', String(other === button));
    }
    render();
  };
  const offer = (words, span) => {
    const button = make('button', {type: 'button', 'aria-pressed': 'false',
                                   onclick: () => show(span, button)}, words);
    buttons.append(button);
    return button;
  };
  const all = offer('all', whole);
  all.setAttribute('aria-pressed', 'true');
  if (alerts.length > 0) {
    const [from, to] = extent(alerts);
    const margin = Math.max(30, (to - from) * 0.15);
    if (to - from + 2 * margin < (whole.to - whole.from) * 0.7) {
      offer('alerts only', {from: from - margin, to: Math.min(whole.to, to + margin)});
    }
  }
  box.append(make('div', {class: 'drawing-head'}, legend(detail, rules, lanes),
                  buttons.children.length > 1 ? buttons : null), canvas);
  let lastWidth = 0;
  const observer = new ResizeObserver(() => {
    if (!canvas.isConnected) return observer.disconnect();
    if (Math.abs(canvas.clientWidth - lastWidth) < 2) return undefined;
    lastWidth = canvas.clientWidth;
    return render();
  });
  observer.observe(canvas);
  return {node: box, show: (span) => { show(span, null); box.scrollIntoView({block: 'nearest'}); }};
}

// --- alerts ------------------------------------------------------------------------------

function endWords(episode, results) {
  if (episode.end === END_OPEN) return 'open at the end of the results';
  if (episode.end === END_CLEARED) {
    const time = timeBeside(episode.cleared, episode.last);
    return (results.exact ? 'cleared ' : 'cleared not later than ') + time;
  }
  return 'cleared by a run that the results leave out';
}

/** Why an alert is one: the program's own sentence where there is one. */
function reasonNode(alert) {
  if (alert.explanation && typeof alert.explanation.sentence === 'string') {
    return make('p', {class: 'reason'}, shown(alert.explanation.sentence, 1200));
  }
  const isTable = alert.rule.type === TABLE_MD5;
  return make('p', {class: 'reason'}, isTable ? 'The table has changed: its digest is ' : 'The value was ',
              valueNode(alert.value, isTable), isTable ? ', expected ' : '; expected ',
              make('strong', {}, shown(alert.rule.words, 400)), '.');
}

/** The explanation's own account of a table's rows. */
function explainedDifference(table) {
  const rowsOf = (part) => (part && Array.isArray(part.rows) ? part.rows.filter(isRecord) : []);
  const side = (part) => ({count: part && typeof part.count === 'number' ? part.count
                                                                         : rowsOf(part).length,
                           rows: rowsOf(part)});
  const changed = side(table.changed);
  changed.rows = changed.rows.map((row) => ({before: {...row.key, ...row.before},
                                             after: {...row.key, ...row.after}}));
  const keys = Array.isArray(table.keys) ? table.keys.filter((key) => typeof key === 'string') : [];
  const difference = {keys, added: side(table.added),
                      removed: side(table.removed), changed, reordered: table.reordered === true};
  const columns = new Set(difference.keys);
  for (const row of [...difference.added.rows, ...difference.removed.rows,
                     ...changed.rows.flatMap((pair) => [pair.before, pair.after])]) {
    Object.keys(row).forEach((column) => columns.add(column));
  }
  difference.columns = [...columns];
  return difference;
}

/** What differs between what was expected and what came; null when it is said in words. */
function changeOf(alert, detail) {
  const {rule, value} = alert;
  if (rule.type === TABLE_MD5) {
    if (alert.explanation && alert.explanation.table) {
      return renderDifference(explainedDifference(alert.explanation.table));
    }
    const before = detail.tables.get(readParameter(rule.parameterText).hashCmp);
    const after = detail.tables.get(value);
    if (before && after) return renderDifference(tableDifference(before, after));
    return make('p', {class: 'muted'}, 'The content of ' +
      (before ? 'the changed' : after ? 'the expected' : 'both') +
      (before || after ? ' table' : ' tables') +
      ' is no longer in the history; results made with --explain name the rows.');
  }
  const expected = readParameter(rule.parameterText).ruleParam;
  const isText = rule.type === STR_EQUAL && typeof expected === 'string' && value !== null;
  return isText && (expected.includes('\n') || value.includes('\n')) ? renderLines(expected, value)
                                                                      : null;
}

function alertRows(episode) {
  const skipped = episode.count - episode.alerts.length;
  const rows = episode.alerts.map((alert) => make('tr', {},
    make('td', {}, timeText(alert.time)),
    make('td', {}, valueNode(alert.value, alert.rule.type === TABLE_MD5)),
    make('td', {}, shown(alert.rule.words, 200),
         alert.blocked ? make('span', {class: 'muted'}, ' · in a block period') : null)));
  if (skipped > 0) {
    rows.splice(Math.ceil(rows.length / 2), 0, make('tr', {}, make('td', {colspan: 3, class: 'muted'},
      `${counted(skipped, 'alert', 'alerts')} in between not kept in this page`)));
  }
  return make('div', {class: 'scroll'}, make('table', {class: 'plain'},
    make('thead', {}, make('tr', {}, ['Time', 'Value', 'Expected'].map((name) =>
      make('th', {scope: 'col'}, name)))),
    make('tbody', {}, rows)));
}

/** A fold whose content is made when it opens first. */
function fold(summary, content, isOpen) {
  const node = make('details', {}, make('summary', {}, summary));
  let isMade = false;
  const fill = () => {
    if (isMade || !node.open) return;
    isMade = true;
    node.append(...[content()].flat().filter((part) => part !== null));
  };
  node.addEventListener('toggle', fill);
  node.open = isOpen;
  fill();
  return node;
}

function episodeNode(episode, detail, results, show, isFirst) {
  const mark = episode.end === END_OPEN ? STATES[OPEN].mark : STATES[CLEARED].mark;
  const until = episode.end === END_CLEARED ? episode.cleared : episode.last;
  const summary = [
    make('span', {class: episode.end === END_OPEN ? 'mark is-open' : 'mark is-cleared',
                  'aria-hidden': true}, mark),
    make('span', {class: 'when'}, timeText(episode.opened), episode.last > episode.opened
      ? ' – ' + timeBeside(episode.last, episode.opened) : ''),
    make('span', {}, counted(episode.count, 'alert', 'alerts')),
    make('span', {class: 'muted'}, endWords(episode, results) +
      (until > episode.opened ? ` (${durationText(until - episode.opened)})` : ''))];
  return fold(summary, () => {
    const opening = episode.alerts[0];
    const newest = episode.alerts[episode.alerts.length - 1];
    const margin = Math.max(30, (until - episode.opened) * 0.6);
    const hasMoved = newest !== opening && newest.explanation &&
                     newest.value !== opening.value;
    return [
      reasonNode(opening), changeOf(opening, detail),
      hasMoved ? make('div', {}, make('p', {class: 'muted'}, 'At its last alert:'),
                      reasonNode(newest), changeOf(newest, detail)) : null,
      make('p', {}, make('button', {type: 'button', class: 'quiet', onclick: () =>
        show({from: episode.opened - margin, to: until + margin})}, 'Show in the drawing')),
      episode.count > 1 ? fold(['All ', counted(episode.count, 'alert', 'alerts'), ' of it'],
                               () => alertRows(episode), false) : null,
    ];
  }, isFirst);
}

function episodesNode(detail, results, show) {
  if (detail.episodes.length === 0) return null;
  const newestFirst = detail.episodes.slice().reverse();
  const list = make('div', {class: 'episodes'});
  const add = (from) => {
    newestFirst.slice(from, from + 10).forEach((episode, i) =>
      list.append(episodeNode(episode, detail, results, show, from + i === 0)));
    const left = newestFirst.length - from - 10;
    if (left <= 0) return;
    const button = make('button', {type: 'button', class: 'quiet', onclick: () => {
      button.remove();
      add(from + 10);
    }}, `Show ${countText(Math.min(10, left))} older`);
    list.append(button);
  };
  add(0);
  return make('section', {}, make('h3', {}, 'Alerts'), list, detail.dropped > 0
    ? make('p', {class: 'muted'}, `${counted(detail.dropped, 'older episode', 'older episodes')} not kept in this page`)
    : null);
}

// --- what was before ---------------------------------------------------------------------

function rulesNode(detail) {
  if (detail.rules.length === 0) return null;
  return fold(['Rules learned ', make('span', {class: 'muted'}, countText(detail.rules.length))], () =>
    make('div', {class: 'scroll'}, make('table', {class: 'plain'},
      make('thead', {}, make('tr', {}, ['Time', 'Rule', 'Expected'].map((name) =>
        make('th', {scope: 'col'}, name)))),
      make('tbody', {}, detail.rules.slice().reverse().map((rule) => make('tr', {},
        make('td', {}, timeText(rule.time)),
        make('td', {}, make('code', {}, KIND_NAMES[rule.type] || '–')),
        make('td', {}, shown(rule.words, 300))))))), false);
}

/** Each change of content in a table's history. */
function tableChanges(detail) {
  if (detail.kind !== 5) return null;
  const changes = [];
  detail.points.forEach((point, i) => {
    const before = detail.points[i - 1];
    if (before && before.value !== point.value) changes.push({before, after: point});
  });
  const newest = detail.points[detail.points.length - 1];
  const table = newest ? detail.tables.get(newest.value) : undefined;
  const nodes = changes.reverse().slice(0, 20).map(({before, after}) =>
    fold([make('span', {class: 'when'}, timeText(after.time)), ' ',
          make('code', {}, plain(before.value, 8)), ' → ', make('code', {}, plain(after.value, 8))],
      () => {
        const [old, now] = [detail.tables.get(before.value), detail.tables.get(after.value)];
        return old && now ? renderDifference(tableDifference(old, now))
          : make('p', {class: 'muted'}, 'The content is too large for this page.');
      }, false));
  return make('section', {}, make('h3', {}, 'Content'),
    changes.length === 0
      ? make('p', {class: 'muted'}, 'The table has not changed within its history.')
      : nodes,
    table ? fold(['Newest content ', make('span', {class: 'muted'},
                  counted(table.rows.length, 'row', 'rows'))], () => contentNode(table), false) : null);
}

function contentNode(table) {
  const rows = rowObjects(table);
  return make('div', {class: 'scroll'}, make('table', {class: 'difference'},
    make('thead', {}, make('tr', {}, table.columns.map((column) =>
      make('th', {scope: 'col', class: (table.keys || []).includes(column) ? 'key' : null},
           shown(column, 60))))),
    make('tbody', {}, rows.slice(0, 200).map((row) => make('tr', {}, table.columns.map((column) =>
      make('td', {}, shown(cellText(row[column]), 200))))))),
    rows.length > 200 ? make('p', {class: 'muted'}, `and ${counted(rows.length - 200, 'row', 'rows')} more`)
                      : null);
}

/** The whole content for a variable that is unfolded. */
function detailNode(variable, report) {
  const detail = report.detail(variable);
  const results = report.results || {};
  const drawing = drawingOf(variable, detail, results);
  return make('div', {class: 'detail'}, facts(variable, detail), drawing.node,
              episodesNode(detail, results, drawing.show), tableChanges(detail), rulesNode(detail));
}
