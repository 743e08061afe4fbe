// Drawings: numbers over time, lanes of states, and the small ones in the table.

const LANES = 10;
const HEIGHT = 230;
const EDGE = {left: 64, right: 14, top: 12, bottom: 24};

function niceStep(span, count) {
  const rough = span / Math.max(1, count);
  const power = Math.pow(10, Math.floor(Math.log10(rough)));
  return power * [1, 2, 5, 10].find((factor) => factor * power >= rough);
}

const TIME_STEPS = [1, 2, 5, 10, 15, 30, 60, 120, 300, 600, 900, 1800, 3600, 7200, 10800, 21600,
                    43200, 86400, 172800, 604800, 1209600, 2592000, 7776000, 31536000];

function timeTicks(from, to, count) {
  const rough = (to - from) / Math.max(1, count);
  const step = TIME_STEPS.find((size) => size >= rough) || Math.ceil(rough / 31536000) * 31536000;
  const ticks = [];
  for (let time = Math.ceil(from / step) * step; time <= to; time += step) ticks.push(time);
  return {ticks, step};
}

function timeTickText(time, step) {
  const text = timeText(time);
  if (step >= 86400) return text.slice(0, 10);
  if (time % 86400 === 0) return text.slice(5, 10);
  return step < 60 ? text.slice(11, 19) : text.slice(11, 16);
}

/** Maps [from, to] onto pixels. */
function scale(from, to, start, end) {
  const factor = to > from ? (end - start) / (to - from) : 0;
  return (value) => (to > from ? start + (value - from) * factor : (start + end) / 2);
}

/** The time axis at the foot of a drawing. */
function timeAxis(x, from, to, width, bottom) {
  const {ticks, step} = timeTicks(from, to, (width - EDGE.left - EDGE.right) / 96);
  return draw('g', {class: 'axis'}, ticks.map((time) => [
    draw('line', {x1: x(time), x2: x(time), y1: bottom, y2: bottom + 4}),
    draw('text', {x: x(time), y: bottom + 16, 'text-anchor': x(time) > width - 30 ? 'end' : 'middle'},
         timeTickText(time, step)),
  ]));
}

const triangle = (x, y, size) =>
  `M${x - size},${y + size * 0.8}L${x},${y - size}L${x + size},${y + size * 0.8}Z`;
const diamond = (x, y, size) => `M${x - size},${y}L${x},${y - size}L${x + size},${y}L${x},${y + size}Z`;

/** All that can be pointed at: history, golden values, alerts, in order of time. */
function marksOf(detail) {
  const marks = [
    ...detail.drawn.map((point) => ({...point, what: 'history'})),
    ...detail.golden.map((point) => ({...point, what: 'golden'})),
    ...detail.episodes.flatMap((episode) => episode.alerts)
      .filter((alert) => alert.value !== null)
      .map((alert) => ({time: alert.time, value: alert.value, what: 'alert', alert})),
  ];
  const order = {history: 0, golden: 1, alert: 2};
  return marks.sort((a, b) => a.time - b.time || order[a.what] - order[b.what]);
}

function extent(values) {
  return values.reduce(([low, high], value) => [Math.min(low, value), Math.max(high, value)],
                       [Infinity, -Infinity]);
}

/** The whole time that a variable's drawing covers. */
function wholeTime(marks, results) {
  let [from, to] = extent(marks.map((mark) => mark.time));
  if (marks.some((mark) => mark.what === 'alert') && results.to !== undefined) {
    to = Math.max(to, results.to);
  }
  const margin = Math.max(1, (to - from) * 0.02);
  return {from: from - margin, to: to + margin};
}

/** The golden value that holds, and smaller those before it. */
function goldenMark(mark, x, y) {
  return draw('path', {class: mark.isNewest ? 'golden' : 'golden past',
                       d: diamond(x, y, mark.isNewest ? 7 : 4.5)});
}

const WHAT_WORDS = {history: 'history', golden: 'golden value', alert: 'alert'};

