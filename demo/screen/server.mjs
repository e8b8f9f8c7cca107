// The box's screen as a page on a loopback port. The box composites nothing
// (each window is told its focus and visibility and draws itself), so the
// screen is the visible windows in z-order with the focused one on top: a
// DevTools capture of each browser, a card for a program without one.
//
// It follows the server over its WebSocket port (focus, window list, states,
// and the VelmoraBox::window notices the pages publish) and the power
// manager over its endpoint, and pushes every new picture to the viewers as
// Server-Sent Events. Nothing is polled: each notice starts one refresh.
//
//   VELMORA_BOX_RUN (required), VELMORA_BOX_PORT (8700), VELMORA_SCREEN_PORT (8701)
//   GET /            the viewer
//   GET /events      the screen as JSON, one event per change
//   GET /state       the same JSON once
//   GET /shot/UID    the window's latest capture (JPEG)
import fs from 'node:fs';
import http from 'node:http';
import path from 'node:path';
import { fileURLToPath } from 'node:url';
import { RpcPeer } from './rpc.mjs';

const RUN = process.env.VELMORA_BOX_RUN;
if (!RUN) {
  console.error('screen: VELMORA_BOX_RUN is not set');
  process.exit(2);
}
const BOX_PORT = Number(process.env.VELMORA_BOX_PORT || 8700);
const SCREEN_PORT = Number(process.env.VELMORA_SCREEN_PORT || 8701);
const BUS = process.env.VELMORA_RUNTIME_DIR || path.join(RUN, 'bus');
const WIDTH = 1280;
const HEIGHT = 720;
const MASTER_Z = 12; // the first window of a session lies above the others
const RECONNECT_MS = 1000;
const EVENTS = [
  'IWindowManager::onFocusChange', 'IWindowManager::onWindowListChange',
  'IApplicationManager::onStateChange', 'VelmoraBox::window',
];
const VIEWER = fs.readFileSync(path.join(path.dirname(fileURLToPath(import.meta.url)), 'viewer.html'));

const log = (text) => console.log(`${new Date().toISOString()} screen: ${text}`);

// What the screen knows of each window, by uid.
const windows = new Map(); // uid -> {seen, launch, page: {...published}, shot: Buffer, shotVersion}
let order = 0;
let focus = '';
let focusKnown = false; // until the first focus notice, the pages say who has it
let power = 0;
let server = null;
let powerManager = null;
let snapshot = { windows: [], focus: '', power: 0, connected: false, version: 0 };
const viewers = new Set();

function entry(uid) {
  if (!windows.has(uid)) windows.set(uid, { seen: order++, page: null, shot: null, shotVersion: 0 });
  return windows.get(uid);
}

// ---- Captures -------------------------------------------------------------

const devtools = new Map(); // uid -> Promise<RpcPeer> of the page target

async function pageTarget(uid) {
  const address = fs.readFileSync(path.join(RUN, 'devtools', uid), 'utf8').trim();
  const targets = await (await fetch(`${address}/json/list`)).json();
  const page = targets.find((t) => t.type === 'page' && t.url.startsWith('file:'))
    ?? targets.find((t) => t.type === 'page');
  if (!page) throw new Error('no page');
  const peer = await RpcPeer.open(page.webSocketDebuggerUrl, { devtools: true });
  peer.onClose = () => devtools.delete(uid);
  // The box's screen is 1280x720, whatever the browser window's frame takes.
  await peer.call('Emulation.setDeviceMetricsOverride', { width: WIDTH, height: HEIGHT, deviceScaleFactor: 1, mobile: false });
  return peer;
}

async function capture(uid) {
  if (!fs.existsSync(path.join(RUN, 'devtools', uid))) return null;
  if (!devtools.has(uid)) devtools.set(uid, pageTarget(uid));
  try {
    const peer = await devtools.get(uid);
    const { data } = await peer.call('Page.captureScreenshot', { format: 'jpeg', quality: 85 });
    const { result } = await peer.call('Runtime.evaluate', { expression: 'globalThis.velmoraWindow', returnByValue: true });
    return { picture: Buffer.from(data, 'base64'), page: result?.value ?? null };
  } catch (error) {
    devtools.delete(uid);
    log(`no capture of ${uid}: ${error.message}`);
    return null;
  }
}

function card(uid) {
  try {
    return JSON.parse(fs.readFileSync(path.join(RUN, 'cards', `${uid}.json`), 'utf8'));
  } catch {
    return null;
  }
}

// ---- Following the box -----------------------------------------------------

