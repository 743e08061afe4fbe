// The table of variables: filters, order, rows that come as they are needed, and the keys.

const ROWS_AT_ONCE = 60;
const DEVICES_LISTED = 500;

const byText = (a, b) => (a < b ? -1 : a > b ? 1 : 0);

function byKey(a, b) {
  return byText(a.domain, b.domain) || byText(a.device, b.device) || byText(a.source, b.source) ||
         byText(a.param, b.param) || byText(a.name, b.name) || byText(a.iface, b.iface);
}

// What a column sorts by, in its natural direction.
const COLUMNS = [
  {id: 'state', name: 'State', compare: (a, b) => a.state - b.state || b.lastAlert - a.lastAlert},
  {id: 'name', name: 'Variable', compare: (a, b) => byText(a.name, b.name) || byText(a.iface, b.iface)},
  {id: 'device', name: 'Device', compare: byKey},
  {id: 'source', name: 'Source', compare: (a, b) => byText(a.source, b.source) || byText(a.param, b.param)},
  {id: 'rule', name: 'Expected', compare: (a, b) => a.type - b.type || byText(a.words, b.words)},
  {id: 'history', name: 'History', compare: (a, b) => b.points - a.points},
  {id: 'alerts', name: 'Alerts', compare: (a, b) => b.alerts - a.alerts},
  {id: 'last', name: 'Last alert', compare: (a, b) => b.lastAlert - a.lastAlert},
];

const NO_FILTER = {words: '', state: '', kind: '', device: null, span: null};

class VariableTable {
  constructor(report) {
    this.report = report;
    this.filter = {...NO_FILTER};
    this.column = COLUMNS[0];
    this.isReversed = false;
    this.shown = [];
    this.rendered = 0;
    this.rows = document.getElementById('rows');
    this.more = document.getElementById('more');
    this.prepareFilters();
    this.prepareHead();
    this.prepareKeys();
    new IntersectionObserver((entries) => {
      if (entries.some((entry) => entry.isIntersecting)) this.renderMore();
    }, {rootMargin: '600px'}).observe(this.more);
    window.addEventListener('beforeprint', () => this.renderMore(500));
    this.update();
  }

  // --- filters ---------------------------------------------------------------------------

  prepareFilters() {
    const {variables} = this.report;
    this.search = document.getElementById('search');
    this.fields = {state: document.getElementById('state'), kind: document.getElementById('kind'),
                   device: document.getElementById('device')};
    const count = (test) => variables.filter(test).length;
    const option = (value, words, number) => make('option', {value},
      number === undefined ? words : `${words} (${countText(number)})`);
    this.fields.state.append(option('', 'all'), ...STATES
      .map((state, i) => ({state, i, number: count((variable) => variable.state === i)}))
      .filter(({number}) => number > 0)
      .map(({state, i, number}) => option(i, `${state.mark} ${state.words}`, number)));
    const kinds = [...new Set(variables.map((variable) => variable.type))].sort((a, b) => a - b);
    this.fields.kind.append(option('', 'all'), ...kinds.map((type) =>
      option(type, type < 0 ? 'no rule yet' : `${KIND_WORDS[type]} · ${KIND_NAMES[type]}`,
             count((variable) => variable.type === type))));
    this.devices = [...new Set(variables.map((variable) => variable.device))].sort();
    this.fields.device.append(option('', 'all'), ...this.devices.slice(0, DEVICES_LISTED)
      .map((device, i) => option(i, plain(device, 60))));
    document.getElementById('device-label').hidden = this.devices.length < 2 ||
                                                     this.devices.length > DEVICES_LISTED;
    this.search.addEventListener('input', () => this.setFilter({words: this.search.value}));
    this.fields.state.addEventListener('change', () => this.setFilter({state: this.fields.state.value}));
    this.fields.kind.addEventListener('change', () => this.setFilter({kind: this.fields.kind.value}));
    this.fields.device.addEventListener('change', () => this.setFilter(
      {device: this.fields.device.value === '' ? null : this.devices[Number(this.fields.device.value)]}));
    document.getElementById('span').addEventListener('click', () => this.setFilter({span: null}));
    document.getElementById('reset').addEventListener('click', () => this.setFilter(NO_FILTER));
    document.getElementById('filters').addEventListener('submit', (event) => event.preventDefault());
  }

  /** From outside the filters' own fields: sets them, and brings the table into view. */
  choose(change) {
    const isListed = change.device === undefined ||
                     (this.devices.length <= DEVICES_LISTED && this.devices.length > 1);
    this.setFilter({...NO_FILTER, ...(isListed ? change : {words: change.device})});
    document.getElementById('variables-title').scrollIntoView({block: 'start'});
    this.search.focus({preventScroll: true});
  }

