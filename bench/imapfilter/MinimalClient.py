#!/usr/bin/env python3
"""The floor: per rule one UID SEARCH and one UID MOVE, nothing else.

usage: MinimalClient.py PORT RULES_JSON      (RULES_JSON from everyday.py search)
Logs in as test/secret on 127.0.0.1:PORT, selects the INBOX, and for each
[folder, search key] searches and moves what it found (no MOVE when nothing
matched); prints the count per folder. Python's own cost is small beside
the server's: one process start (about 30 ms) and parsing the SEARCH answers.
The server must take long command lines (a UID set of tens of thousands of
messages in one MOVE).
"""
import imaplib, json, sys


def uid_set(uids):
    """Sorted UIDs as an IMAP set with runs folded: 1:3,7,9:10."""
    out, start, prev = [], None, None
    for u in sorted(uids):
        if start is None:
            start = prev = u
        elif u == prev + 1:
            prev = u
        else:
            out.append(str(start) if start == prev else "%d:%d" % (start, prev))
            start = prev = u
    if start is not None:
        out.append(str(start) if start == prev else "%d:%d" % (start, prev))
    return ",".join(out)


def main():
    port, rules = int(sys.argv[1]), json.load(open(sys.argv[2]))["rules"]
    imap = imaplib.IMAP4("127.0.0.1", port)
    imap.login("test", "secret")
    typ, _ = imap.select("INBOX")
    if typ != "OK":
        sys.exit("cannot select INBOX")
    total = 0
    for folder, key in rules:
        typ, data = imap.uid("SEARCH", key)
        if typ != "OK":
            sys.exit("%s: SEARCH %s failed: %s" % (folder, key, data))
        uids = [int(u) for u in b" ".join(d for d in data if d).split()]
        if uids:
            typ, data = imap.uid("MOVE", uid_set(uids), folder)
            if typ != "OK":
                sys.exit("%s: MOVE failed: %s" % (folder, data))
        total += len(uids)
        print("%s %d" % (folder, len(uids)))
    print("moved %d" % total)
    imap.logout()


if __name__ == "__main__":
    main()