function markText(mark) {
  const value = typeof mark.value === 'number' ? numberText(mark.value) : plain(mark.value, 80);
  const expected = mark.alert ? `, expected ${plain(mark.alert.rule.words, 120)}` : '';
  return `${timeText(mark.time)} · ${WHAT_WORDS[mark.what]}: ${value}${expected}`;
}

/**
 * Frame of a drawing that a pointer and the arrow keys walk through. `place` gives the
 * pixels of a mark.
 */
function walkable(svg, marks, place, label) {
  const cursor = draw('line', {class: 'cursor', y1: EDGE.top, y2: 0, visibility: 'hidden'});
  const ring = draw('circle', {class: 'cursor', r: 7, visibility: 'hidden'});
  const readout = make('p', {class: 'readout muted', 'aria-live': 'polite'},
                       'Point at the drawing, or focus it and use ← →');
  svg.append(cursor, ring);
  const places = marks.map(place);
  let chosen = -1;
  const choose = (index) => {
    if (index < 0 || index >= marks.length || index === chosen) return;
    chosen = index;
    const {x, y} = places[index];
    for (const name of ['x1', 'x2']) cursor.setAttribute(name, x);
    cursor.setAttribute('y2', svg.dataset.bottom);
    ring.setAttribute('cx', x);
    ring.setAttribute('cy', y);
    for (const node of [cursor, ring]) node.setAttribute('visibility', 'visible');
    readout.textContent = markText(marks[index]);
    readout.classList.toggle('is-alert', marks[index].what === 'alert');
  };
  svg.addEventListener('pointermove', (event) => {
    const box = svg.getBoundingClientRect();
    const x = (event.clientX - box.left) * (svg.viewBox.baseVal.width / box.width);
    const y = (event.clientY - box.top) * (svg.viewBox.baseVal.height / box.height);
    let best = -1;
    let nearest = Infinity;
    places.forEach((point, i) => {
      const distance = Math.abs(point.x - x) * 4 + Math.abs(point.y - y);
      if (distance < nearest) [best, nearest] = [i, distance];
    });
    choose(best);
  });
  svg.addEventListener('keydown', (event) => {
    const next = {ArrowLeft: chosen - 1, ArrowRight: chosen + 1, Home: 0,
                  End: marks.length - 1}[event.key];
    if (next === undefined) return;
    event.preventDefault();
    event.stopPropagation();
    choose(Math.max(0, Math.min(marks.length - 1, next)));
  });
  put(svg, {tabindex: 0, role: 'group', 'aria-label': label}, []);
  return [readout, svg];
}

function frame(width, height) {
  const svg = draw('svg', {viewBox: `0 0 ${width} ${height}`, width: '100%', height,
                           class: 'drawing'});
  svg.dataset.bottom = height - EDGE.bottom;
  return svg;
}

/** Spans of time in which the variable alerted, behind everything else. */
function episodeBands(detail, x, time, bottom) {
  return detail.episodes.filter((episode) => episode.last >= time.from && episode.opened <= time.to)
    .map((episode) => {
      const start = x(Math.max(episode.opened, time.from));
      const until = episode.end === END_OPEN ? time.to : Math.min(episode.last, time.to);
      return draw('rect', {class: 'episode', x: start - 2, y: EDGE.top,
                           width: Math.max(4, x(until) - start + 4), height: bottom - EDGE.top});
    });
}

// --- numbers ---------------------------------------------------------------------------

/** What a rule draws: bands [low, high] (null: without end) and lines. */
function shapesOf(rule) {
  const {parameter, type} = rule;
  const value = parameter.ruleParam;
  const isNumber = typeof value === 'number';
  switch (type) {
    case INT_RANGE:
      return typeof parameter.minValue === 'number' && typeof parameter.maxValue === 'number'
        ? {bands: [[parameter.minValue, parameter.maxValue]], lines: []} : null;
    case INT_EQUAL:
    case INT_CONSTANT:
      return isNumber ? {bands: [], lines: [value]} : null;
    case INT_LEQ:
      return isNumber ? {bands: [[null, value]], lines: [value]} : null;
    case INT_GEQ:
    case INT_INCREASE:
      return isNumber ? {bands: [[value, null]], lines: [value]} : null;
    case INT_ENUM:
      return Array.isArray(value) ? {bands: [], lines: value} : null;
    case INT_NO_EQUAL:
      return Array.isArray(value) ? {bands: [], lines: [], forbidden: value} : null;
    default:
      return null;
  }
}