  setFilter(change) {
    Object.assign(this.filter, change);
    const {words, state, kind, device, span} = this.filter;
    if (this.search.value !== words) this.search.value = words;
    this.fields.state.value = state;
    this.fields.kind.value = kind;
    const place = device === null ? -1 : this.devices.indexOf(device);
    this.fields.device.value = place >= 0 && place < DEVICES_LISTED ? String(place) : '';
    const isFiltered = words !== '' || state !== '' || kind !== '' || device !== null || span !== null;
    document.getElementById('reset').hidden = !isFiltered;
    const chip = document.getElementById('span');
    chip.hidden = span === null;
    if (span) {
      chip.textContent = `alerts ${timeText(span.from)} – ${timeBeside(span.to, span.from)} ✕`;
      chip.setAttribute('aria-label', chip.textContent.replace('✕', '') + ': take this filter away');
    }
    this.update();
  }

  fits(variable, words) {
    const {state, kind, device, span} = this.filter;
    if (state !== '' && variable.state !== Number(state)) return false;
    if (kind !== '' && variable.type !== Number(kind)) return false;
    if (device !== null && variable.device !== device) return false;
    if (span !== null) {
      let isWithin = false;
      for (let i = 0; i < variable.spans.length && !isWithin; i += 2) {
        isWithin = variable.spans[i] < span.to && variable.spans[i + 1] >= span.from;
      }
      if (!isWithin) return false;
    }
    return words.every((word) => variable.text.includes(word));
  }

  update() {
    const words = this.filter.words.toLowerCase().split(/\s+/).filter((word) => word !== '');
    const sign = this.isReversed ? -1 : 1;
    const {compare} = this.column;
    this.shown = this.report.variables.filter((variable) => this.fits(variable, words))
      .sort((a, b) => sign * compare(a, b) || byKey(a, b));
    this.rendered = 0;
    this.rows.replaceChildren();
    this.renderMore();
    const total = this.report.variables.length;
    const isAll = this.shown.length === total;
    document.getElementById('count').textContent = isAll ? counted(total, 'variable', 'variables')
      : `${countText(this.shown.length)} of ${countText(total)}`;
    document.getElementById('nothing').hidden = this.shown.length > 0;
    document.getElementById('nothing').textContent = total > 0 ? 'No variable fits these filters.'
      : 'Nothing is stored yet: `keelstone evaluate` teaches the first values.';
    document.getElementById('table').hidden = this.shown.length === 0;
  }

  // --- order -----------------------------------------------------------------------------

  prepareHead() {
    const head = document.getElementById('columns');
    const select = document.getElementById('sort');
    for (const column of COLUMNS) {
      const button = make('button', {type: 'button', onclick: () => this.sortBy(column)}, column.name,
                          make('span', {class: 'order', 'aria-hidden': true}));
      column.head = make('th', {scope: 'col', class: 'col-' + column.id}, button);
      head.append(column.head);
      select.append(make('option', {value: column.id}, column.name));
    }
    select.addEventListener('change', () => {
      this.isReversed = false;
      this.showOrder(COLUMNS.find((column) => column.id === select.value));
    });
    this.showOrder(this.column, true);
  }

  sortBy(column) {
    this.isReversed = column === this.column && !this.isReversed;
    this.showOrder(column);
  }

  showOrder(column, isFirst) {
    this.column = column;
    for (const {head, id} of COLUMNS) {
      if (id === column.id) {
        head.setAttribute('aria-sort', this.isReversed ? 'descending' : 'ascending');
      } else {
        head.removeAttribute('aria-sort');
      }
      head.querySelector('.order').textContent = id !== column.id ? '' : this.isReversed ? ' ↑' : ' ↓';
    }
    document.getElementById('sort').value = column.id;
    if (!isFirst) this.update();
  }

  // --- rows ------------------------------------------------------------------------------

  renderMore(count = ROWS_AT_ONCE) {
    const next = this.shown.slice(this.rendered, this.rendered + count);
    if (next.length === 0) return;
    const isFirst = this.rendered === 0;
    this.rendered += next.length;
    this.rows.append(...next.map((variable) => this.row(variable)));
    if (isFirst) this.rows.querySelector('.unfold').tabIndex = 0;
    this.more.hidden = this.rendered >= this.shown.length;
  }

