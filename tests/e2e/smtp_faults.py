"""What stands in front of a mail server in the tests: a relay that misbehaves, a line that is slow.

Both listen on 127.0.0.1, on a port of their own, in threads that end with them.
"""
import collections
import contextlib
import selectors
import socket
import threading
import time

from rig import Rig

SILENT, BREAK, DIE = "silent", "break", "die"  # DIE: also takes no further connection


class _Relay(Rig):
    def __init__(self, upstream):
        super().__init__()
        self._upstream = upstream

    def start(self):
        self._listener = self.enter_context(socket.create_server(("127.0.0.1", 0)))
        self.port = self._listener.getsockname()[1]
        threading.Thread(target=self._accept, daemon=True).start()
        self.callback(self._stop)

    def _stop(self):
        with contextlib.suppress(OSError):  # stopped already
            self._listener.shutdown(socket.SHUT_RDWR)

    def _accept(self):
        with contextlib.suppress(OSError):
            while True:
                threading.Thread(target=self._connected, args=self._listener.accept()[:1],
                                 daemon=True).start()

    def _connected(self, client):
        with contextlib.suppress(OSError), client, \
                socket.create_connection(("127.0.0.1", self._upstream)) as server:
            self._serve(client, server)


class FaultRelay(_Relay):
    """Passes commands and replies on, one after another, but for what `fault` wants."""
    fault = staticmethod(lambda mail, verb: None)
    """fault(mail, verb): SILENT, BREAK, DIE, or a reply in place of the server's; None: none. Mails
    count from 1, by MAIL; the greeting's verb is "", that of the end of a text is "."."""
    mails = 0

    def _serve(self, client, server):
        requests, replies = client.makefile("rb"), server.makefile("rb")
        line, verb = b"", ""
        while True:
            if verb == "MAIL":
                self.mails += 1
            action = self.fault(self.mails, verb)
            if action == DIE:
                self._stop()
            if action in (BREAK, DIE):
                return
            if action == SILENT:
                requests.read()
                return
            if action:
                client.sendall(action)
                if verb == ".":  # the server waits for the rest of the text
                    return
            else:
                server.sendall(line)
                reply = replies.readline()
                while reply[-1:] == b"\n" and reply.splitlines()[-1][3:4] == b"-":
                    reply += replies.readline()
                client.sendall(reply)
                if reply.startswith(b"354"):
                    line, verb = b"", "."
                    while not line.endswith(b"\r\n.\r\n"):
                        line += requests.readline() or b"\r\n.\r\n"
                    continue
            line = requests.readline()
            verb = line[:4].decode().strip().upper()
            if not line:
                return


class SlowLine(_Relay):
    """Passes all bytes on, each so many seconds later."""

    def __init__(self, upstream, seconds):
        super().__init__(upstream)
        self._seconds = seconds

    def _serve(self, client, server):
        other, waiting = {client: server, server: client}, collections.deque()
        with selectors.DefaultSelector() as selector:
            for end in other:
                end.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
                selector.register(end, selectors.EVENT_READ)
            while True:
                left = waiting[0][0] - time.monotonic() if waiting else None
                for key, _ in selector.select(None if left is None else max(left, 0)):
                    data = key.fileobj.recv(65536)
                    waiting.append((time.monotonic() + self._seconds, other[key.fileobj], data))
                    if not data:
                        selector.unregister(key.fileobj)
                while waiting and waiting[0][0] <= time.monotonic():
                    _, to, data = waiting.popleft()
                    if not data:
                        return
                    to.sendall(data)
