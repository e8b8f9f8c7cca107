// A WebSocket client with the browser's shape (onopen, onmessage, onclose,
// send, close), on node's net and crypto: enough to drive the page module
// from a test without a browser. Text frames only, client-side masking.
import net from 'node:net';
import crypto from 'node:crypto';

export class MiniWebSocket {
  constructor(url) {
    const { hostname, port, pathname } = new URL(url);
    this.buffer = Buffer.alloc(0);
    this.open = false;
    this.socket = net.connect(Number(port), hostname, () => {
      const key = crypto.randomBytes(16).toString('base64');
      this.socket.write(`GET ${pathname} HTTP/1.1\r\nHost: ${hostname}:${port}\r\nUpgrade: websocket\r\n` +
        `Connection: Upgrade\r\nSec-WebSocket-Key: ${key}\r\nSec-WebSocket-Version: 13\r\n\r\n`);
    });
    this.socket.on('data', (chunk) => this.data(chunk));
    this.socket.on('close', () => this.onclose?.());
    this.socket.on('error', (error) => this.onerror?.(error));
  }

  send(text) { this.socket.write(this.frame(0x1, Buffer.from(text))); }

  close() { this.socket.end(this.frame(0x8, Buffer.alloc(0))); }

  frame(opcode, payload) {
    const mask = crypto.randomBytes(4);
    let header;
    if (payload.length < 126) header = Buffer.from([0x80 | opcode, 0x80 | payload.length]);
    else if (payload.length < 65536) {
      header = Buffer.alloc(4);
      header[0] = 0x80 | opcode; header[1] = 0x80 | 126; header.writeUInt16BE(payload.length, 2);
    } else {
      header = Buffer.alloc(10);
      header[0] = 0x80 | opcode; header[1] = 0x80 | 127; header.writeBigUInt64BE(BigInt(payload.length), 2);
    }
    const masked = Buffer.from(payload.map((byte, i) => byte ^ mask[i % 4]));
    return Buffer.concat([header, mask, masked]);
  }

  data(chunk) {
    this.buffer = Buffer.concat([this.buffer, chunk]);
    if (!this.open) {
      const end = this.buffer.indexOf('\r\n\r\n');
      if (end < 0) return;
      const head = this.buffer.subarray(0, end).toString();
      this.buffer = this.buffer.subarray(end + 4);
      if (!head.startsWith('HTTP/1.1 101')) { this.onerror?.(new Error(head)); this.socket.destroy(); return; }
      this.open = true;
      this.onopen?.();
    }
    for (let message; (message = this.nextFrame());) {
      if (message.opcode === 0x1) this.onmessage?.({ data: message.payload.toString() });
      else if (message.opcode === 0x9) this.socket.write(this.frame(0xA, message.payload));
      else if (message.opcode === 0x8) this.socket.end();
    }
  }

  nextFrame() {
    if (this.buffer.length < 2) return null;
    let length = this.buffer[1] & 0x7f;
    let offset = 2;
    if (length === 126) { if (this.buffer.length < 4) return null; length = this.buffer.readUInt16BE(2); offset = 4; }
    else if (length === 127) { if (this.buffer.length < 10) return null; length = Number(this.buffer.readBigUInt64BE(2)); offset = 10; }
    if (this.buffer.length < offset + length) return null;
    const frame = { opcode: this.buffer[0] & 0x0f, payload: this.buffer.subarray(offset, offset + length) };
    this.buffer = this.buffer.subarray(offset + length);
    return frame;
  }
}
