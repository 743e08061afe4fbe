// The head of the page: numbers, alerts over time, rules and devices.

function tile(value, words, hint, name) {
  return make('div', {class: 'tile ' + (name || '')}, make('strong', {}, value),
              make('span', {}, words), hint ? make('small', {class: 'muted'}, hint) : null);
}

function renderTiles(report, filter) {
  const {totals} = report;
  const open = totals.states[OPEN];
  const {variables: total, withRule, prescribed, episodes} = totals;
  const nodes = [
    tile(countText(totals.devices), totals.devices === 1 ? 'device' : 'devices', report.domains.length > 1
      ? `in ${countText(report.domains.length)} domains` : null),
    tile(countText(total), total === 1 ? 'variable' : 'variables',
         `${countText(withRule)} with a rule` + (prescribed ? `, ${countText(prescribed)} prescribed` : '')),
  ];
  if (report.results) {
    nodes.push(
      tile(countText(episodes), episodes === 1 ? 'episode' : 'episodes',
           `${counted(report.results.alerts, 'alert', 'alerts')} in ${counted(report.results.runs, 'run', 'runs')}` +
           (report.results.quiet ? '' : ' with findings')),
      make('button', {type: 'button', class: open > 0 ? 'tile is-alert' : 'tile',
                      disabled: open === 0, onclick: () => filter({state: String(OPEN)})},
        make('strong', {}, make('span', {'aria-hidden': true}, open > 0 ? '▲ ' : ''), countText(open)),
        make('span', {}, open === 1 ? 'variable still alerts' : 'variables still alert'),
        make('small', {class: 'muted'}, 'at the end of the results')));
  }
  document.getElementById('tiles').replaceChildren(...nodes);
}

/** Spans of the results joined to at most `bars` equal ones. */
function histogramBars(results, bars) {
  const from = results.from;
  const to = Math.max(results.to + 1, from + 1);
  const count = Math.max(1, Math.min(bars, Math.ceil((to - from) / results.width)));
  const width = Math.max(results.width, Math.ceil((to - from) / count / results.width) * results.width);
  const start = Math.floor(from / width) * width;
  const list = [];
  for (let time = start; time < to; time += width) list.push({from: time, to: time + width, count: 0});
  for (const [time, alerts] of results.spans) {
    const bar = list[Math.floor((time - start) / width)];
    if (bar) bar.count += alerts;
  }
  return list;
}

function renderOverTime(report, filter) {
  const box = document.getElementById('over-time');
  const {results} = report;
  const title = make('h3', {}, 'Alerts over time');
  if (!results || results.alerts === 0) {
    const words = !results ? ['No results were given, so there are no alerts to show. Add them with ',
                              make('code', {}, '--results FILE'), '.']
      : [`No alert in ${counted(results.runs, 'run', 'runs')}${results.quiet ? '' : ' with findings'}.`];
    box.replaceChildren(title, make('p', {class: 'empty'}, words));
    return;
  }
  const canvas = make('div');
  const render = () => {
    const width = Math.max(260, Math.round(canvas.clientWidth || 600));
    const height = 168;
    const edge = {left: 40, right: 8, top: 10, bottom: 22};
    const bars = histogramBars(results, Math.floor((width - edge.left - edge.right) / 9));
    const most = Math.max(...bars.map((bar) => bar.count));
    const x = scale(bars[0].from, bars[bars.length - 1].to, edge.left, width - edge.right);
    const y = scale(0, most, height - edge.bottom, edge.top);
    const svg = draw('svg', {viewBox: `0 0 ${width} ${height}`, width: '100%', height,
                             role: 'group', 'aria-label': 'Alerts over time'});
    const step = Math.max(1, niceStep(most, 4));
    for (let value = 0; value <= most; value += step) {
      svg.append(draw('g', {class: 'axis'},
        draw('line', {class: 'grid', x1: edge.left, x2: width - edge.right, y1: y(value), y2: y(value)}),
        draw('text', {x: edge.left - 6, y: y(value) + 4, 'text-anchor': 'end'}, countText(value))));
    }
    svg.append(timeAxis(x, bars[0].from, bars[bars.length - 1].to, width, height - edge.bottom));
    for (const bar of bars.filter((other) => other.count > 0)) {
      const words = `${counted(bar.count, 'alert', 'alerts')}, ${timeText(bar.from)} – ` +
                    timeBeside(bar.to, bar.from);
      svg.append(draw('g', {class: 'bar', ...pressable(() => filter({span: bar}), words + '. Show them'),
                            tabindex: svg.querySelector('.bar') ? -1 : 0},
        draw('rect', {class: 'hit', x: x(bar.from), y: edge.top, width: x(bar.to) - x(bar.from),
                      height: height - edge.bottom - edge.top}),
        draw('rect', {x: x(bar.from) + 1, y: y(bar.count), width: Math.max(1, x(bar.to) - x(bar.from) - 1.5),
                      height: Math.max(1, y(0) - y(bar.count))}),
        draw('title', {}, words)));
    }
    svg.addEventListener('keydown', (event) => {
      const other = {ArrowLeft: 'previousElementSibling', ArrowRight: 'nextElementSibling'}[event.key];
      const bar = other && event.target[other];
      if (!bar || !bar.classList.contains('bar')) return;
      event.preventDefault();
      event.target.setAttribute('tabindex', -1);
      bar.setAttribute('tabindex', 0);
      bar.focus();
    });
    canvas.replaceChildren(svg);
  };
  box.replaceChildren(title, canvas,
    make('p', {class: 'muted small'}, `${timeText(results.from)} – ${timeBeside(results.to, results.from)}. `,
         'A bar shows its variables.'));
  let lastWidth = 0;
  new ResizeObserver(() => {
    if (Math.abs(canvas.clientWidth - lastWidth) < 2) return;
    lastWidth = canvas.clientWidth;
    render();
  }).observe(canvas);
}

