'use strict';

// Building blocks of the page. Whatever comes from a device becomes text nodes only, each
// in a <bdi> of its own, with characters that cannot be seen written out.

const SVG = 'http://www.w3.org/2000/svg';

function put(node, attributes, children) {
  for (const [name, value] of Object.entries(attributes || {})) {
    if (value === null || value === undefined || value === false) continue;
    if (name.startsWith('on')) node.addEventListener(name.slice(2), value);
    else node.setAttribute(name, value === true ? '' : value);
  }
  node.append(...children.flat(Infinity).filter((child) => child !== null && child !== undefined));
  return node;
}

/** An HTML element: make('p', {class: 'muted'}, 'text', another). */
function make(tag, attributes, ...children) {
  return put(document.createElement(tag), attributes, children);
}

/** The same in a drawing. */
function draw(tag, attributes, ...children) {
  return put(document.createElementNS(SVG, tag), attributes, children);
}

// Controls, marks that turn or join the writing, other line ends, what has no width, tags.
const UNSEEN =
  /[\u0000-\u001f\u007f-\u00a0\u00ad\u034f\u061c\u115f\u1160\u17b4\u17b5\u180e\u200b-\u200f\u2028-\u202f\u205f-\u206f\u3164\ufe00-\ufe0f\ufeff\uffa0\ufff9-\ufffb]|[\ud800-\udbff](?![\udc00-\udfff])|(?<![\ud800-\udbff])[\udc00-\udfff]|\udb40[\udc00-\udfff]/g;
const SHORT = {'\n': '\\n', '\t': '\\t', '\r': '\\r', '\b': '\\b', '\f': '\\f'};

function escapeOf(character) {
  if (SHORT[character]) return SHORT[character];
  const code = character.codePointAt(0);
  return code < 0x100 ? '\\x' + code.toString(16).padStart(2, '0')
                      : '\\u{' + code.toString(16) + '}';
}

function cut(text, limit) {
  if (text.length <= limit) return text;
  const end = /[\ud800-\udbff]/.test(text[limit - 1]) ? limit - 1 : limit;
  return text.slice(0, end) + '…';
}

/** Text from outside as a string for titles, labels and drawings. */
function plain(text, limit = 300) {
  return cut(String(text), limit).replace(UNSEEN, escapeOf);
}

/** Text from outside as an element. */
function shown(text, limit = 300) {
  const node = document.createElement('bdi');
  const source = cut(String(text), limit);
  let end = 0;
  for (const match of source.matchAll(UNSEEN)) {
    node.append(source.slice(end, match.index),
                make('span', {class: 'escape'}, escapeOf(match[0])));
    end = match.index + match[0].length;
  }
  node.append(source.slice(end));
  return node;
}

const two = (number) => String(number).padStart(2, '0');

/** Seconds since the epoch as "2026-11-21 06:22:05Z". */
function timeText(seconds) {
  const date = new Date(seconds * 1000);
  if (Number.isNaN(date.getTime())) return String(seconds);
  return date.toISOString().replace('T', ' ').replace('.000', '');
}

/** The time of day alone where the day is that of `other`. */
function timeBeside(seconds, other) {
  const text = timeText(seconds);
  return text.slice(0, 10) === timeText(other).slice(0, 10) ? text.slice(11) : text;
}

function durationText(seconds) {
  const units = [[86400, 'd'], [3600, 'h'], [60, 'min'], [1, 's']];
  const parts = [];
  let rest = Math.max(0, Math.round(seconds));
  for (const [size, name] of units) {
    const count = Math.floor(rest / size);
    rest -= count * size;
    if (count > 0 && parts.length < 2) parts.push(count + ' ' + name);
    else if (parts.length > 0) break;
  }
  return parts.length > 0 ? parts.join(' ') : '0 s';
}

/** A number with as many digits as single precision has, which a person can compare. */
function numberText(value) {
  if (typeof value === 'string') return value;
  if (Number.isInteger(value)) return String(value);
  return String(Number(value.toPrecision(7)));
}

/** Long decimals and digests of an expectation shortened; other texts stay as they are. */
function shortWords(words) {
  if (words.includes('"')) return words.replace(/^(.* digest )"([0-9a-f]{8})[0-9a-f]{24}"$/, '$1$2…');
  return words.replace(/-?\d+\.\d{6,}(?:e[+-]?\d+)?/g, (digits) => numberText(Number(digits)));
}

const countText = (number) => number.toLocaleString('en');
const counted = (number, one, many) => countText(number) + ' ' + (number === 1 ? one : many);

/** Attributes that make a drawing's element a button of the keyboard too. */
function pressable(action, label) {
  return {
    tabindex: 0, role: 'button', 'aria-label': label, onclick: action,
    onkeydown: (event) => {
      if (event.key !== 'Enter' && event.key !== ' ') return;
      event.preventDefault();
      action(event);
    },
  };
}
