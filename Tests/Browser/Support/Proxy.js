// A proxy between browser and inspector whose connections can be cut, as a network does.

import { once } from 'node:events';
import { createServer, request } from 'node:http';

export class Proxy {
  #sockets = new Set();
  #isCut = false;

  static async start() {
    const proxy = new Proxy();
    proxy.server = createServer((incoming, outgoing) => proxy.#pass(incoming, outgoing));
    proxy.server.on('connection', (socket) => proxy.#accept(socket));
    proxy.server.listen(0, '127.0.0.1');
    await once(proxy.server, 'listening');
    proxy.address = `http://127.0.0.1:${proxy.server.address().port}`;
    return proxy;
  }

  /** Ends all connections, and every one that is made from now on. */
  cut() {
    this.#isCut = true;
    for (const socket of this.#sockets) socket.destroy();
  }

  mend() {
    this.#isCut = false;
  }

  end() {
    this.cut();
    this.server.close();
  }

  #accept(socket) {
    if (this.#isCut) {
      socket.destroy();
      return;
    }
    this.#sockets.add(socket);
    socket.on('close', () => this.#sockets.delete(socket));
    socket.on('error', () => {});
  }

  #pass(incoming, outgoing) {
    const { hostname, port, pathname, search } = new URL(incoming.url);
    const passed = request({ hostname, port, path: pathname + search, method: incoming.method, headers: incoming.headers }, (answer) => {
      outgoing.writeHead(answer.statusCode, answer.rawHeaders);
      answer.pipe(outgoing);
    });
    passed.on('error', () => outgoing.destroy());
    outgoing.on('close', () => passed.destroy());
    incoming.pipe(passed);
  }
}
