// What all drawings share: scales, the time axis, marks, and the way through them by pointer
// and keys. Besides the small drawings of the table.

const HEIGHT = 230;
const EDGE = {left: 64, right: 14, top: 12, bottom: 24};

function niceStep(span, count) {
  const rough = span / Math.max(1, count);
  const power = Math.pow(10, Math.floor(Math.log10(rough)));
  return power * [1, 2, 5, 10].find((factor) => factor * power >= rough || factor === 10);
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
