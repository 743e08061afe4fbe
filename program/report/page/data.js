// What the program wrote into the page. The table's rows are read at once, the details of a
// variable when it is looked at.

const KIND_NAMES = ['strEqual', 'strNoEqual', 'strEnum', 'strRegex', 'intEqual', 'intNoEqual',
                    'intEnum', 'intRange', 'intConstant', 'intIncrease', 'intLEQ', 'intGEQ',
                    'tableMd5'];
const KIND_WORDS = ['one text', 'forbidden texts', 'a few texts', 'pattern', 'one number',
                    'forbidden numbers', 'a few numbers', 'range', 'constant', 'rising',
                    'upper bound', 'lower bound', 'table'];
const [STR_EQUAL, STR_NO_EQUAL, STR_ENUM, STR_REGEX, INT_EQUAL, INT_NO_EQUAL, INT_ENUM, INT_RANGE,
       INT_CONSTANT, INT_INCREASE, INT_LEQ, INT_GEQ, TABLE_MD5] = KIND_NAMES.keys();

// In order of their urgency; `mark` tells them apart without colour.
const STATES = [
  {id: 'open', mark: '▲', words: 'alerting', hint: 'alerts up to the end of the results'},
  {id: 'cleared', mark: '△', words: 'cleared', hint: 'has alerted, and fits again'},
  {id: 'fits', mark: '●', words: 'no alert', hint: 'has a rule and no alert'},
  {id: 'collecting', mark: '◌', words: 'collecting', hint: 'values are gathered, no rule yet'},
  {id: 'gone', mark: '–', words: 'not stored', hint: 'in the results, not in the databases'},
];
const [OPEN, CLEARED, FITS, COLLECTING, GONE] = STATES.keys();

const [LEARNED, PRESCRIBED, NO_RULE, NOT_STORED] = [0, 1, 2, 3];
const [END_OPEN, END_CLEARED, END_UNSEEN] = [0, 1, 2];

function stateOf(variable) {
  if (variable.open) return OPEN;
  if (variable.alerts > 0) return CLEARED;
  if (variable.origin === NOT_STORED) return GONE;
  return variable.origin === NO_RULE ? COLLECTING : FITS;
}

function readVariable(row, index) {
  const [domain, device, iface, source, param, name, type, origin, words, points, newest, alerts,
         spans, open, dropped] = row;
  const variable = {index, domain, device, iface, source, param, name, type, origin,
                    words: shortWords(words), points, newest, alerts, spans, open: open === 1,
                    episodes: spans.length / 2 + dropped};
  variable.state = stateOf(variable);
  variable.lastAlert = spans.length > 0 ? spans[spans.length - 1] : 0;
  variable.text = [domain, device, iface, source, param, name, KIND_NAMES[type] || '', words]
                    .join('\n').toLowerCase();
  return variable;
}

class Report {
  constructor() {
    const document_ = JSON.parse(document.getElementById('report').textContent);
    this.created = document_.created;
    this.domains = document_.domains;
    this.results = document_.results || null;
    this.totals = document_.totals;
    this.chunks = document_.chunks;
    this.variables = document_.variables.map(readVariable);
    this.details = new Map();
  }

  /** Variables that the page has no room for. */
  get leftOut() {
    return this.totals.variables - this.variables.length;
  }

  /** History, tables, rules, golden values and episodes of a variable. */
  detail(variable) {
    let low = 0;
    let high = this.chunks.length - 1;
    while (low < high) {
      const middle = Math.ceil((low + high) / 2);
      if (this.chunks[middle] <= variable.index) low = middle;
      else high = middle - 1;
    }
    const first = this.chunks[low];
    if (!this.details.has(first)) {
      const text = document.getElementById('details-' + first).textContent;
      this.details.set(first, JSON.parse(text).map(readDetail));
    }
    return this.details.get(first)[variable.index - first];
  }
}

function readPoints(raw) {
  let time = 0;
  return (raw.t || []).map((step, i) => {
    time += step;
    const value = raw.v ? raw.v[i] : raw.x[raw.i[i]];
    return {time, value};
  });
}

function readParameter(text) {
  try {
    const parameter = JSON.parse(text);
    return isRecord(parameter) ? parameter : {};
  } catch (error) {
    return {};
  }
}

const isRecord = (value) => value !== null && typeof value === 'object';

/** Whether a content has the shape that rows can be compared in. */
function isTable(table) {
  return isRecord(table) && Array.isArray(table.columns) && Array.isArray(table.rows) &&
         table.rows.every(isRecord);
}

