// The page module against a socket that the test plays: calls of names that
// are no methods, callbacks that throw anything, and use before the socket
// opens. Exits 0 when all hold, else prints what failed and exits 1.
import assert from 'node:assert/strict';
import { VelmoraApp } from '../../../sdk/velmora-app.mjs';

class FakeSocket {
  constructor() { this.readyState = 0; this.sent = []; FakeSocket.last = this; }
  send(text) { this.sent.push(JSON.parse(text)); }
  open() { this.readyState = 1; this.onopen(); }
  deliver(message) { this.onmessage({ data: JSON.stringify(message) }); }
}

const app = new VelmoraApp({ url: 'ws://unused/', uid: '5', WebSocketImpl: FakeSocket });
app.reportState('RUNNING'); // before connect(): waits for the socket
const connected = app.connect();
const socket = FakeSocket.last;
app.keepAlive(); // while connecting
socket.open();
assert.deepEqual(socket.sent.map((m) => m.method),
  ['RPC.register', 'ILifecycleManagement::onStateChange', 'ILifecycleManagement::onKeepAlive']);
socket.deliver({ jsonrpc: '2.0', id: socket.sent[0].id, result: null });
await connected;

for (const name of ['constructor', 'toString', '__proto__', 'hasOwnProperty']) {
  socket.deliver({ jsonrpc: '2.0', id: name, method: name });
  assert.equal(socket.sent.at(-1).error?.code, -32601, name);
}
for (const thrown of [null, undefined, 0, 'text', new Error('failed')]) {
  app.onEvent = () => { throw thrown; };
  socket.deliver({ jsonrpc: '2.0', id: 9, method: 'IWindowEvent.handleEvent', params: { event: {} } });
  assert.equal(socket.sent.at(-1).id, 9, String(thrown));
  assert.equal(socket.sent.at(-1).error?.code, -32000, String(thrown));
}
console.log('ok');