/** The range of values shown: the data, and the rules unless they would flatten it. */
function valueRange(marks, shapes) {
  const data = extent(marks.map((mark) => mark.number));
  const limits = shapes.flatMap((shape) =>
    [...shape.bands.flat(), ...shape.lines, ...(shape.forbidden || [])])
    .filter((value) => typeof value === 'number');
  let [low, high] = extent([...data.filter(Number.isFinite), ...limits]);
  const span = data[1] - data[0];
  if (span > 0 && high - low > span * 25) [low, high] = data;
  if (!Number.isFinite(low)) [low, high] = [0, 1];
  const margin = high > low ? (high - low) * 0.08 : Math.max(1, Math.abs(high) * 0.1);
  return {low: low - margin, high: high + margin};
}

function ruleShapes(rule, shape, x, y, time, range) {
  const start = x(Math.max(rule.from, time.from));
  const width = x(Math.min(rule.to, time.to)) - start;
  if (width <= 0) return [];
  const clamp = (value) => y(Math.max(range.low, Math.min(range.high, value)));
  const bands = shape.bands.map(([low, high]) => {
    const top = clamp(high === null ? range.high : high);
    const bottom = clamp(low === null ? range.low : low);
    return draw('rect', {class: 'band', x: start, y: top, width, height: Math.max(1, bottom - top)});
  });
  const line = (value, name) =>
    draw('line', {class: name, x1: start, x2: start + width, y1: y(value), y2: y(value)});
  const seen = (value) => typeof value === 'number' && value >= range.low && value <= range.high;
  const edges = shape.bands.flat().filter((value) => value !== null);
  return [...bands,
          ...[...edges, ...shape.lines].filter(seen).map((value) => line(value, 'limit')),
          ...(shape.forbidden || []).filter(seen).map((value) => line(value, 'forbidden'))];
}

function valueAxis(y, range, width, height) {
  const step = niceStep(range.high - range.low, (height - EDGE.top - EDGE.bottom) / 36);
  const ticks = [];
  for (let value = Math.ceil(range.low / step) * step; value <= range.high; value += step) {
    ticks.push(Math.abs(value) < step / 1e6 ? 0 : value);
    if (ticks.length > 40) break;
  }
  const text = (value) => {
    const size = Math.abs(value);
    if (size >= 1e15 || (size > 0 && size < 1e-4)) return value.toExponential(2);
    for (const [unit, name] of [[1e12, ' T'], [1e9, ' G'], [1e6, ' M']]) {
      if (size >= unit * 10 || (size >= unit && step >= unit / 100)) {
        return Number((value / unit).toPrecision(6)) + name;
      }
    }
    return countText(Number(value.toPrecision(8)));
  };
  return draw('g', {class: 'axis'}, ticks.map((value) => [
    draw('line', {class: 'grid', x1: EDGE.left, x2: width - EDGE.right, y1: y(value), y2: y(value)}),
    draw('text', {x: EDGE.left - 8, y: y(value) + 4, 'text-anchor': 'end'}, text(value)),
  ]));
}