/** A list of names with bars, each of which sets a filter. */
function barList(title, entries, unit, note) {
  const most = Math.max(1, ...entries.map((entry) => entry.count));
  return [make('h3', {}, title), make('ul', {class: 'bars'}, entries.map((entry) => {
    const bar = make('span', {class: 'length' + (entry.isAlert ? ' is-alert' : ''), 'aria-hidden': true});
    bar.style.width = (100 * entry.count / most).toFixed(1) + '%';
    return make('li', {}, make('button', {type: 'button', onclick: entry.choose},
      make('span', {class: 'name'}, entry.name), make('span', {class: 'number'}, countText(entry.count),
           make('span', {class: 'hidden'}, ' ' + unit)), bar));
  })), note ? make('p', {class: 'muted small'}, note) : null].filter((node) => node !== null);
}

function renderKinds(report, filter) {
  const counts = new Map();
  for (const variable of report.variables) {
    counts.set(variable.type, (counts.get(variable.type) || 0) + 1);
  }
  const entries = [...counts].sort((a, b) => b[1] - a[1]).map(([type, count]) => ({
    count, choose: () => filter({kind: String(type)}),
    name: type < 0 ? 'no rule yet' : [KIND_WORDS[type], ' ',
                                      make('code', {class: 'muted'}, KIND_NAMES[type])],
  }));
  const box = document.getElementById('kinds');
  const title = report.leftOut > 0 ? 'Variables shown, by rule' : 'Variables by rule';
  box.replaceChildren(...(entries.length > 0 ? barList(title, entries, 'variables')
    : [make('h3', {}, 'Variables by rule'), make('p', {class: 'empty'}, 'Nothing is stored yet.')]));
}

function renderDevices(report, filter) {
  const devices = new Map();
  for (const variable of report.variables) {
    const entry = devices.get(variable.device) || {device: variable.device, alerts: 0, variables: 0};
    entry.alerts += variable.alerts;
    ++entry.variables;
    devices.set(variable.device, entry);
  }
  const byAlerts = report.results !== null && report.results.alerts > 0;
  const measure = (entry) => (byAlerts ? entry.alerts : entry.variables);
  const all = [...devices.values()].filter((entry) => measure(entry) > 0)
    .sort((a, b) => measure(b) - measure(a) || (a.device < b.device ? -1 : 1));
  const entries = all.slice(0, 8).map((entry) => ({
    count: measure(entry), isAlert: byAlerts, name: shown(entry.device, 60),
    choose: () => filter({device: entry.device}),
  }));
  const left = devices.size - entries.length;
  const title = (byAlerts ? 'Alerts' : 'Variables') + (report.leftOut > 0 ? ' shown, by device' : ' by device');
  document.getElementById('devices').replaceChildren(...barList(
    title, entries, byAlerts ? 'alerts' : 'variables',
    left > 0 ? `and ${counted(left, 'more device', 'more devices')}` : null));
}

/** What a reader must know of how far the page reaches. */
function renderNotes(report) {
  const notes = [];
  const {results} = report;
  if (report.leftOut > 0) {
    const left = STATES.map(({words}, state) => ({words, number: report.totals.states[state] -
        report.variables.filter((variable) => variable.state === state).length}))
      .filter(({number}) => number > 0).map(({words, number}) => `${countText(number)} ${words}`);
    notes.push(`The page shows the ${countText(report.variables.length)} most important of ` +
               `${countText(report.totals.variables)} variables: those that alert, the latest first, then ` +
               `those that have alerted, then the others. Left out: ${left.join(', ')}. ` +
               '`keelstone report --max-variables N` shows more.');
  }
  if (results && results.runs === 0) {
    notes.push('The results hold no run of the domains shown here.');
  } else if (results && !results.exact && results.alerts > 0) {
    notes.push('These results leave out the runs in which nothing was found. Where such a run has ' +
               'ended an alert, only the next finding tells, so an end stands as “not later than”. ' +
               'Results made with `evaluate --explain` or `--all` tell it exactly.');
  }
  if (results && results.skipped > 0) {
    notes.push(`${counted(results.skipped, 'line', 'lines')} of the results could not be read and ` +
               `${results.skipped === 1 ? 'is' : 'are'} left out.`);
  }
  document.getElementById('notes').replaceChildren(
    ...notes.map((words) => make('p', {class: 'notice', role: 'note'}, words)));
}

function renderOverview(report, filter) {
  const about = ['Made ', timeText(report.created), ' · all times in UTC · '];
  about.push(report.domains.length === 1 ? 'domain ' : 'domains ');
  report.domains.slice(0, 5).forEach((domain, i) =>
    about.push(i > 0 ? ', ' : '', domain === '' ? '(empty id)' : shown(domain, 60)));
  if (report.domains.length > 5) about.push(` and ${countText(report.domains.length - 5)} more`);
  document.getElementById('about').replaceChildren(...about);
  renderNotes(report);
  renderTiles(report, filter);
  renderOverTime(report, filter);
  renderKinds(report, filter);
  renderDevices(report, filter);
}
