#!/usr/bin/env python3
"""A TCP proxy on 127.0.0.1 that counts the IMAP commands a client sends.

usage: CountingProxy.py LISTEN_PORT SERVER_PORT COUNT_FILE [DELAY_MS]
Every tagged client line ("a001 UID SEARCH ...") counts as one command; the
running totals by command name are rewritten to COUNT_FILE after each line;
removing COUNT_FILE starts the totals afresh.
Literals a client sends ({n}) are passed through without being counted.
COUNT_FILE.seconds gets the time by command name from the command to its
tagged answer (the server's work plus the transfer; both clients send one
command at a time).
DELAY_MS (default 0) holds every chunk that long before passing it on, in
both directions: half the round trip of a distant server, so that every
client pays the same round trips. Order is kept; bandwidth is not limited.
"""
import collections, json, os, queue, re, socket, sys, threading, time

listen_port, server_port, count_file = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3]
delay = (float(sys.argv[4]) if len(sys.argv) > 4 else 0.0) / 1000.0
counts = collections.Counter()
seconds = collections.Counter()
lock = threading.Lock()
command = re.compile(rb"^[^ \r\n]+ (UID )?([A-Za-z]+)")
literal = re.compile(rb"\{(\d+)\+?\}\r?\n$")


class Delayed:
    """Passes chunks on to `sock` `delay` seconds after they came in."""

    def __init__(self, sock):
        self.sock = sock
        self.chunks = queue.Queue()
        if delay > 0:
            threading.Thread(target=self._run, daemon=True).start()

    def sendall(self, data):
        if delay > 0:
            self.chunks.put((time.monotonic() + delay, data))
        else:
            self.sock.sendall(data)

    def close(self):
        if delay > 0:
            self.chunks.put((0, None))  # after everything queued before it
        else:
            shut(self.sock)

    def _run(self):
        try:
            while True:
                due, data = self.chunks.get()
                if data is None:
                    break
                wait = due - time.monotonic()
                if wait > 0:
                    time.sleep(wait)
                self.sock.sendall(data)
        except OSError:
            pass
        shut(self.sock)


def shut(sock):
    try:
        sock.shutdown(socket.SHUT_RDWR)
    except OSError:
        pass


def pump(src, dst, count, pending):
    buf = b""
    tail = b""
    skip = 0
    try:
        while True:
            data = src.recv(65536)
            if not data:
                break
            if not count:
                dst.sendall(data)
                # The answer to the pending command ends with its tagged line.
                if pending:
                    seen = tail + data
                    tag, name, start = pending[0]
                    if (b"\n" + tag + b" ") in seen:
                        with lock:
                            seconds[name] += time.monotonic() - start
                            with open(count_file + ".seconds", "w") as f:
                                json.dump({k: round(v, 3) for k, v in seconds.items()}, f)
                        pending.clear()
                    tail = seen[-64:]
                continue
            buf += data
            while True:
                if skip:
                    take = min(skip, len(buf))
                    buf, skip = buf[take:], skip - take
                    if skip:
                        break
                nl = buf.find(b"\n")
                if nl < 0:
                    break
                line, buf = buf[: nl + 1], buf[nl + 1 :]
                m = command.match(line)
                if m and line[:1] != b"+":
                    name = ((m.group(1) or b"") + m.group(2)).decode().upper()
                    with lock:
                        if not os.path.exists(count_file):
                            counts.clear()  # the script removed it: a new measurement
                            seconds.clear()
                        counts[name] += 1
                    pending[:] = [(line.split(b" ", 1)[0], name, time.monotonic())]
                    with lock:
                        with open(count_file, "w") as f:
                            json.dump(counts, f)
                lm = literal.search(line)
                if lm:
                    skip = int(lm.group(1))
            # Sent once read, so the clock runs before the server can answer.
            dst.sendall(data)
    except OSError:
        pass
    finally:
        shut(src)
        dst.close()


server = socket.socket()
server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
server.bind(("127.0.0.1", listen_port))
server.listen(16)
while True:
    client, _ = server.accept()
    upstream = socket.create_connection(("127.0.0.1", server_port))
    for sock in (client, upstream):
        sock.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)  # no extra wait on small writes
    pending = []  # [(tag, name, sent at)] of the command awaiting its answer
    threading.Thread(target=pump, args=(client, Delayed(upstream), True, pending), daemon=True).start()
    threading.Thread(target=pump, args=(upstream, Delayed(client), False, pending), daemon=True).start()
