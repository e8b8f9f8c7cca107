// A JSON-RPC 2.0 peer over either transport of the box: a WebSocket (the
// server's port, a browser's DevTools) or a Unix socket with one JSON text a
// line (a platform service's endpoint). Calls carry a deadline; a peer that
// goes fails what is in flight. `onNotification(method, params)` hears the
// rest; `onClose()` runs once when the link is gone. DevTools speaks the same
// shape without the "jsonrpc" member (`open(url, { devtools: true })`).
import net from 'node:net';
import WebSocket from 'ws';

const TIMEOUT_MS = 5000;

export class RpcPeer {
  constructor(send, close, envelope = { jsonrpc: '2.0' }) {
    this.envelope = envelope;
    this.sendText = send;
    this.closeLink = close;
    this.nextId = 1;
    this.pending = new Map();
    this.onNotification = () => {};
    this.onClose = () => {};
    this.closed = false;
  }

  // Opens ws://... or a Unix socket path; resolves once the link is up.
  static open(address, { devtools = false } = {}) {
    return address.startsWith('ws') ? RpcPeer.openWebSocket(address, devtools ? {} : undefined)
      : RpcPeer.openUnix(address);
  }

  static openWebSocket(url, envelope) {
    return new Promise((resolve, reject) => {
      const socket = new WebSocket(url, { perMessageDeflate: false, maxPayload: 256 * 1024 * 1024 });
      const peer = new RpcPeer((text) => socket.send(text), () => socket.close(), envelope);
      socket.once('open', () => resolve(peer));
      socket.once('error', reject);
      socket.on('message', (data) => peer.receive(String(data)));
      socket.on('close', () => peer.gone('connection closed'));
    });
  }

  static openUnix(path) {
    return new Promise((resolve, reject) => {
      const socket = net.createConnection(path);
      const peer = new RpcPeer((text) => socket.write(`${text}\n`), () => socket.destroy());
      let buffered = '';
      socket.once('connect', () => resolve(peer));
      socket.once('error', reject);
      socket.on('data', (chunk) => {
        buffered += chunk;
        const lines = buffered.split('\n');
        buffered = lines.pop();
        for (const line of lines) if (line.trim()) peer.receive(line);
      });
      socket.on('close', () => peer.gone('connection closed'));
    });
  }

  call(method, params = {}) {
    if (this.closed) return Promise.reject(new Error('connection closed'));
    const id = this.nextId++;
    return new Promise((resolve, reject) => {
      const timer = setTimeout(() => {
        this.pending.delete(id);
        reject(new Error(`${method}: timed out`));
      }, TIMEOUT_MS);
      this.pending.set(id, { resolve, reject, timer });
      this.sendText(JSON.stringify({ ...this.envelope, id, method, params }));
    });
  }

  close() { this.closeLink(); }

  receive(text) {
    let message;
    try { message = JSON.parse(text); } catch { return; }
    if (typeof message?.method === 'string') {
      if (message.id === undefined) this.onNotification(message.method, message.params ?? {});
      return;
    }
    const call = this.pending.get(message?.id);
    if (!call) return;
    this.pending.delete(message.id);
    clearTimeout(call.timer);
    if (message.error) call.reject(new Error(message.error.message));
    else call.resolve(message.result);
  }

  gone(reason) {
    if (this.closed) return;
    this.closed = true;
    for (const call of this.pending.values()) {
      clearTimeout(call.timer);
      call.reject(new Error(reason));
    }
    this.pending.clear();
    this.onClose();
  }
}