function drawNumbers(detail, rules, time, width, label) {
  const bottom = HEIGHT - EDGE.bottom;
  const all = marksOf(detail).map((mark) => ({...mark, number: Number(mark.value)}))
    .filter((mark) => Number.isFinite(mark.number));
  const marks = all.filter((mark) => mark.time >= time.from && mark.time <= time.to);
  const shaped = rules.filter((rule) => rule.to >= time.from && rule.from <= time.to)
    .map((rule) => ({rule, shape: shapesOf(rule)})).filter(({shape}) => shape !== null);
  const range = valueRange(marks, shaped.map(({shape}) => shape));
  const x = scale(time.from, time.to, EDGE.left, width - EDGE.right);
  const y = scale(range.low, range.high, bottom, EDGE.top);
  const svg = frame(width, HEIGHT);
  const history = marks.filter((mark) => mark.what === 'history');
  svg.append(
    valueAxis(y, range, width, HEIGHT), timeAxis(x, time.from, time.to, width, bottom),
    ...episodeBands(detail, x, time, bottom),
    draw('g', {class: 'rules'},
         shaped.map(({rule, shape}) => ruleShapes(rule, shape, x, y, time, range))),
    draw('polyline', {class: 'path',
                      points: history.map((mark) => `${x(mark.time)},${y(mark.number)}`).join(' ')}),
    ...marks.map((mark) => {
      const [left, top] = [x(mark.time), y(mark.number)];
      if (mark.what === 'alert') return draw('path', {class: 'alert', d: triangle(left, top, 5.5)});
      if (mark.what === 'golden') return goldenMark(mark, left, top);
      return draw('circle', {class: 'point', cx: left, cy: top, r: 3});
    }));
  return walkable(svg, marks, (mark) => ({x: x(mark.time), y: y(mark.number)}), label);
}

// --- states ----------------------------------------------------------------------------

const textOf = (value) => (typeof value === 'string' ? value : numberText(value));

/**
 * The values that a rule allows or forbids one by one; null when it is of another kind or
 * its parameter is not what it should be.
 */
function allowedValues(rule) {
  const {parameter, type} = rule;
  const one = [STR_EQUAL, INT_EQUAL, INT_CONSTANT].includes(type);
  const several = [STR_ENUM, INT_ENUM, STR_NO_EQUAL, INT_NO_EQUAL].includes(type);
  if (!one && !several && type !== TABLE_MD5) return null;
  const given = type === TABLE_MD5 ? [parameter.hashCmp]
    : one ? [parameter.ruleParam] : parameter.ruleParam;
  const values = (Array.isArray(given) ? given : [])
    .filter((value) => typeof value === 'string' || typeof value === 'number').map(textOf);
  return values.length > 0
    ? {values, good: type !== STR_NO_EQUAL && type !== INT_NO_EQUAL} : null;
}

/** The distinct values that get a lane: those of the newest rule first, then by time. */
function lanesOf(marks, rules) {
  const values = new Set();
  for (const rule of rules.slice(-1)) {
    const allowed = allowedValues(rule);
    if (allowed) allowed.values.slice(0, LANES).forEach((value) => values.add(value));
  }
  const used = new Set(marks.map((mark) => textOf(mark.value)));
  used.forEach((value) => values.add(value));
  const all = [...values];
  return {lanes: all.slice(0, LANES), isCut: all.length > LANES};
}

const letters = (index) => String.fromCharCode(65 + index);

function laneName(value, index, isTable) {
  return isTable ? `${letters(index)} · ${plain(value, 8)}` : plain(value.trim() || '(empty)', 22);
}

/** A value, of the history or of an alert, lasts until the next one that is known. */
function laneBlocks(marks, laneY, x) {
  const seen = marks.filter((mark) => mark.what !== 'golden');
  return seen.flatMap((mark, i) => {
    const end = i + 1 < seen.length ? seen[i + 1].time : mark.time;
    const y = laneY(mark);
    const block = draw('rect', {class: 'state', x: x(mark.time), y: y - 4, height: 8,
                                width: Math.max(0, x(end) - x(mark.time))});
    return mark.what === 'alert' ? [block]
      : [block, draw('rect', {class: 'point', x: x(mark.time) - 1.5, y: y - 7, width: 3, height: 14, rx: 1})];
  });
}

function laneRules(rules, lanes, place, x, time, rowHeight) {
  return rules.flatMap((rule) => {
    const allowed = allowedValues(rule);
    const start = x(Math.max(rule.from, time.from));
    const width = x(Math.min(rule.to, time.to)) - start;
    if (!allowed || width <= 0) return [];
    return allowed.values.filter((value) => lanes.includes(value)).map((value) =>
      draw('rect', {class: allowed.good ? 'band' : 'band forbidden', x: start, width,
                    y: place(value) - rowHeight / 2 + 2, height: rowHeight - 4}));
  });
}

