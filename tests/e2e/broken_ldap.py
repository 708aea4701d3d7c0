"""An LDAP server that sends what a test gives it, valid or not, over a local socket.

It takes any bind, answers every base search with `head` and gives for every subtree search the next
of `pages`: bytes to send as they are, or None to hang up. After the last page it stays silent.
The result codes of modifications are those of `modify`; `changes` notes how many of pwdLastSet each
made, `searches` the bytes of the subtree searches.
`message`, `entry` and the like make the bytes (RFC 4511, in BER).
"""

import contextlib
import socket
import threading
import urllib.parse

from rig import Rig

PAGED_RESULTS = b"1.2.840.113556.1.4.319"
SUCCESS, REFERRAL = 0, 10


def ber(tag, *parts):
    body = b"".join(parts)
    if len(body) < 0x80:
        return bytes([tag, len(body)]) + body
    length = len(body).to_bytes(4, "big")
    return bytes([tag, 0x84]) + length + body


def read_ber(data):
    """Tag and contents of the first element, and what is behind it."""
    size, at = data[1], 2
    if size >= 0x80:
        at += size & 0x7F
        size = int.from_bytes(data[2:at], "big")
    return data[0], data[at:at + size], data[at + size:]


def octets(text):
    return ber(0x04, text.encode() if isinstance(text, str) else text)


def message(number, operation, controls=b""):
    return ber(0x30, ber(0x02, number.to_bytes(2, "big")), operation, controls)


def result(tag, code=SUCCESS, text=""):
    return ber(tag, ber(0x0A, bytes([code])), octets(""), octets(text))


def entry(dn, **attributes):
    return ber(0x64, octets(dn), ber(0x30, *(
        ber(0x30, octets(name), ber(0x31, octets(value))) for name, value in attributes.items())))


def reference(uri):
    return ber(0x73, octets(uri))


def page_of(*operations, cookie=b"", code=SUCCESS):
    """A function from the message number to the bytes of a whole page."""
    paging = ber(0xA0, ber(0x30, octets(PAGED_RESULTS), octets(
        ber(0x30, ber(0x02, b"\0"), octets(cookie)))))
    return lambda number: b"".join(message(number, operation) for operation in operations) + message(
        number, result(0x65, code), paging)


class BrokenLdap(Rig):
    def __init__(self, pages, head=entry("DC=x", defaultNamingContext="DC=x", maxPwdAge="-600000000"),
                 bind=lambda number: message(number, result(0x61)), modify=()):
        super().__init__()
        self._pages = iter(pages)
        self._head = head
        self._bind = bind
        self._modify = iter(modify)
        self.changes = []
        self.searches = []

    def start(self):
        path = str(self.folder / "socket")
        self.uri = "ldapi://" + urllib.parse.quote(path, safe="")
        self._listener = self.enter_context(socket.socket(socket.AF_UNIX))
        self._listener.bind(path)
        self._listener.listen()
        thread = threading.Thread(target=self._serve)
        thread.start()
        self.callback(thread.join)
        self.callback(self._listener.shutdown, socket.SHUT_RDWR)

    def _serve(self):
        with contextlib.suppress(OSError):
            while True:
                peer, _ = self._listener.accept()
                with peer, contextlib.suppress(OSError, StopIteration):
                    self._converse(peer)

    def _converse(self, peer):
        while request := self._read(peer):
            number, operation, scope, data = request
            answer = None
            if operation == 0x60:
                answer = self._bind
            elif operation == 0x63 and scope == 0:
                answer = page_of(self._head)
            elif operation == 0x63:
                self.searches.append(data)
                answer = next(self._pages, lambda _: b"")
            elif operation == 0x66:
                self.changes.append(data.count(b"pwdLastSet"))
                code = next(self._modify)
                answer = lambda number, code=code: message(number, result(0x67, code))
            elif operation in (0x42, 0x50):
                continue
            if answer is None:
                return
            peer.sendall(answer(number))

    @staticmethod
    def _read(peer):
        """Message number, operation, of a search its scope, and all bytes."""
        data = peer.recv(65536)
        if not data:
            return None
        _, number, rest = read_ber(read_ber(data)[1])
        operation, body, _ = read_ber(rest)
        scope = read_ber(read_ber(body)[2])[1][0] if operation == 0x63 else 0
        return int.from_bytes(number, "big"), operation, scope, data
