#!/usr/bin/python3
"""kestrel serve under a bad day's load, on 127.0.0.1, printing the figures (not a test):
  - the echo round trip while 200 idle TCP connections and 32 silent associations are open;
  - peak resident memory of the server for one 220 MB object, and for 8 of them at once.
Usage: KESTREL_BIN=build/bin/kestrel bench/serve_limits.py
"""
import os
import socket
import sys
import tempfile
import threading

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "tests",
                                "interop"))
from serve_robustness_test import (CT_IMAGE, Peer, Serve, echo_seconds, image_head,  # noqa: E402
                                   peak_memory_mb, read_pdu, status_of, store_rq)

OBJECT_BYTES = 220 << 20


def echo_under_idle_load(store):
    server = Serve(store)
    try:
        idle = [socket.create_connection(("127.0.0.1", server.port)) for _ in range(200)]
        silent = [Peer(server.port) for _ in range(32)]
        seconds = [echo_seconds(server.port)[1] for _ in range(5)]
        for sock in idle + [peer.sock for peer in silent]:
            sock.close()
    finally:
        server.stop()
    return max(seconds), sorted(seconds)[len(seconds) // 2]


def peak_for_objects(store, count):
    server = Serve(store)
    statuses = []

    def send(index):
        instance = "1.2.3.4.%d" % (index + 10)
        peer = Peer(server.port, syntaxes=(CT_IMAGE,))
        peer.send(store_rq(CT_IMAGE, instance), command_set=True)
        peer.send(image_head(CT_IMAGE, instance, OBJECT_BYTES), last=False)
        peer.stream(OBJECT_BYTES)
        statuses.append(status_of(read_pdu(peer.sock, 600))[0])
        peer.close()

    try:
        threads = [threading.Thread(target=send, args=(i,)) for i in range(count)]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join(900)
        peak = peak_memory_mb(server.process.pid)
    finally:
        server.stop()
    return peak, statuses.count(0)


def main():
    with tempfile.TemporaryDirectory() as work:
        worst, median = echo_under_idle_load(os.path.join(work, "echo"))
        print("echo with 200 idle sockets and 32 silent associations: median %.1f ms, worst of 5 "
              "%.1f ms" % (median * 1000, worst * 1000))
        for count in (1, 8):
            peak, stored = peak_for_objects(os.path.join(work, "objects%d" % count), count)
            print("%d x %d MB object%s at once: %d stored, server peak RSS %.0f MB"
                  % (count, OBJECT_BYTES >> 20, "s" if count > 1 else "", stored, peak))


if __name__ == "__main__":
    main()
