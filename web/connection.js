// The WebSocket: requests with a slot each, and answers that bear it.

export class Connection {
  constructor(onOpen, onClose) {
    this.handlers = new Map();
    this.onClose = onClose;
    this.onOpen = onOpen;
    this.open();
  }

  open() {
    this.socket = new WebSocket(`ws://${location.host}/ws`, "scansteps-view");
    this.socket.binaryType = "arraybuffer";
    this.socket.onopen = () => this.onOpen();
    this.socket.onclose = (event) => {
      this.onClose(event);
      // The program may come back on the same port, but with another token: one try is enough to see.
      if (event.code === 1013) setTimeout(() => this.open(), 5000);
    };
    this.socket.onmessage = (event) => this.receive(event.data);
  }

  receive(buffer) {
    const length = new DataView(buffer).getUint32(0, true);
    const head = JSON.parse(new TextDecoder().decode(new Uint8Array(buffer, 4, length)));
    const handler = this.handlers.get(head.slot);
    if (handler) handler(head, buffer, 4 + length);
  }

  /** Calls `handler(head, buffer, offset of the payload)` with every answer for that slot. */
  on(slot, handler) {
    this.handlers.set(slot, handler);
  }

  send(message) {
    if (this.socket.readyState === WebSocket.OPEN) this.socket.send(JSON.stringify(message));
  }

  ask(slot, what, request) {
    this.send({get: what, slot, ...request});
  }
}
