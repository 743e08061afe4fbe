// States over time: a lane for each value, shaded where the rule allows it.

const LANES = 10;

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
