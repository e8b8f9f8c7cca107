// The whole box in a browser: boots it with scripts/demo from a built tree,
// drives it as a person would (keys through the input FIFO, voice and Wi-Fi
// Direct through the simulated services, velmoractl, a SIGKILL), and after
// each step checks the screen page and saves a screenshot under <build>/box-test/.
// Every wait follows the screen's event stream or a process's end, with a
// generous deadline. Exits 0 when every step held, else 1 naming the step.
//   node tests/box/box_test.mjs BUILD_DIR     (run by tests/box/run)
import assert from 'node:assert/strict';
import { execFile, spawn } from 'node:child_process';
import fs from 'node:fs';
import http from 'node:http';
import net from 'node:net';
import path from 'node:path';
import { createRequire } from 'node:module';
import { fileURLToPath } from 'node:url';
import { promisify } from 'node:util';

const project = path.resolve(path.dirname(fileURLToPath(import.meta.url)), '../..');
const require = createRequire(path.join(project, 'demo/package.json'));
const puppeteer = require('puppeteer-core');
const run = promisify(execFile);

const build = path.resolve(project, process.argv[2] ?? 'build/debug');
const out = path.join(build, 'box-test');
const box = path.join(out, 'box');
const WAIT_MS = 30000;
const BOOT_MS = 180000;
const CHROMIUM = process.env.VELMORA_CHROMIUM ?? '/usr/bin/chromium';

function log(text) { console.log(`box test: ${text}`); }

async function freePort() {
  const server = net.createServer();
  await new Promise((resolve) => server.listen(0, '127.0.0.1', resolve));
  const { port } = server.address();
  await new Promise((resolve) => server.close(resolve));
  return port;
}

// ---- The box and its tools ---------------------------------------------------

const ports = { box: await freePort(), screen: await freePort() };
const env = {
  ...process.env,
  VELMORA_BUILD_DIR: build, VELMORA_BOX_DIR: box, VELMORA_BOX_PORT: String(ports.box),
  VELMORA_SCREEN_PORT: String(ports.screen), VELMORA_RUNTIME_DIR: path.join(box, 'run/bus'),
  VELMORA_INPUT_DEVICES: path.join(box, 'run/keys.fifo'),
};
delete env.DISPLAY; // the browsers run headless in the test, whatever the desk has

const demo = (...args) => run(path.join(project, 'scripts/demo'), args, { env, cwd: project, timeout: BOOT_MS });
const tool = (program, ...args) => run(path.join(build, program), args, { env, timeout: 3 * WAIT_MS });
const press = (...keys) => tool('sim/velmora-key', '--fifo', env.VELMORA_INPUT_DEVICES, ...keys);
const VELMORACTL = 'tools/velmoractl/velmoractl';
const ctl = (...args) => tool(VELMORACTL, ...args);
const sim = (service, command, params) => tool('sim/velmora-sim', service, command, JSON.stringify(params));

// Processes whose command line names the box's folder (its server, its
// browsers' profiles, its services).
function boxProcesses() {
  const found = [];
  for (const pid of fs.readdirSync('/proc').filter((name) => /^\d+$/.test(name) && Number(name) !== process.pid)) {
    try {
      const line = fs.readFileSync(`/proc/${pid}/cmdline`, 'utf8').replaceAll('\0', ' ');
      if (line.includes(box)) found.push(`${pid} ${line.slice(0, 160)}`);
    } catch {
      // ended meanwhile
    }
  }
  return found;
}

// ---- The screen page's event stream ---------------------------------------------

class Screen {
  constructor(port) {
    this.latest = null;
    this.waiters = new Set();
    this.request = http.get({ host: '127.0.0.1', port, path: '/events' }, (response) => {
      let buffered = '';
      response.setEncoding('utf8');
      response.on('data', (chunk) => {
        buffered += chunk;
        const events = buffered.split('\n\n');
        buffered = events.pop();
        for (const event of events) {
          const data = event.split('\n').filter((l) => l.startsWith('data: ')).map((l) => l.slice(6)).join('\n');
          if (data) this.update(JSON.parse(data));
        }
      });
    });
  }

