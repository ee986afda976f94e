"""The peer of every row: a print server that opens each connection as a real one does, and then has the
system throw the document away as fast as it comes. One thread serves all connections."""

import contextlib
import queue
import selectors
import socket
import struct
import threading
import time

TAKEN_AT_ONCE = bytearray(1 << 20)  # only its size counts: MSG_TRUNC takes bytes off without copying them
KEEP_ALIVE_PERIOD = 2
BIND, READ, STATUS, KEEP_ALIVE, VERSION = 1, 2, 4, 18, 33


def frame(request, payload=b""):
    return struct.pack(">IIII", 2, request, 0, len(payload)) + payload


def status(job_state):
    return frame(STATUS, struct.pack(">HHHI", 0, job_state, job_state, 0))


class DrainingPeer(threading.Thread):
    def __init__(self):
        super().__init__(daemon=True)
        self.documents = queue.Queue()  # bytes, and seconds from the first to the last, of each that has ended
        self.selector = selectors.DefaultSelector()
        self.last_session = 0
        self.command_of_session = {}
        self.kept_alive = set()  # command connections
        self.port = self.listen()
        self.start()

    def listen(self):
        """On any free pair of ports: the data channel's, which it gives, and the one two above."""
        while True:
            data = socket.create_server(("127.0.0.1", 0), backlog=1024)
            with contextlib.suppress(OSError, OverflowError):
                port = data.getsockname()[1]
                command = socket.create_server(("127.0.0.1", port + 2), backlog=1024)
                self.selector.register(data, selectors.EVENT_READ, lambda: self.open_data(data.accept()[0]))
                self.selector.register(command, selectors.EVENT_READ, lambda: self.open_command(command.accept()[0]))
                return port

    def run(self):
        due = time.monotonic()
        while True:
            for key, _ in self.selector.select(0.5):
                with contextlib.suppress(OSError):  # the other side is gone, and its next event tells
                    key.data()
            if time.monotonic() > due:
                due += KEEP_ALIVE_PERIOD
                for connection in self.kept_alive:
                    with contextlib.suppress(OSError):
                        connection.sendall(frame(KEEP_ALIVE))

    def close(self, connection):
        self.selector.unregister(connection)
        connection.close()

    def open_data(self, connection):
        session = self.last_session = self.last_session % 0xFFFF + 1
        connection.sendall(struct.pack(">BHH", 2, 2, session) + b"\1\0\0")
        received, first = 0, 0.0

        def take():
            nonlocal received, first
            try:
                count = connection.recv_into(TAKEN_AT_ONCE, 0, socket.MSG_TRUNC)
            except ConnectionError:
                count = 0
            first = first or time.monotonic()
            received += count
            if count == 0:
                self.documents.put((received, time.monotonic() - first))
                self.close(connection)
                if session in self.command_of_session:
                    self.command_of_session.pop(session).sendall(status(7))

        self.selector.register(connection, selectors.EVENT_READ, take)

    def open_command(self, connection):
        arrived = b""

        def take():
            nonlocal arrived
            try:
                more = connection.recv(4096)
            except ConnectionError:
                more = b""
            if not more:
                self.kept_alive.discard(connection)
                self.close(connection)
            arrived += more
            while len(arrived) >= 16 and len(arrived) >= 16 + (size := struct.unpack(">I", arrived[12:16])[0]):
                self.answer(connection, struct.unpack(">I", arrived[4:8])[0], arrived[16:16 + size])
                arrived = arrived[16 + size:]

        self.selector.register(connection, selectors.EVENT_READ, take)
        self.kept_alive.add(connection)

    def answer(self, connection, request, payload):
        if request == BIND:
            self.command_of_session[struct.unpack(">H", payload)[0]] = connection
        if request == READ:  # never answered: from here on the server is silent
            self.kept_alive.discard(connection)
        elif request == STATUS:
            connection.sendall(status(2))
        elif request != KEEP_ALIVE:
            connection.sendall(frame(request, b"1.10" if request == VERSION else b""))
