// Brings the page up: the choice of light and dark, the overview, the table.

const THEMES = ['auto', 'light', 'dark'];
const THEME_KEY = 'keelstone-report-theme';

/** Remembered where the browser lets a file remember anything. */
function storedTheme(value) {
  try {
    if (value !== undefined) window.localStorage.setItem(THEME_KEY, value);
    return window.localStorage.getItem(THEME_KEY);
  } catch (error) {
    return null;
  }
}

function prepareTheme() {
  const button = document.getElementById('theme');
  const stored = storedTheme();
  let theme = THEMES.includes(stored) ? stored : 'auto';
  const apply = () => {
    if (theme === 'auto') delete document.documentElement.dataset.theme;
    else document.documentElement.dataset.theme = theme;
    button.textContent = {auto: '◐ System', light: '○ Light', dark: '● Dark'}[theme];
    button.setAttribute('aria-label', `Colours: ${theme === 'auto' ? 'as the system' : theme}. Change`);
  };
  button.addEventListener('click', () => {
    theme = THEMES[(THEMES.indexOf(theme) + 1) % THEMES.length];
    storedTheme(theme);
    apply();
  });
  button.hidden = false;
  apply();
}

function start() {
  prepareTheme();
  const report = new Report();
  document.getElementById('app').hidden = false;
  const table = new VariableTable(report);
  renderOverview(report, (change) => table.choose(change));
  document.documentElement.dataset.ready = 'true';
  // After the first rows are painted; scripts/report-speed reads it.
  requestAnimationFrame(() => setTimeout(() => performance.mark('keelstone-ready'), 0));
}

try {
  start();
} catch (error) {
  const failure = document.getElementById('failure');
  failure.textContent = 'This page cannot be shown: ' + error.message;
  failure.hidden = false;
  throw error;
}
