"""A large document through 'farlink print', against the system's own raw-socket print backend and against a
bare send loop, each a process of its own."""

import os
import statistics
import subprocess
import time

from report import Row

WHAT = "farlink print, 256 MiB"
CUPS_BACKEND = "/usr/lib/cups/backend/socket"
SIZE = 256 << 20
TRIPLES = 7


class Sent:
    """A document sent by a process: its processor and wall time, and the rate at which the peer got the bytes."""

    def __init__(self, peer, command, environment):
        start = time.monotonic()
        process = subprocess.Popen(command, env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                   stderr=subprocess.DEVNULL)
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
        self.wall = time.monotonic() - start
        self.processor = usage.ru_utime + usage.ru_stime
        size, seconds = peer.documents.get(timeout=10)
        if process.returncode != 0 or size != SIZE:
            raise RuntimeError(f"{command[0]} ended with status {process.returncode} and {size} bytes sent")
        self.rate = size / seconds


def rows(folder, peer, environment):
    document = f"{environment['TMPDIR']}/document"
    with open(document, "wb") as file:
        for _ in range(SIZE >> 20):
            file.write(os.urandom(1 << 20))
    farlink = f"{folder}/farlink"
    subprocess.run([farlink, "port", "add", "bench", "--server", "127.0.0.1", "--port", str(peer.port)],
                   env=environment, stdout=subprocess.DEVNULL, check=True)
    while not peer.documents.empty():  # of the rows before
        peer.documents.get()
    commands = ([farlink, "print", "--to", "bench", document],
                [CUPS_BACKEND, "1", "user", "title", "1", "", document],
                [f"{folder}/bare_send", document])
    cups_environment = {**environment, "DEVICE_URI": f"socket://127.0.0.1:{peer.port}/?waiteof=false"}
    triples = [[Sent(peer, command, cups_environment) for command in commands] for _ in range(TRIPLES)]

    def row(what, other, at_least, wanted, figure, **notes):
        ratios = [getattr(triple[0], figure) / getattr(triple[other], figure) for triple in triples]
        against = ("", "CUPS's `socket` backend", "bare `send` loop")[other]
        return Row(f"{WHAT}: {what}", against, at_least, wanted,
                   statistics.quantiles(ratios, n=4, method="inclusive"), notes)

    def middle(figure, which):
        return statistics.median(getattr(triple[which], figure) for triple in triples)

    return [row("processor time", 1, False, 1.0, "processor", farlink=middle("processor", 0),
                CUPS=middle("processor", 1), bare=middle("processor", 2)),
            row("rate at the peer", 1, True, 1.0, "rate"),
            row("rate at the peer", 2, True, 0.9, "rate", bytes_per_second=middle("rate", 0)),
            row("start to end, with waits", 1, False, None, "wall", seconds=middle("wall", 0))]
