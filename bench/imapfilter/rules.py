#!/usr/bin/env python3
"""The twenty benchmark rules, written once, emitted for both programs.

usage: rules.py lua PORT > config.lua
       rules.py xml FOLDERS_OUTPUT SAMPLE_XML > rules.xml
FOLDERS_OUTPUT is what `mailvane folders` printed (identifiers by path).
"""
import datetime, os, sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "common"))
from rulerows import xml_rows  # noqa: E402

# (destination, kind, value): every kind is one criterion both programs have.
RULES = [
    ("R01", "from", "anna.berg@example.com"),
    ("R02", "from", "carl.dahl@example.org"),
    ("R03", "from", "erik.falk@example.net"),
    ("R04", "from", "gustav.lund@mail.test"),
    ("R05", "from", "billing@mail.test"),
    ("R06", "from", "news@example.com"),
    ("R07", "from", "helpdesk@example.org"),
    ("R08", "from", "priya@example.net"),
    ("R09", "subject", "invoice"),
    ("R10", "subject", "meeting"),
    ("R11", "subject", "budget"),
    ("R12", "subject", "travel"),
    ("R13", "subject", "contract"),
    ("R14", "subject", "deadline"),
    ("R15", "to", "nina.k@example.org"),
    ("R16", "to", "tom@example.net"),
    ("R17", "flagged", ""),
    ("R18", "answered", ""),
    ("R19", "unseen-subject", "shipping"),
    ("R20", "seen-older-year", ""),
]

LUA = {
    "from": "inbox:contain_from({v})",
    "subject": "inbox:contain_subject({v})",
    # Mailvane's recipient criterion looks at every recipient: To, Cc, Bcc.
    "to": "(inbox:contain_to({v}) + inbox:contain_cc({v}) + inbox:contain_bcc({v}))",
    "flagged": "inbox:is_flagged()",
    "answered": "inbox:is_answered()",
    "unseen-subject": "(inbox:is_unseen() * inbox:contain_subject({v}))",
    # Mailvane's "older than a year" with its default calendar alignment:
    # arrived before the first of January of last year.
    "seen-older-year": "(inbox:is_seen() * inbox:arrived_before('{year_start}'))",
}


def year_start():
    return "01-Jan-%d" % (datetime.date.today().year - 1)

# Rules columns: Mailvane's codes for the same criteria.
XML = {
    "from": {"FromAddress": "{v}"},
    "subject": {"Subject": "{v}"},
    "to": {"ToAddress": "{v}"},
    "flagged": {"FlagStatus": "2"},
    "answered": {"LastVerb": "102"},
    "unseen-subject": {"Status": "0", "Subject": "{v}"},
    "seen-older-year": {"Status": "1", "MsgAgeID": "12"},
}


def lua_config(port, moves):
    """An imapfilter config for the test account on `port` that moves, in
    order, what each (expression, destination) of `moves` selects."""
    out = [
        "options.timeout = 600",
        "options.subscribe = false",
        "options.create = false",
        "local account = IMAP {server = '127.0.0.1', port = %s, username = 'test', password = 'secret'}" % port,
        "local inbox = account.INBOX",
    ]
    for expr, dst in moves:
        out.append("%s:move_messages(account['%s']);" % (expr, dst))
    return "\n".join(out) + "\n"


def lua(port):
    return lua_config(port, [(LUA[kind].format(v="'%s'" % value, year_start=year_start()), dst)
                             for dst, kind, value in RULES])


def xml(folders_text, sample):
    rows = []
    for dst, kind, value in RULES:
        rows.append((dst, {k: v.format(v=value) for k, v in XML[kind].items()}))
    return xml_rows(folders_text, sample, rows)


if __name__ == "__main__":
    if sys.argv[1] == "lua":
        sys.stdout.write(lua(sys.argv[2]))
    else:
        sys.stdout.write(xml(open(sys.argv[2]).read(), open(sys.argv[3]).read()))