function drawLanes(detail, rules, time, width, label) {
  const isTable = detail.kind === 5 || (detail.points.length === 0 &&
                                        rules.some((rule) => rule.type === TABLE_MD5));
  const edge = Math.min(190, Math.max(96, width * 0.24));
  const rowHeight = 28;
  const marks = marksOf(detail).filter((mark) => mark.time >= time.from && mark.time <= time.to);
  const {lanes, isCut} = lanesOf(marks, rules);
  const rows = isCut ? [...lanes, null] : lanes;
  const bottom = EDGE.top + rows.length * rowHeight;
  const svg = frame(width, bottom + EDGE.bottom);
  const x = scale(time.from, time.to, edge, width - EDGE.right);
  const place = (value) => {
    const row = lanes.indexOf(value);
    return EDGE.top + ((row < 0 ? rows.length - 1 : row) + 0.5) * rowHeight;
  };
  const markY = (mark) => place(textOf(mark.value));
  svg.append(
    ...rows.map((value, i) => draw('g', {class: 'axis'},
      draw('line', {class: 'grid', x1: edge, x2: width - EDGE.right,
                    y1: EDGE.top + (i + 0.5) * rowHeight, y2: EDGE.top + (i + 0.5) * rowHeight}),
      draw('text', {class: 'lane', x: edge - 10, y: EDGE.top + (i + 0.5) * rowHeight + 4,
                    'text-anchor': 'end'},
        value === null ? 'other values'
                       : cut(laneName(value, i, isTable), Math.floor((edge - 10) / 7)),
        draw('title', {}, value === null ? 'other values' : plain(value))))),
    timeAxis(x, time.from, time.to, width - edge + EDGE.left, bottom),
    ...episodeBands(detail, x, time, bottom),
    ...laneRules(rules, lanes, place, x, time, rowHeight),
    ...laneBlocks(marks, markY, x),
    ...marks.filter((mark) => mark.what !== 'history').map((mark) => (mark.what === 'alert'
      ? draw('path', {class: 'alert', d: triangle(x(mark.time), markY(mark), 5.5)})
      : goldenMark(mark, x(mark.time), markY(mark)))));
  return walkable(svg, marks, (mark) => ({x: x(mark.time), y: markY(mark)}), label);
}

/** Whether a variable is drawn as lanes of states instead of a line. */
function hasLanes(variable, detail) {
  if (detail.kind >= 4 || (variable.type >= 0 && variable.type <= STR_REGEX)) return true;
  if (variable.type === TABLE_MD5) return true;
  return variable.type === INT_ENUM || variable.type === INT_NO_EQUAL;
}

// --- in the table ----------------------------------------------------------------------

/** The newest values, small: a line for numbers, a strip of changes for states. */
function sparkline(variable, detail) {
  const width = 120;
  const height = 24;
  const svg = draw('svg', {viewBox: `0 0 ${width} ${height}`, width, height, class: 'spark',
                           'aria-hidden': true});
  const points = detail.points;
  if (points.length === 0) return svg;
  const x = scale(0, Math.max(1, points.length - 1), 4, width - 4);
  if (detail.kind >= 4) {
    const values = [...new Set(points.map((point) => point.value))];
    const newest = values.indexOf(points[points.length - 1].value);
    points.forEach((point, i) => {
      const level = values.indexOf(point.value);
      const y = values.length === 1 ? height / 2
                                    : height - 5 - (Math.min(level, 3) / 3) * (height - 10);
      svg.append(draw('rect', {class: level === newest ? 'state' : 'state other', x: x(i) - 2, y: y - 3,
                               width: Math.max(3, (width - 8) / points.length), height: 6}));
    });
    return svg;
  }
  const numbers = points.map((point) => Number(point.value));
  const [low, high] = extent(numbers);
  const y = scale(low, high, height - 5, 5);
  svg.append(draw('polyline', {class: 'path',
                               points: numbers.map((value, i) => `${x(i)},${y(value)}`).join(' ')}),
             draw('circle', {class: 'point', cx: x(points.length - 1),
                             cy: y(numbers[numbers.length - 1]), r: 2.5}));
  return svg;
}
