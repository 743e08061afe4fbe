// Numbers over time, with the bounds that were in force.

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
