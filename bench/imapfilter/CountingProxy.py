#!/usr/bin/env python3
"""A TCP proxy on 127.0.0.1 that counts the IMAP commands a client sends.

usage: CountingProxy.py LISTEN_PORT SERVER_PORT COUNT_FILE
Every tagged client line ("a001 UID SEARCH ...") counts as one command; the
running totals by command name are rewritten to COUNT_FILE after each line;
removing COUNT_FILE starts the totals afresh.
Literals a client sends ({n}) are passed through without being counted.
"""
import collections, json, os, re, socket, sys, threading

listen_port, server_port, count_file = int(sys.argv[1]), int(sys.argv[2]), sys.argv[3]
counts = collections.Counter()
lock = threading.Lock()
command = re.compile(rb"^[^ \r\n]+ (UID )?([A-Za-z]+)")
literal = re.compile(rb"\{(\d+)\+?\}\r?\n$")


def pump(src, dst, count):
    buf = b""
    skip = 0
    try:
        while True:
            data = src.recv(65536)
            if not data:
                break
            dst.sendall(data)
            if not count:
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
                        counts[name] += 1
                        with open(count_file, "w") as f:
                            json.dump(counts, f)
                lm = literal.search(line)
                if lm:
                    skip = int(lm.group(1))
    except OSError:
        pass
    finally:
        for s in (src, dst):
            try:
                s.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass


server = socket.socket()
server.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
server.bind(("127.0.0.1", listen_port))
server.listen(16)
while True:
    client, _ = server.accept()
    upstream = socket.create_connection(("127.0.0.1", server_port))
    threading.Thread(target=pump, args=(client, upstream, True), daemon=True).start()
    threading.Thread(target=pump, args=(upstream, client, False), daemon=True).start()