  row(variable) {
    const state = STATES[variable.state];
    const button = make('button', {type: 'button', class: 'unfold', tabindex: -1, 'aria-expanded': 'false'},
                        make('span', {class: 'arrow', 'aria-hidden': true}, '▸'), shown(variable.name, 120));
    const domain = this.report.domains.length > 1
      ? make('small', {class: 'muted'}, shown(variable.domain, 60)) : null;
    const row = make('tr', {class: 'row is-' + state.id},
      make('td', {class: 'col-state'}, make('span', {class: 'mark is-' + state.id, title: state.hint},
        make('span', {'aria-hidden': true}, state.mark + ' '), state.words)),
      make('th', {class: 'col-name', scope: 'row'}, button,
           variable.iface ? make('small', {class: 'muted'}, shown(variable.iface, 120)) : null),
      make('td', {class: 'col-device', 'data-name': 'Device'}, shown(variable.device, 80), domain),
      make('td', {class: 'col-source', 'data-name': 'Source'}, shown(variable.source, 80),
           variable.param ? make('small', {class: 'muted'}, shown(variable.param, 80)) : null),
      make('td', {class: 'col-rule', 'data-name': 'Expected'},
           variable.words ? shown(variable.words, 90) : make('span', {class: 'muted'}, '–'),
           variable.origin === PRESCRIBED ? make('span', {class: 'tag'}, 'prescribed') : null),
      make('td', {class: 'col-history', 'data-name': 'History'}, variable.points > 0
        ? sparkline(variable, this.report.detail(variable))
        : make('span', {class: 'muted'}, '–')),
      make('td', {class: 'col-alerts', 'data-name': 'Alerts'},
           variable.alerts > 0 ? countText(variable.alerts) : make('span', {class: 'muted'}, '–')),
      make('td', {class: 'col-last', 'data-name': 'Last alert'}, variable.alerts > 0
        ? timeText(variable.lastAlert) : make('span', {class: 'muted'}, '–')));
    button.addEventListener('click', (event) => {
      event.stopPropagation();
      this.toggle(row, button, variable);
    });
    row.addEventListener('click', () => {
      if (String(window.getSelection()) === '') this.toggle(row, button, variable);
    });
    return row;
  }

  toggle(row, button, variable) {
    const isOpen = button.getAttribute('aria-expanded') === 'true';
    button.setAttribute('aria-expanded', String(!isOpen));
    row.classList.toggle('is-unfolded', !isOpen);
    this.focusRow(button);
    if (isOpen) {
      row.nextElementSibling.remove();
      button.removeAttribute('aria-controls');
      return;
    }
    const id = 'detail-' + variable.index;
    const cell = make('td', {colspan: COLUMNS.length});
    row.after(make('tr', {class: 'unfolded', id}, cell));
    button.setAttribute('aria-controls', id);
    try {
      cell.append(detailNode(variable, this.report));
    } catch (error) {
      cell.append(make('p', {class: 'notice', role: 'alert'}, 'What is stored of this variable cannot be shown: ' +
                                                             plain(error.message)));
      throw error;
    }
  }

  // --- keys ------------------------------------------------------------------------------

  /** One row at a time is a stop of the Tab key. */
  focusRow(button) {
    for (const other of this.rows.querySelectorAll('.unfold[tabindex="0"]')) other.tabIndex = -1;
    button.tabIndex = 0;
    button.focus({preventScroll: true});
  }

  prepareKeys() {
    this.rows.addEventListener('keydown', (event) => {
      const target = event.target;
      if (event.key === 'Escape') {
        const detail = target.closest('tr.unfolded');
        const row = detail ? detail.previousElementSibling : target.closest('tr.row.is-unfolded');
        if (row) row.querySelector('.unfold').click();
        return;
      }
      if (!target.classList.contains('unfold')) return;
      if (event.key === 'ArrowDown' || event.key === 'End') this.renderMore();
      const buttons = [...this.rows.querySelectorAll('.unfold')];
      const place = buttons.indexOf(target);
      const next = {ArrowDown: place + 1, ArrowUp: place - 1, Home: 0, End: buttons.length - 1}[event.key];
      if (next === undefined || buttons[next] === undefined) return;
      event.preventDefault();
      this.focusRow(buttons[next]);
      buttons[next].closest('tr').scrollIntoView({block: 'nearest'});
    });
    this.search.addEventListener('keydown', (event) => {
      if (event.key === 'ArrowDown') {
        const first = this.rows.querySelector('.unfold');
        if (first) {
          event.preventDefault();
          this.focusRow(first);
        }
      }
    });
    document.addEventListener('keydown', (event) => {
      const isTyping = /^(INPUT|SELECT|TEXTAREA)$/.test(event.target.tagName);
      if (event.key !== '/' || isTyping || event.ctrlKey || event.metaKey || event.altKey) return;
      event.preventDefault();
      this.search.focus();
      this.search.select();
    });
  }
}
