#!/usr/bin/env python3
"""The everyday rules (bench/common/EverydayRules.h), for Mailvane and for
afew's MailMover over notmuch, on the corpus mv-corpus writes.

usage: everyday.py xml FOLDERS_OUTPUT SAMPLE_XML > rules.xml
       everyday.py afew > afew-config
FOLDERS_OUTPUT is what `mailvane folders` printed (identifiers by path).

Where the two cannot say the same thing, the notmuch query is the nearest:
- notmuch's to: covers To, Cc and Bcc; Mailvane's copy criterion only Cc;
- Mailvane's age windows are calendar-aligned (a month ago = the same day
  of the previous month, from the start of the day), notmuch's are N days;
- Mailvane's sender criterion is a substring test of the address or name,
  notmuch's a term match; on this corpus they pick the same messages.
"""
import os, sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "common"))
from rulerows import xml_rows  # noqa: E402

A = ["anna.berg@example.com", "carl.dahl@example.org", "erik.falk@example.net", "frida@corp.example",
     "gustav.lund@mail.test", "hanna@example.com", "jm@example.org", "asa.l@example.net",
     "zoe@corp.example", "sean.obrien@mail.test", "cdahl@example.com", "mgarcia@example.org"]

def anyof(prefix, values):
    return "(" + " OR ".join('%s:"%s"' % (prefix, v) for v in values) + ")"

# (destination, Mailvane columns, notmuch query); in run order.
RULES = [
    ("R01", {"Subject": "invoice"}, "subject:invoice"),
    ("R02", {"Subject": "meeting report"}, "subject:meeting AND subject:report"),
    ("R03", {"Subject": '"budget project"'}, 'subject:"budget project"'),
    ("R04", {"Subject": "review", "Status": "0"}, "subject:review AND tag:unread"),
    ("R05", {"FromAddress": A[0]}, 'from:"%s"' % A[0]),
    ("R06", {"FromAddress": ";".join(A[1:5]) + ";"}, anyof("from", A[1:5])),
    ("R07", {"FromAddress": "Anna Berg"}, 'from:"Anna Berg"'),
    ("R08", {"FromAddress": ";".join(A[5:8]) + ";", "Subject": "quarterly"}, anyof("from", A[5:8]) + " AND subject:quarterly"),
    ("R09", {"CcAddress": "Frida Holm"}, 'to:"Frida Holm"'),
    ("R10", {"Message": "wrote:"}, "body:wrote"),
    ("R11", {"Message": "update", "Subject": "agenda"}, "body:update AND subject:agenda"),
    ("R12", {"Status": "1", "MsgAgeID": "12"}, "NOT tag:unread AND date:..1year"),
    ("R13", {"FlagStatus": "2"}, "tag:flagged"),
    ("R14", {"LastVerb": "102"}, "tag:replied"),
    ("R15", {"LastVerb": "104"}, "tag:passed"),
    ("R16", {"MsgAgeID": "12"}, "date:..1year"),
    ("R17", {"FromAddress": A[8], "MsgAgeID": "11"}, 'from:"%s" AND date:..3months' % A[8]),
    ("R18", {"FromAddress": ";".join(A[9:11]) + ";", "Status": "0", "MsgAgeID": "7"},
     anyof("from", A[9:11]) + " AND tag:unread AND date:..1week"),
    ("R19", {"FlagStatus": "2", "FromAddress": A[11]}, 'tag:flagged AND from:"%s"' % A[11]),
    ("R20", {"Status": "1", "Subject": "travel", "MsgAgeID": "9"}, "NOT tag:unread AND subject:travel AND date:..1month"),
]


def afew():
    # MailMover takes the rules of a folder in order; a message goes to the
    # first whose query it matches, as Mailvane's run order moves it.
    moves = " ".join("'%s':%s" % (query.replace("'", "\\'"), dst) for dst, _, query in RULES)
    return "[MailMover]\nfolders = INBOX\nrename = False\nINBOX = %s\n" % moves


if sys.argv[1] == "afew":
    sys.stdout.write(afew())
else:
    rows = [(dst, columns) for dst, columns, _ in RULES]
    sys.stdout.write(xml_rows(open(sys.argv[2]).read(), open(sys.argv[3]).read(), rows))
