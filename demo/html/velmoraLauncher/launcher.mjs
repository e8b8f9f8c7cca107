// The home screen: lists the installed applications from the package
// catalogue, moves a focus ring with the remote's arrows, launches with OK (or
// a digit), and shows what runs, what has the focus, the latest
// notifications of the box and its recent history from the lifecycle journal.
import { joinBox } from '../lib/box-page.mjs';

const COLUMNS = 4;
const EVENTS_SHOWN = 4;
const HISTORY_SHOWN = 5;
const POWER = ['running', 'light sleep', 'deep sleep', 'deep sleep', 'starting'];
const TINTS = { WEBAPP: '#ffb547', WEBPAGE: '#7cc4ff', WEBGLAPP: '#c58bff', OTHER: '#5fe0a0', ANDROID: '#9be15d' };
const EVENTS = [
  'IWindowManager::onFocusChange', 'IWindowManager::onWindowListChange', 'IApplicationManager::onStateChange',
  'IApplicationManager::onError', 'IPackageInstaller::onRequestEnd', 'ILifecycleJournal::onEntry',
];

let apps = []; // {name, type, url}
let selected = 0;
let windows = []; // {uid, name}
let focus = '';
let box;
let history = []; // the journal entries shown, newest first
let repaintPending = false;

const $ = (id) => document.getElementById(id);

function showClock() {
  const time = new Date().toLocaleTimeString('en-GB', { hour: '2-digit', minute: '2-digit' });
  if ($('clock').textContent === time) return;
  $('clock').textContent = time;
  repaint();
}

// The screen page captures a window when it hears from it: what changed
// without a key (a notice, a package, the journal) is announced once, for
// all the changes of the same moment.
function repaint() {
  if (!box || repaintPending) return;
  repaintPending = true;
  setTimeout(() => { repaintPending = false; box.publish(); }, 50);
}

function note(text) {
  const item = document.createElement('li');
  item.textContent = `${new Date().toLocaleTimeString('en-GB')}  ${text}`;
  $('events').prepend(item);
  while ($('events').children.length > EVENTS_SHOWN) $('events').lastChild.remove();
  repaint();
}

// The newest entries, one a line, newest first, wherever they came from:
// the entries of the page's own start arrive as notices before the query's
// answer, which must still fill the column with what came before them.
function record(entry) {
  if (history.some((shown) => shown.sequence === entry.sequence)) return;
  history = [...history, entry].sort((a, b) => b.sequence - a.sequence).slice(0, HISTORY_SHOWN);
  $('history').replaceChildren(...history.map(historyLine));
  repaint();
}

// A journal entry as a line; its cause shows on hover.
function historyLine(entry) {
  const item = document.createElement('li');
  const time = new Date(entry.wallClockMs).toLocaleTimeString('en-GB');
  const name = entry.name ? ` ${nameOfLaunch({ applicationType: entry.applicationType, applicationURL: entry.name })}` : '';
  // A reported state or power change says what changed; the rest say why.
  const [shown, hover] = ['state', 'power'].includes(entry.kind) ? [entry.cause, entry.reason] : [entry.reason, entry.cause];
  const said = entry.kind === 'power'
    ? shown.replace(/(\d) -> (\d)/, (all, from, to) => `${POWER[from] ?? from} → ${POWER[to] ?? to}`) : shown;
  item.textContent = `${time}  ${entry.kind}${name}: ${said}`;
  item.title = hover;
  return item;
}

async function loadHistory() {
  const entries = await box.app.call('ILifecycleJournal.query', { limit: HISTORY_SHOWN });
  (entries ?? []).forEach(record);
}

