"""A TCP proxy between the program and the simulated server that does to the stream what a plan says."""

import contextlib
import fcntl
import os
import select
import socket
import struct
import termios
import threading
import time

from soak_oracle import Link


class Pair:
    """One connection of the program and the one to the server behind it."""

    def __init__(self, client, server):
        self.client, self.server = client, server
        self.waiting = []  # bytes from the server as (due, bytes)
        self.link = Link()
        self.asked = b""
        self.server_over = server is None
        self.written = False  # nothing more goes to the program
        self.read = False  # nothing more comes from it
        self.left = False  # the program ended it
        self.mute = False  # the program is to end it: it hears nothing more on it

    def close(self):
        for end in (self.client, self.server):
            if end is not None:
                end.close()


class Proxy(threading.Thread):
    """Listens when the launch command has been run. The plan's `shape` cuts and delays, its `fault` strikes once when
    `fault_at` bytes have gone to the program. A later link than the first one is silent until `counting` is cleared."""

    def __init__(self, port, server_port, shape, fault=None, fault_at=0):
        super().__init__()
        self.server_port = server_port
        self.shape, self.fault, self.fault_at = shape, fault, fault_at
        self.listener = socket.socket()
        self.listener.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
        self.listener.bind(("127.0.0.1", port))
        self.pairs = []
        self.sent = 0
        self.struck = False
        self.held_until = 0.0
        self.counting = False  # nothing is said meanwhile
        self.failure = None
        self.listening = False
        self._wake_read, self._wake_write = os.pipe()

    def listen(self):
        """Called by the one who saw the launch command."""
        self.listener.listen(8)
        self.listening = True
        os.write(self._wake_write, b"l")

    def quiet(self):
        """True when nothing more can come to the program: the server ended its last link, or is held for ever. A link
        that the program has left itself is followed by another one."""
        pairs = list(self.pairs)
        if not pairs or not self.listening:
            return False
        return self.held_until > time.monotonic() + 60 or (pairs[-1].written and not pairs[-1].left)

    def close(self):
        os.write(self._wake_write, b"q")
        self.join()
        self.listener.close()
        for pair in self.pairs:
            pair.close()
        os.close(self._wake_read)
        os.close(self._wake_write)

    def links(self):
        return [pair.link for pair in self.pairs]

    def asked(self):
        return [pair.asked for pair in self.pairs]

    def run(self):
        try:
            while self._turn():
                pass
        except Exception as failure:  # pylint: disable=broad-except
            self.failure = failure

    def _held(self):
        return self.counting or time.monotonic() < self.held_until

    def _turn(self):
        readers = {self._wake_read: None}
        if self.listening:
            readers[self.listener.fileno()] = None
        for pair in self.pairs:
            if not pair.read:
                readers[pair.client.fileno()] = (pair, self._from_client)
            if not pair.server_over:
                readers[pair.server.fileno()] = (pair, self._from_server)
        ready, _, _ = select.select(list(readers), [], [], self._timeout())
        for descriptor in ready:
            if descriptor == self._wake_read:
                if b"q" in os.read(descriptor, 64):
                    return False
            elif readers[descriptor] is None:
                self._accept()
            else:
                pair, handle = readers[descriptor]
                if (handle == self._from_client and not pair.read) or (handle == self._from_server and not pair.server_over):
                    handle(pair)
        for pair in self.pairs:
            self._release(pair)
        return True

    def _timeout(self):
        if self.counting:
            return 0.005
        now = time.monotonic()
        due = [pair.waiting[0][0] for pair in self.pairs if pair.waiting and not pair.written]
        if not due:
            return 0.2
        return min(0.2, max(0.0, max(min(due), self.held_until) - now))

    def _accept(self):
        client, _ = self.listener.accept()
        client.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
        try:
            server = socket.create_connection(("127.0.0.1", self.server_port), timeout=10)
        except OSError:
            server = None
        self.counting = bool(self.pairs)
        self.pairs.append(Pair(client, server))

    def _from_client(self, pair):
        data = b""
        with contextlib.suppress(OSError):
            data = pair.client.recv(65536)
        pair.asked += data
        if data and pair.server is not None:
            with contextlib.suppress(OSError):
                pair.server.sendall(data)
        if data:
            return
        pair.read = pair.written = pair.left = True
        pair.waiting.clear()
        self._end_server(pair)

    def _from_server(self, pair):
        data = b""
        with contextlib.suppress(OSError):
            data = pair.server.recv(65536)
        if not data:
            self._end_server(pair)
            return
        if pair.mute:
            return
        now = time.monotonic()
        due = pair.waiting[-1][0] if pair.waiting else now
        for piece, pause in self.shape(data):
            due = max(due, now) + pause
            pair.waiting.append((due, piece))

    def _end_server(self, pair):
        if not pair.server_over:
            pair.server_over = True
            with contextlib.suppress(OSError):
                pair.server.shutdown(socket.SHUT_RDWR)

    def _release(self, pair):
        now = time.monotonic()
        while pair.waiting and not pair.written and pair.waiting[0][0] <= now and not self._held():
            self._deliver(pair, pair.waiting.pop(0)[1])
        if pair.server_over and not pair.waiting and not pair.written and not self._held():
            self.end_stream(pair)

    def _deliver(self, pair, data):
        if self.fault is not None and not self.struck and self.sent + len(data) >= self.fault_at:
            before = self.fault_at - self.sent
            self.put(pair, data[:before])
            pair.waiting.insert(0, (0.0, data[before:]))
            self.struck = True
            self.fault(self, pair)
        else:
            self.put(pair, data)

    # What faults are made of.

    def put(self, pair, data):
        """Says `data` to the program."""
        if pair.written or not data:
            return
        pair.link.said += data
        self.sent += len(data)
        try:
            pair.client.sendall(data)
        except OSError:
            pair.written = True

    def end_stream(self, pair):
        """The server's side ends in order; what the program still says is read."""
        pair.written = True
        with contextlib.suppress(OSError):
            pair.client.shutdown(socket.SHUT_WR)

    def close_link(self, pair):
        """Ends the link as a closing server does, without a reset: everything that was said arrives."""
        pair.waiting.clear()
        self.end_stream(pair)
        self._end_server(pair)

    def silence_link(self, pair):
        """Says nothing more on this link, until the program opens another one."""
        pair.mute = True
        pair.waiting.clear()

    def reset_link(self, pair, settled):
        """Breaks the link; `settled` when everything that was said is to have arrived before."""
        if settled:
            end = time.monotonic() + 5
            while self._unacknowledged(pair) and time.monotonic() < end:
                time.sleep(0.001)
        pair.link.certain = settled
        pair.link.unasked = not pair.asked
        pair.waiting.clear()
        pair.written = pair.read = True
        pair.client.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))
        pair.client.close()
        self._end_server(pair)

    def hold(self, seconds):
        """Nothing goes to the program for so long."""
        self.held_until = time.monotonic() + seconds

    @staticmethod
    def _unacknowledged(pair):
        return struct.unpack("i", fcntl.ioctl(pair.client.fileno(), termios.TIOCOUTQ, b"\0" * 4))[0]
