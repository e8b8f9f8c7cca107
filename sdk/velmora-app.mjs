// The web page side of the bus: registers the page's program under its uid,
// reports states and keep-alives, and answers the server's focus,
// visibility, event and terminate calls. ES module, no build step.
//
//   import { VelmoraApp } from './velmora-app.mjs';
//   const app = new VelmoraApp({ url: 'ws://127.0.0.1:PORT/', uid });
//   app.onTerminate = () => window.close();
//   await app.connect();
//   app.reportState('RUNNING');

const DEFAULT_TIMEOUT_MS = 2000;

// The uid from launch parameters (JSON text or object): the authorization
// token when there is one, else `fallback`.
export function uidFromParameters(parameters, fallback) {
  const value = typeof parameters === 'string' ? JSON.parse(parameters || '{}') : (parameters || {});
  return typeof value.authorizationToken === 'string' && value.authorizationToken !== ''
    ? value.authorizationToken : String(fallback);
}

export class VelmoraApp {
  constructor({ url, uid, WebSocketImpl = globalThis.WebSocket, timeoutMs = DEFAULT_TIMEOUT_MS }) {
    this.url = url;
    this.uid = String(uid);
    this.WebSocketImpl = WebSocketImpl;
    this.timeoutMs = timeoutMs;
    this.state = 'UNINITIALIZED';
    this.focused = false;
    this.visible = false;
    this.nextId = 1;
    this.pending = new Map();
    this.outbox = []; // messages sent before the socket opened
    this.onTerminate = null; // default: report TERMINATED
    // The server closed an open connection (it stopped or died): a server that
    // starts again knows nothing of this page, so a box page leaves.
    this.onServerGone = null;
    this.opened = false;
    this.leaving = false; // close() was called: the close is ours
    this.onFocus = null;
    this.onVisibility = null;
    this.onEvent = null; // (event) => consumed
    this.onToken = null; // (method, params)
    this.onNotification = null; // (name, params) for subscribed events
    this.methods = {
      'ILifecycleManagement.getState': () => this.state,
      'ILifecycleManagement.setState': (p) => { this.reportState(p.state); return null; },
      'ILifecycleManagement.terminate': () => {
        if (this.onTerminate) this.onTerminate(); else this.reportState('TERMINATED');
        return null;
      },
      'IWindowCompositing.setVisibility': (p) => { this.visible = !!p.visible; this.onVisibility?.(this.visible); return null; },
      'IWindowCompositing.getVisibility': () => this.visible,
      'IWindowEvent.handleFocus': (p) => { this.focused = !!p.focus; this.onFocus?.(this.focused); return null; },
      'IWindowEvent.isFocused': () => this.focused,
      'IWindowEvent.handleEvent': (p) => (this.onEvent ? !!this.onEvent(p.event) : false),
    };
  }

  // Opens the WebSocket and registers; resolves when the server accepted.
  connect() {
    return new Promise((resolve, reject) => {
      const socket = new this.WebSocketImpl(this.url);
      this.socket = socket;
      socket.onopen = () => {
        this.opened = true;
        // Registration first, then what was sent before the socket opened, in order.
        this.call('RPC.register', { uid: this.uid }).then(resolve, reject);
        for (const text of this.outbox.splice(0)) socket.send(text);
      };
      socket.onerror = (error) => reject(error instanceof Error ? error : new Error('connection failed'));
      socket.onclose = () => {
        this.failPending('connection closed');
        if (this.opened && !this.leaving) this.onServerGone?.();
      };
      socket.onmessage = (message) => this.receive(String(message.data));
    });
  }

  close() {
    this.leaving = true;
    this.socket?.close();
  }

  // Calls a server method; rejects with the server's error text or on the deadline.
  call(method, params = {}) {
    const id = this.nextId++;
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        this.pending.delete(id);
        reject(new Error('Timed out'));
      }, this.timeoutMs);
      this.pending.set(id, { resolve, reject, timer });
      this.send({ jsonrpc: '2.0', id, method, params });
    });
  }

  subscribe(events) { return this.call('RPC.subscribe', { events }); }

  reportState(newState) {
    const oldState = this.state;
    this.state = newState;
    this.notify('ILifecycleManagement::onStateChange', { uid: this.uid, oldState, newState });
  }

  keepAlive() { this.notify('ILifecycleManagement::onKeepAlive', { uid: this.uid, state: this.state }); }

  notify(method, params) { this.send({ jsonrpc: '2.0', method, params }); }

  // Before the socket opens the message waits; after it closed it is dropped.
  send(message) {
    const text = JSON.stringify(message);
    const state = this.socket ? this.socket.readyState : 0; // 0 connecting, 1 open
    if (state === 1) this.socket.send(text);
    else if (state === 0) this.outbox.push(text);
  }

  receive(text) {
    let message;
    try { message = JSON.parse(text); } catch { return; }
    if (!message || typeof message !== 'object') return;
    if (typeof message.method !== 'string') return this.complete(message);
    if (message.id === undefined) return this.notified(message.method, message.params || {});
    this.answer(message);
  }

  complete(message) {
    const call = this.pending.get(message.id);
    if (!call) return;
    this.pending.delete(message.id);
    clearTimeout(call.timer);
    if (message.error) call.reject(new Error(message.error.message));
    else call.resolve(message.result);
  }

  notified(name, params) {
    if (name.startsWith('IServiceManager.')) this.onToken?.(name, params);
    else this.onNotification?.(name, params);
  }

  answer(message) {
    const method = Object.hasOwn(this.methods, message.method) ? this.methods[message.method] : null;
    if (typeof method !== 'function') {
      this.send({ jsonrpc: '2.0', id: message.id, error: { code: -32601, message: 'Method not found' } });
      return;
    }
    try {
      const result = method(message.params || {});
      this.send({ jsonrpc: '2.0', id: message.id, result: result === undefined ? null : result });
    } catch (error) {
      this.send({ jsonrpc: '2.0', id: message.id, error: { code: -32000, message: String(error?.message ?? error) } });
    }
  }

  failPending(reason) {
    for (const [id, call] of this.pending) {
      clearTimeout(call.timer);
      call.reject(new Error(reason));
      this.pending.delete(id);
    }
  }
}