function nameOfUrl(url) {
  const app = apps.find((a) => a.url === url);
  if (app) return app.name;
  if (url.includes('velmoraLauncher/index.html')) return 'Home';
  if (url.includes('velmoraLauncher/search/')) return url.includes('/maps') ? 'Maps' : 'Search';
  return url.replace(/[?#].*$/, '').replace(/\/index\.html$/, '').split('/').filter(Boolean).pop() || url;
}

function windowName(uid) {
  return windows.find((w) => w.uid === uid)?.name ?? uid;
}

function renderApps() {
  const grid = $('apps');
  grid.replaceChildren();
  if (apps.length === 0) {
    grid.innerHTML = '<p class="muted wide">No applications installed yet.</p>';
    return;
  }
  const running = new Set(windows.map((w) => w.name));
  apps.forEach((app, index) => {
    const tile = document.createElement('div');
    tile.className = 'tile focusable';
    tile.classList.toggle('selected', index === selected);
    tile.classList.toggle('running', running.has(app.name));
    tile.dataset.name = app.name;
    tile.style.setProperty('--tint', TINTS[app.type] ?? '#ffb547');
    tile.innerHTML = '<div class="glyph"></div><div><div class="name"></div><div class="type"></div></div>';
    tile.querySelector('.glyph').textContent = app.name.slice(0, 1).toUpperCase();
    tile.querySelector('.name').textContent = app.name;
    tile.querySelector('.type').textContent = `${index < 9 ? `${index + 1} · ` : ''}${app.type}`;
    grid.append(tile);
  });
}

function renderWindows() {
  const list = $('windows');
  list.replaceChildren();
  for (const { uid, name } of windows) {
    const item = document.createElement('li');
    item.textContent = `${name}  (${uid})`;
    item.classList.toggle('focus', uid === focus);
    list.append(item);
  }
  if (windows.length === 0) list.innerHTML = '<li class="muted">nothing runs</li>';
  renderApps();
}

async function loadApps() {
  const packages = await box.app.call('IPackageManager.getExtendedPackageInfoList',
    { listRequest: { groups: [], start: 0, nbItems: 0, sortOrder: '' } });
  apps = (packages ?? [])
    .map((p) => p.customPackageInfo ?? {})
    .filter((c) => c.applicationURL && c.applicationType && !c.applicationURL.includes('velmoraLauncher/'))
    .map((c) => ({ name: c.applicationName || c.applicationURL, type: c.applicationType, url: c.applicationURL }))
    .sort((a, b) => a.name.localeCompare(b.name));
  selected = Math.min(selected, Math.max(apps.length - 1, 0));
  renderApps();
  repaint();
}

// The Wi-Fi Display player (no URL, or its script's name in the journal) is named by its type.
function nameOfLaunch(launch) {
  if (!launch) return '';
  if (launch.applicationType === 'WFDPLAYER') return 'Wi-Fi Display player';
  return launch.applicationURL ? nameOfUrl(launch.applicationURL) : launch.applicationType;
}

// One load at a time, in the order asked: a slower earlier load would
// otherwise overwrite a newer list, and the focus notes that follow the
// loads would come out of order.
let windowsLoaded = Promise.resolve();
function loadWindows() {
  windowsLoaded = windowsLoaded.catch(() => {}).then(fetchWindows);
  return windowsLoaded;
}

async function fetchWindows() {
  const uids = await box.app.call('IWindowManager.getWindowList', { proxy: 0 });
  const known = await Promise.all((uids ?? []).map(async (uid) => {
    const launch = await box.app.call('IWindowManager.getLaunchParameters', { uid }).catch(() => null);
    return { uid, name: nameOfLaunch(launch) || uid };
  }));
  windows = known;
  renderWindows();
  repaint();
}

async function launch(app) {
  if (!app) return;
  note(`starting ${app.name}`);
  try {
    await box.app.call('IWindowManager.launch', {
      proxy: 0, authorizationToken: '', applicationType: app.type, applicationURL: app.url,
      applicationParameters: '', giveFocus: true,
    });
  } catch (error) {
    note(`${app.name} could not start: ${error.message}`);
  }
}

function move(step) {
  if (apps.length === 0) return;
  selected = Math.min(Math.max(selected + step, 0), apps.length - 1);
  renderApps();
}

function onKey(key) {
  switch (key) {
    case 'Left': move(-1); return true;
    case 'Right': move(1); return true;
    case 'Up': move(-COLUMNS); return true;
    case 'Down': move(COLUMNS); return true;
    case 'OK': launch(apps[selected]); return true;
    case 'Shown':
      document.body.classList.remove('flash');
      requestAnimationFrame(() => document.body.classList.add('flash'));
      loadApps().catch(() => {});
      return true;
    default:
      if (/^[1-9]$/.test(key)) { selected = Math.min(Number(key) - 1, apps.length - 1); launch(apps[selected]); return true; }
      return false;
  }
}

function onNotification(name, params) {
  switch (name) {
    case 'IWindowManager::onFocusChange': {
      const to = params.newFocus ?? '';
      focus = to;
      loadWindows().catch(() => {}).then(() => note(`focus → ${to ? windowName(to) : 'nobody'}`));
      break;
    }
    case 'IWindowManager::onWindowListChange':
      loadWindows().catch(() => {});
      break;
    case 'IApplicationManager::onStateChange':
      note(`${windowName(params.uid)} ${params.newState}`);
      break;
    case 'IApplicationManager::onError':
      note(`error: ${params.errorType}`);
      break;
    case 'ILifecycleJournal::onEntry':
      record(params);
      break;
    case 'IPackageInstaller::onRequestEnd':
      note(`${params.action} ${(params.packages ?? []).join(', ')}: ${params.result === 0 ? 'done' : `failed (${params.result})`}`);
      loadApps().catch(() => {});
      break;
    default:
      break;
  }
}

showClock();
setInterval(showClock, 10000);
try {
  box = await joinBox({
    name: 'Home', onKey, leaveOnBack: false,
    onChange: (app) => { if (app.focused && focus !== app.uid) { focus = app.uid; renderWindows(); } },
  });
  box.app.onNotification = onNotification;
  await box.app.subscribe(EVENTS);
  await loadApps();
  await loadWindows();
  await loadHistory().catch(() => {}); // a server without a journal has none
  note('the box is up');
} catch (error) {
  note(`offline: ${error.message}`);
}
