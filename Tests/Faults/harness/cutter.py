"""Stands between a client and a collector, and cuts connections when the reply to a request is on its way."""

import random
import select
import socket
import struct
import threading


class Cutter:
    """Listens on the collector's own address, for which the certificate is, at another port.

    The reply is sent after the commit, so that what is cut was stored, and its sender does not know."""

    def __init__(self, host: str, port: int, own_port: int, share: float, seed: int):
        self.url = f"https://{host}:{own_port}/v4/events"
        self.cut = self.replies = 0
        self._to, self._share, self._random = (host, port), share, random.Random(seed)
        self._server = socket.create_server((host, own_port))
        self._is_over = False
        threading.Thread(target=self._accept, daemon=True).start()

    def close(self):
        self._is_over = True
        self._server.close()

    def stop_cutting(self):
        self._share = 0

    def _accept(self):
        while not self._is_over:
            try:
                client, _ = self._server.accept()
            except OSError:
                return
            threading.Thread(target=self._serve, args=(client,), daemon=True).start()

    def _serve(self, client: socket.socket):
        with client:
            try:
                with socket.create_connection(self._to, 5) as server:
                    self._forward(client, server)
            except OSError:
                pass

    def _forward(self, client: socket.socket, server: socket.socket):
        """A request is much longer than what the client sends in a handshake, in its last flight of it."""
        asked = 0
        while not self._is_over:
            for ready in select.select([client, server], [], [], 1)[0]:
                piece = ready.recv(1 << 16)
                if not piece:
                    return
                if ready is client:
                    asked += len(piece)
                    server.sendall(piece)
                elif asked > 1200:
                    asked = 0
                    self.replies += 1
                    if self._random.random() < self._share:
                        self.cut += 1
                        client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
                        return
                    client.sendall(piece)
                else:
                    client.sendall(piece)
