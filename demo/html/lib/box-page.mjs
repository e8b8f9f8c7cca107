// What every page of the box shares: it joins the box under the uid of its
// URL fragment (#uid=<uid>&ws=<server>), reports RUNNING and keep-alives,
// follows focus and visibility, turns key events into key names, leaves when
// the server asks, and publishes what it shows (VelmoraBox::window) so that
// the screen page can draw it.
import { VelmoraApp } from './velmora-app.mjs';

const KEEP_ALIVE_MS = 2000; // the server gives a running window 6 s
const TERMINATED = 'TERMINATED';

// Linux key codes of the remote's keys; the input driver passes them on as
// 256 + code, save the keys it gives the box's own codes.
const LINUX_KEYS = {
  103: 'Up', 108: 'Down', 105: 'Left', 106: 'Right', 352: 'OK', 158: 'Back', 102: 'Home',
  116: 'Power', 139: 'Menu', 11: '0', 2: '1', 3: '2', 4: '3', 5: '4', 6: '5', 7: '6', 8: '7', 9: '8', 10: '9',
};
const BOX_KEYS = { 1: 'Power', 30: 'Home', 33: 'Shown', 34: 'Menu', 38: 'Home', 56: 'System' };

export function keyName(code) {
  if (code >= 256 && LINUX_KEYS[code - 256]) return LINUX_KEYS[code - 256];
  return BOX_KEYS[code] ?? `key ${code}`;
}

// The uid and the server's address, from the fragment the launch script adds.
export function boxAddress(hash = location.hash) {
  const fragment = new URLSearchParams(hash.replace(/^#/, ''));
  return { uid: fragment.get('uid'), ws: fragment.get('ws') };
}

// Joins the box. `name` is what the screen shows; `onKey(name)` answers
// whether the page consumed the key; a Back that it leaves ends the page
// unless `leaveOnBack` is false; `onLeave()` runs before the page goes.
// Resolves with { app, publish, leave } once RUNNING is reported; rejects when the
// page runs outside a box or the server refuses it.
export async function joinBox({ name, onKey = () => false, leaveOnBack = true, onLeave = () => {}, onChange = () => {} }) {
  const { uid, ws } = boxAddress();
  const status = statusBadge();
  if (!uid || !ws) {
    status.textContent = 'not in a box';
    throw new Error('no #uid and ws in the URL');
  }
  const app = new VelmoraApp({ url: ws, uid });
  let lastKey = '';
  const publish = () => {
    document.body.classList.toggle('focused', app.focused);
    document.body.classList.toggle('hidden', !app.visible);
    status.textContent = `${app.focused ? 'focused' : 'not focused'} · ${app.visible ? 'visible' : 'hidden'}`
      + (lastKey ? ` · last key ${lastKey}` : '');
    onChange(app);
    // Read by the screen page over DevTools, and published for it as a notice.
    globalThis.velmoraWindow = { uid, name, state: app.state, focused: app.focused, visible: app.visible, lastKey };
    app.call('IWindowManager.notify', { event: 'VelmoraBox::window', ...globalThis.velmoraWindow }).catch(() => {});
  };
  const leave = () => {
    onLeave();
    app.reportState(TERMINATED);
    publish();
    // The server ends the browser with the window; closing is a courtesy.
    setTimeout(() => window.close(), 100);
  };
  app.onFocus = publish;
  app.onVisibility = publish;
  app.onTerminate = leave;
  app.onServerGone = () => window.close();
  app.onEvent = (event) => {
    if (event?.['@type'] !== 'KeyEvent' || !event.pressed) return false;
    const key = keyName(event.code);
    // "Shown" is the manager's own signal that the window came up, not a key a person pressed.
    if (key !== 'Shown') lastKey = key;
    const consumed = !!onKey(key);
    publish();
    if (consumed || !leaveOnBack || key !== 'Back') return consumed;
    leave();
    return true;
  };
  await app.connect();
  app.reportState('RUNNING');
  setInterval(() => app.keepAlive(), KEEP_ALIVE_MS);
  publish();
  return { app, publish, leave };
}

function statusBadge() {
  let badge = document.getElementById('velmora-status');
  if (!badge) {
    badge = document.createElement('div');
    badge.id = 'velmora-status';
    document.body.append(badge);
  }
  return badge;
}