  update(snapshot) {
    this.latest = snapshot;
    for (const waiter of this.waiters) waiter();
  }

  // Resolves with the first snapshot for which `holds` is true.
  waitFor(what, holds, ms = WAIT_MS) {
    return new Promise((resolve, reject) => {
      const check = () => {
        if (!this.latest || !holds(this.latest)) return;
        done();
        resolve(this.latest);
      };
      const timer = setTimeout(() => {
        done();
        reject(new Error(`the screen never showed ${what}; last: ${JSON.stringify(this.latest)}`));
      }, ms);
      const done = () => { clearTimeout(timer); this.waiters.delete(check); };
      this.waiters.add(check);
      check();
    });
  }

  close() { this.request.destroy(); }
}

const top = (s) => s.windows.at(-1);
const named = (s, name) => s.windows.find((w) => w.name === name);
// The window of that name (or type) is on top, focused and running.
const onTop = (name, key = 'name') => (s) => top(s)?.[key] === name && top(s).focused && top(s).state === 'RUNNING';
// No window, shown or hidden, has that name (or uid).
const gone = (s, name, key = 'name') => ![...s.windows, ...(s.hidden ?? [])].some((w) => w[key] === name);

// ---- Steps ------------------------------------------------------------------------

let viewer; // the test's own browser on the screen page
let screen;
let shots = 0;

// Saves the screen page as NN-name.png once it shows `snapshot` (or later),
// and checks that its television shows `topName` on top with a picture.
async function screenshot(name, snapshot, topName) {
  await viewer.waitForFunction((version) => Number(document.getElementById('tv').dataset.version) >= version,
    { polling: 'mutation', timeout: WAIT_MS }, snapshot.version);
  await viewer.waitForFunction(() => [...document.images].every((image) => image.complete), { timeout: WAIT_MS });
  const file = path.join(out, `${String(++shots).padStart(2, '0')}-${name}.png`);
  await viewer.screenshot({ path: file });
  const shown = await viewer.evaluate(() => ({
    top: document.getElementById('tv').dataset.topName,
    power: document.getElementById('tv').dataset.power,
    text: document.body.innerText,
    pictures: [...document.querySelectorAll('#tv .layer img')].filter((i) => i.naturalWidth === 1280).length,
    cards: document.querySelectorAll('#tv .layer .card').length,
  }));
  if (topName !== undefined) assert.equal(shown.top, topName, `${name}: the screen's top window`);
  assert.ok(fs.statSync(file).size > 10000, `${name}: the screenshot holds a picture`);
  log(`${path.relative(project, file)}: ${shown.text.replace(/\s+/g, ' ').slice(0, 140)}`);
  return shown;
}

// Runs `inPage` in a web window, over its browser's DevTools: first waits
// (on the page's own changes) until it returns something true.
const devtoolsOf = (uid) => fs.readFileSync(path.join(box, 'run/devtools', uid), 'utf8').trim();

async function inWindow(uid, inPage, arg) {
  const browser = await puppeteer.connect({ browserURL: devtoolsOf(uid), defaultViewport: null });
  try {
    const page = (await browser.pages()).find((p) => p.url().startsWith('file:'));
    return await (await page.waitForFunction(inPage, { polling: 'mutation', timeout: WAIT_MS }, arg)).jsonValue();
  } finally {
    await browser.disconnect();
  }
}

// The text and tiles of a web window, once it shows its tiles (if any).
function pageOf(uid, tile = '') {
  return inWindow(uid, (wanted) => {
    const tiles = [...document.querySelectorAll('.tile')];
    if (wanted && !tiles.some((t) => t.dataset.name === wanted)) return null;
    return {
      text: document.body.innerText,
      tiles: tiles.map((t) => t.dataset.name),
      selected: tiles.findIndex((t) => t.classList.contains('selected')),
    };
  }, tile);
}

