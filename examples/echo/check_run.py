#!/usr/bin/env python3
"""Runs the echo server with many clients: each gets back what it has sent, the server keeps nothing
of those who have gone, and ends in order.

    check_run.py [EMULATOR...] ECHO"""

import os
import pathlib
import random
import re
import resource
import selectors
import signal
import socket
import subprocess
import sys
import time

sys.path.insert(0, str(pathlib.Path(__file__).parents[1]))
from checks import PATIENCE, await_true, check


class Server:
    def __init__(self, descriptors=None):
        limit = descriptors and (lambda: resource.setrlimit(resource.RLIMIT_NOFILE,
                                                            (descriptors, descriptors)))
        self.process = subprocess.Popen([*sys.argv[1:], "0"], text=True, stdout=subprocess.PIPE,
                                        preexec_fn=limit)
        self.port = int(re.search(r":(\d+) ", self.process.stdout.readline())[1])
        self.idle = self.descriptors()

    def descriptors(self):
        return len(os.listdir(f"/proc/{self.process.pid}/fd"))

    def processor_time(self):
        with open(f"/proc/{self.process.pid}/stat", encoding="ascii") as file:
            user, system = file.read().rpartition(")")[2].split()[11:13]
        return (int(user) + int(system)) / os.sysconf("SC_CLK_TCK")

    def connect(self):
        client = socket.create_connection(("127.0.0.1", self.port), PATIENCE)
        client.settimeout(PATIENCE)
        return client

    def end(self, signal_number, accepted):
        self.process.send_signal(signal_number)
        said, _ = self.process.communicate(timeout=PATIENCE)
        check(self.process.returncode == 0, f"exit code 0 after {signal_number}")
        check(said == f"{accepted} clients served\n", f"{accepted} clients: {said}")


def exchange(clients, size):
    """Sends random bytes from each client, all at once, and looks whether they come back."""
    pick = random.Random(size)
    texts = {client: pick.randbytes(pick.randrange(1, size)) for client in clients}
    sent = dict.fromkeys(clients, 0)
    echo = {client: bytearray() for client in clients}
    with selectors.DefaultSelector() as selector:
        for client in clients:
            client.setblocking(False)
            selector.register(client, selectors.EVENT_READ | selectors.EVENT_WRITE)
        while selector.get_map():
            ready = selector.select(PATIENCE)
            check(ready, "all that was sent comes back")
            for key, events in ready:
                client = key.fileobj
                if events & selectors.EVENT_WRITE:
                    sent[client] += client.send(texts[client][sent[client]:])
                    if sent[client] == len(texts[client]):
                        selector.modify(client, selectors.EVENT_READ)
                if events & selectors.EVENT_READ:
                    echo[client] += client.recv(65536)
                    if len(echo[client]) >= len(texts[client]):
                        selector.unregister(client)
    for client in clients:
        client.settimeout(PATIENCE)
        check(echo[client] == texts[client], "what comes back is what was sent")


def serve_many():
    """200 clients: small and large texts, some that go in the middle, some that are left."""
    server = Server()
    clients = [server.connect() for _ in range(200)]
    exchange(clients, 100)
    exchange(clients[:20], 2_000_000)
    clients.pop().send(b"gone before the echo")  # and by that a reset
    for client in clients[:150]:
        client.close()
    await_true(lambda: server.descriptors() == server.idle + 49, "those who left are gone")
    exchange(clients[150:], 1000)
    server.end(signal.SIGINT, 200)
    check(all(client.recv(1) == b"" for client in clients[150:]), "the others see the end")


def hold_back():
    """A client that does not read is not read from, while others are served."""
    server = Server()
    deaf, other = server.connect(), server.connect()
    deaf.settimeout(0.5)
    taken = 0
    try:
        while taken < 1_000_000_000:
            taken += deaf.send(bytes(65536))
    except TimeoutError:
        pass
    check(taken < 1_000_000_000, "the server does not take without end")
    exchange([other], 1000)
    deaf.settimeout(PATIENCE)
    while taken > 0:
        taken -= len(deaf.recv(1_000_000))
    exchange([deaf], 1000)
    server.end(signal.SIGTERM, 2)


def run_out():
    """More clients than descriptors: they wait for those who leave."""
    server = Server(descriptors=40)
    clients = [server.connect() for _ in range(60)]
    await_true(lambda: server.descriptors() == 40, "all descriptors are used")
    before = server.processor_time()
    time.sleep(0.5)
    check(server.processor_time() - before < 0.2, "a server without room does not spin")
    for client in clients:
        exchange([client], 100)
        client.close()
    await_true(lambda: server.descriptors() == server.idle, "nobody is left")
    server.end(signal.SIGINT, 60)


def main():
    serve_many()
    hold_back()
    run_out()
    for arguments in [], ["70000"], ["x"], ["1", "2"]:
        refused = subprocess.run([*sys.argv[1:], *arguments], stderr=subprocess.DEVNULL, check=False)
        check(refused.returncode == 2, f"{arguments} is no port")


if __name__ == "__main__":
    main()