/** A golden table as results write it: its content with the digest added. */
function goldenTable(text) {
  const value = readParameter(text);
  if (!isTable(value)) return null;
  return {digest: value.hashCmp,
          table: {columns: value.columns, rows: value.rows, keys: value.hashColumns}};
}

/**
 * The history that an alert was judged by, as its explanation tells: values that may have
 * left the stored history since. What was cut there is no value.
 */
function explainedPoints(episodes) {
  return episodes.flatMap((episode) => episode.alerts)
    .flatMap((alert) => (alert.explanation && alert.explanation.history || {}).last || [])
    .filter((point) => isRecord(point) && typeof point.time === 'number')
    .filter(({value}) => typeof value === 'number' ||
            (typeof value === 'string' && !value.endsWith('…')));
}

/** What is stored and what explanations add, each time once, in order. */
function allPoints(stored, explained) {
  const times = new Set(stored.map((point) => point.time));
  const added = explained.filter(({time}) => !times.has(time) && times.add(time))
    .map(({time, value}) => ({time, value}));
  return stored.concat(added).sort((a, b) => a.time - b.time);
}

function readDetail(raw) {
  const texts = raw.s || [];
  const points = readPoints(raw);
  const tables = new Map(Object.entries(raw.c || {}).filter(([, table]) => isTable(table)));
  const rule = (type, parameter, words) =>
    ({type, parameterText: texts[parameter], words: shortWords(texts[words])});
  const golden = (raw.g || []).map(([time, value]) => ({time, value: texts[value]}));
  const isNumeric = raw.k >= 1 && raw.k <= 3;
  for (const point of golden) {
    const number = Number(point.value);
    if (isNumeric && Number.isFinite(number) && Math.abs(number) <= Number.MAX_SAFE_INTEGER) {
      point.value = number;
      continue;
    }
    const read = point.value.startsWith('{') ? goldenTable(point.value) : null;
    if (!read) continue;
    point.value = read.digest;
    if (!tables.has(read.digest)) tables.set(read.digest, read.table);
  }
  const episodes = (raw.e || []).map(([opened, last, count, end, cleared, alerts]) => ({
    opened, last, count, end, cleared,
    alerts: alerts.map(([time, value, type, parameter, words, blocked, explanation]) => ({
      time, value: value === null ? null : texts[value], blocked: blocked === 1, explanation,
      rule: rule(type, parameter, words),
    })),
  }));
  if (golden.length > 0) golden[golden.length - 1].isNewest = true;
  return {
    kind: raw.k, damaged: raw.damaged === true, points, tables,
    drawn: allPoints(points, explainedPoints(episodes)), golden, episodes,
    dropped: raw.dropped || 0, parameterText: raw.p,
    refused: raw.f ? {count: raw.f[0], time: raw.f[1], reason: texts[raw.f[2]]} : null,
    rules: (raw.r || []).map(([time, type, parameter, words]) =>
      ({time, ...rule(type, parameter, words)})),
  };
}

/**
 * Which rule held when, as far as it is known: {from, to, type, parameter, words}. Results
 * say when a rule was learned, an alert says which one it broke; what is stored holds from
 * the last of these on, and all the time when there is none.
 */
function rulesInForce(variable, detail, results) {
  const known = detail.rules.map((rule) => ({from: rule.time, ...rule}));
  const first = known.length > 0 ? known[0].from : Infinity;
  const broken = detail.episodes.flatMap((episode) => episode.alerts)
                   .filter((alert) => alert.time < first && alert.rule.type >= 0);
  const before = [];
  for (const alert of broken) {
    const last = before[before.length - 1];
    if (last && last.parameterText === alert.rule.parameterText && last.type === alert.rule.type) {
      last.to = alert.time;
    } else {
      before.push({from: alert.time, to: alert.time, ...alert.rule});
    }
  }
  known.forEach((rule, i) => { rule.to = i + 1 < known.length ? known[i + 1].from : Infinity; });
  const all = before.concat(known);
  const last = all[all.length - 1];
  if (variable.origin === LEARNED || variable.origin === PRESCRIBED) {
    const stored = {type: variable.type, parameterText: detail.parameterText,
                    words: variable.words};
    const isSame = last && last.type === stored.type &&
                   last.parameterText === stored.parameterText;
    if (isSame) {
      last.to = Infinity;
      // Nothing else was learned while the results were made.
      if (known.length === 0 && before.length === 1) last.from = -Infinity;
    } else if (last) {
      const from = Math.max(last.from, Number.isFinite(last.to) ? last.to : results.to);
      last.to = from;
      all.push({from, to: Infinity, ...stored});
    } else {
      all.push({from: -Infinity, to: Infinity, ...stored});
    }
  }
  return all.map((rule) => ({...rule, parameter: readParameter(rule.parameterText)}));
}