// Moves the home screen's ring to `name` with the arrows and presses OK.
async function launchFromHome(name) {
  const home = named(screen.latest, 'Home');
  const { tiles, selected } = await pageOf(home.uid, name);
  const target = tiles.indexOf(name);
  assert.ok(target >= 0, `the home screen offers ${name}: ${tiles.join(', ')}`);
  const arrows = Array(Math.abs(target - selected)).fill(target > selected ? 'Right' : 'Left');
  await press(...arrows, 'OK');
}

async function bootAndHome() {
  await demo('--detach'); // what it prints is the demo's shell test's
  screen = new Screen(ports.screen);
  const shown = await screen.waitFor('the home screen', onTop('Home'), BOOT_MS);
  const home = await pageOf(top(shown).uid, 'Orbit');
  for (const app of ['Clock', 'News', 'Orbit']) assert.ok(home.tiles.includes(app), `home lists ${app}: ${home.tiles}`);
  viewer = await (await puppeteer.launch({
    executablePath: CHROMIUM, headless: true, defaultViewport: { width: 1400, height: 600 },
    args: ['--no-sandbox', `--user-data-dir=${path.join(out, 'viewer-profile')}`],
  })).newPage();
  await viewer.goto(`http://127.0.0.1:${ports.screen}/`);
  const seen = await screenshot('home', shown, 'Home');
  assert.equal(seen.pictures, 1, 'the home screen is a browser capture');
}

async function launchWithKeys() {
  await launchFromHome('Clock');
  const shown = await screen.waitFor('the clock focused and the home screen hidden',
    (s) => onTop('Clock')(s) && !named(s, 'Home') && s.hidden.some((w) => w.name === 'Home'));
  await screenshot('clock-focused-home-hidden', shown, 'Clock');
}

// The first line of the journal's entries of `kind` for `uid`, once there is one.
function journalEntry(uid, kind) {
  return new Promise((resolve, reject) => {
    const follow = spawn(path.join(build, VELMORACTL), ['journal', '--follow', '--uid', uid, '--kind', kind],
      { env, stdio: ['ignore', 'pipe', 'inherit'] });
    const timer = setTimeout(() => { follow.kill(); reject(new Error(`no ${kind} entry for ${uid}`)); }, WAIT_MS);
    follow.stdout.once('data', (text) => { clearTimeout(timer); follow.kill(); resolve(String(text)); });
  });
}

async function secondEvictsFirst() {
  await press('Home');
  const home = await screen.waitFor('the home screen back on top', (s) => onTop('Home')(s) && named(s, 'Clock'));
  await launchFromHome('News');
  const shown = await screen.waitFor('the news focused and the clock evicted',
    (s) => onTop('News')(s) && gone(s, 'Clock'));
  await screenshot('news-evicts-clock', shown, 'News');
  // The evicted page closed its window, and its launch script ended by itself.
  assert.match(await journalEntry(named(home, 'Clock').uid, 'ended'), /exit status 0/);
}

async function toggleHome() {
  await press('Home');
  let shown = await screen.waitFor('the home screen over the news', (s) => onTop('Home')(s) && named(s, 'News'));
  await screenshot('home-toggled-up', shown, 'Home');
  await press('Home');
  shown = await screen.waitFor('the news again, the home screen hidden', (s) => onTop('News')(s) && !named(s, 'Home'));
  assert.equal(top(shown).lastKey, '', 'the toggle key never reaches the application');
}

async function powerDownAndUp() {
  await press('Power');
  let shown = await screen.waitFor('standby', (s) => s.power !== 0);
  const seen = await screenshot('standby', shown);
  assert.equal(seen.power, String(shown.power));
  assert.match(seen.text, /sleep/, 'the screen page says the box sleeps');
  await press('Power');
  shown = await screen.waitFor('the box awake again', (s) => s.power === 0);
  await screenshot('awake', shown, 'News');
}

async function voice() {
  await sim('QEN', 'speak', { transcript: 'weather london' });
  const shown = await screen.waitFor('the search page', onTop('Search'));
  const page = await pageOf(top(shown).uid);
  assert.match(page.text, /Weather in london/, 'the search page answers the words spoken');
  await screenshot('voice-weather-london', shown, 'Search');
}