function nameOfUrl(url = '') {
  if (url.includes('velmoraLauncher/index.html')) return 'Home';
  return url.replace(/[?#].*$/, '').replace(/\/index\.html$/, '').split('/').filter(Boolean).pop() || url;
}

async function describe(uid) {
  const known = entry(uid);
  if (!known.launch) known.launch = await server.call('IWindowManager.getLaunchParameters', { uid }).catch(() => ({}));
  const fromCard = card(uid);
  const shot = await capture(uid);
  if (shot) {
    known.shot = shot.picture;
    known.shotVersion += 1;
    if (shot.page) known.page = shot.page;
  }
  const page = known.page ?? {};
  const type = known.launch.applicationType ?? '';
  return {
    uid,
    name: page.name ?? fromCard?.name ?? nameOfUrl(known.launch.applicationURL),
    type,
    state: page.state ?? fromCard?.state ?? '',
    lastKey: page.lastKey ?? fromCard?.lastKey ?? '',
    visible: page.visible ?? fromCard?.visible ?? true,
    focused: !!page.focused, // until the first focus notice, the pages say who has it
    z: known.seen === 0 || known.launch.compositingParameters?.zOrder === MASTER_Z ? MASTER_Z : MASTER_Z - 1,
    seen: known.seen,
    shot: known.shot ? `/shot/${uid}?v=${known.shotVersion}` : null,
  };
}

async function compose() {
  await connectPowerManager();
  const uids = server ? await server.call('IWindowManager.getWindowList', { proxy: 0 }) : [];
  for (const uid of windows.keys()) {
    if (uids.includes(uid)) continue;
    windows.delete(uid);
    devtools.get(uid)?.then((peer) => peer.close(), () => {});
    devtools.delete(uid);
  }
  const described = await Promise.all(uids.map(describe));
  // One focus for the whole picture: it may have moved while the captures ran.
  if (focusKnown) described.forEach((w) => { w.focused = w.uid === focus; });
  // Bottom first: by z-order, then by age; the focused window on top.
  const stack = described.filter((w) => w.visible || w.focused)
    .sort((a, b) => (a.focused - b.focused) || (a.z - b.z) || (a.seen - b.seen));
  return {
    windows: stack,
    hidden: described.filter((w) => !stack.includes(w)).map(({ uid, name, state }) => ({ uid, name, state })),
    focus: stack.find((w) => w.focused)?.uid ?? '',
    power,
    connected: !!server,
    version: snapshot.version + 1,
  };
}

// One refresh at a time; notices that come meanwhile fold into one more.
let refreshing = null;
let again = false;
function refresh() {
  if (refreshing) {
    again = true;
    return refreshing;
  }
  refreshing = (async () => {
    do {
      again = false;
      try {
        snapshot = await compose();
        publish();
      } catch (error) {
        log(`refresh failed: ${error.message}`);
      }
    } while (again);
    refreshing = null;
  })();
  return refreshing;
}

function onBoxNotice(name, params) {
  if (name === 'IWindowManager::onFocusChange') {
    focus = params.newFocus ?? '';
    focusKnown = true;
  }
  if (name === 'VelmoraBox::window' && typeof params.uid === 'string') {
    entry(params.uid).page = params;
  }
  if (name === 'IApplicationManager::onStateChange' && windows.has(params.uid) && windows.get(params.uid).page) {
    windows.get(params.uid).page.state = params.newState;
  }
  refresh();
}

async function connectServer() {
  try {
    server = await RpcPeer.open(`ws://127.0.0.1:${BOX_PORT}/`);
  } catch (error) {
    setTimeout(connectServer, RECONNECT_MS);
    return;
  }
  log(`following the server on port ${BOX_PORT}`);
  server.onNotification = onBoxNotice;
  server.onClose = () => {
    log('the server went away');
    server = null;
    refresh();
    setTimeout(connectServer, RECONNECT_MS);
  };
  await server.call('RPC.subscribe', { events: EVENTS });
  refresh();
}

// The power manager's endpoint appears when its service starts; each refresh
// tries it until it answers.
async function connectPowerManager() {
  if (powerManager) return;
  try {
    const peer = await RpcPeer.open(path.join(BUS, 'HUX.sock'));
    powerManager = peer;
    peer.onClose = () => { powerManager = null; };
    peer.onNotification = (name, params) => {
      if (name !== 'IPowerManager::onPowerStateChange') return;
      power = Number(params.state ?? 0);
      refresh();
    };
    await peer.call('RPC.subscribe', { events: ['IPowerManager::onPowerStateChange'] });
    power = Number(await peer.call('IPowerManager.getPowerState', {}));
  } catch {
    powerManager = null;
  }
}

// Programs without a browser rewrite their cards; each change is a refresh.
function watchCards() {
  const folder = path.join(RUN, 'cards');
  fs.mkdirSync(folder, { recursive: true });
  fs.watch(folder, () => refresh());
}

// ---- Viewers ----------------------------------------------------------------

function publish() {
  const text = `data: ${JSON.stringify(snapshot)}\n\n`;
  for (const response of viewers) response.write(text);
}

function serve(request, response) {
  const url = new URL(request.url, 'http://localhost');
  if (url.pathname === '/') {
    response.writeHead(200, { 'content-type': 'text/html; charset=utf-8' });
    response.end(VIEWER);
  } else if (url.pathname === '/events') {
    response.writeHead(200, { 'content-type': 'text/event-stream', 'cache-control': 'no-store', connection: 'keep-alive' });
    response.write(`data: ${JSON.stringify(snapshot)}\n\n`);
    viewers.add(response);
    request.on('close', () => viewers.delete(response));
  } else if (url.pathname === '/state') {
    response.writeHead(200, { 'content-type': 'application/json' });
    response.end(JSON.stringify(snapshot));
  } else if (url.pathname.startsWith('/shot/') && windows.get(url.pathname.slice(6))?.shot) {
    response.writeHead(200, { 'content-type': 'image/jpeg', 'cache-control': 'no-store' });
    response.end(windows.get(url.pathname.slice(6)).shot);
  } else {
    response.writeHead(404).end();
  }
}

const httpServer = http.createServer(serve);
httpServer.on('error', (error) => {
  console.error(`screen: cannot listen on 127.0.0.1:${SCREEN_PORT}: ${error.message}`);
  process.exit(1);
});
httpServer.listen(SCREEN_PORT, '127.0.0.1', () => {
  console.log(`screen listening on http://127.0.0.1:${SCREEN_PORT}/`);
  watchCards();
  connectServer();
});
for (const signal of ['SIGTERM', 'SIGINT']) process.on(signal, () => process.exit(0));