async function miracast() {
  await sim('QEN', 'connectPeer', { ipAddress: '192.168.49.2', miraCast: true, rtspPort: 7236 });
  const shown = await screen.waitFor('the Wi-Fi Display player', onTop('WFDPLAYER', 'type'));
  const seen = await screenshot('miracast-player', shown, top(shown).name);
  assert.equal(seen.cards, 1, 'the player, a program without a browser, shows as a card');
}

async function install() {
  await ctl('install', 'velmora-notes', '--timeout', '60');
  await press('Home');
  const shown = await screen.waitFor('the home screen', onTop('Home'));
  // The home screen reloads its list when the request ends.
  const home = await pageOf(top(shown).uid, 'Notes');
  assert.ok(home.tiles.includes('Notes'), `the installed package shows on the home screen: ${home.tiles}`);
  await screenshot('notes-installed', shown, 'Home');
}

async function crash() {
  await launchFromHome('Clock');
  let shown = await screen.waitFor('the clock', onTop('Clock'));
  const uid = top(shown).uid;
  // The browser goes with its window's process: its DevTools link closes.
  const browser = await puppeteer.connect({ browserURL: devtoolsOf(uid) });
  const closed = new Promise((resolve) => browser.once('disconnected', resolve));
  // The window's own process: the launch script the journal says started with its uid.
  process.kill(Number((await journalEntry(uid, 'started')).match(/\(pid (\d+), /)[1]), 'SIGKILL');
  await closed;
  // The server notices the end of the window's process by itself: no key is
  // needed (one would go to the home screen and launch the clock again).
  shown = await screen.waitFor('the home screen after the crash', (s) => onTop('Home')(s) && gone(s, uid, 'uid'));
  assert.deepEqual(boxProcesses().filter((p) => p.includes(`chromium/${uid}`)), [], 'no browser outlives its window');
  await screenshot('crash-home-back', shown, 'Home');
}

async function android() {
  if (!fs.existsSync(path.join(build, 'sim/velmora-android-slave'))) {
    log('SKIPPED the Android step: velmora-android-slave is not built in this tree');
    return;
  }
  const home = await pageOf(named(screen.latest, 'Home').uid);
  const name = home.tiles.find((t) => /android|gallery/i.test(t));
  assert.ok(name, `the home screen offers the Android application: ${home.tiles}`);
  await launchFromHome(name);
  const shown = await screen.waitFor('the Android application', onTop('ANDROID', 'type'));
  await screenshot('android-on-slave', shown, top(shown).name);
  // Back leaves a native program as it leaves a page: the home screen comes back.
  await press('Back');
  await screen.waitFor('the home screen after Back', (s) => onTop('Home')(s) && !s.windows.some((w) => w.type === 'ANDROID'));
}

async function stop() {
  await demo('--stop');
  assert.deepEqual(boxProcesses(), [], 'scripts/demo --stop leaves no process of the box');
}

const steps = [bootAndHome, launchWithKeys, secondEvictsFirst, toggleHome, powerDownAndUp, voice, miracast, install,
  crash, android];

fs.rmSync(out, { recursive: true, force: true });
fs.mkdirSync(out, { recursive: true });
let failed = null;
for (const step of steps) {
  log(`step ${step.name}`);
  try {
    await step();
  } catch (error) {
    failed = `${step.name}: ${error.message}`;
    break;
  }
}
if (failed) {
  console.error(`box test: FAILED ${failed}\n  logs: ${path.join(box, 'log')}`);
  await viewer?.screenshot({ path: path.join(out, 'failure.png') }).catch(() => {});
  // The server's own account of each application's life, for the logs.
  await ctl('journal').then(({ stdout }) => fs.writeFileSync(path.join(box, 'log/journal.log'), stdout))
    .catch(() => {});
}
screen?.close();
await viewer?.browser().close();
try {
  await stop();
} catch (error) {
  failed ??= `stop: ${error.message}`;
}
if (failed) process.exit(1);
log('all steps held');
