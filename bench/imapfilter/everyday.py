#!/usr/bin/env python3
"""The "everyday" rule set: twenty rules as people write them, emitted for
Mailvane (rule rows), imapfilter (Lua) and the minimal client (one SEARCH
key per rule).

usage: everyday.py lua PORT > config.lua
       everyday.py xml FOLDERS_OUTPUT SAMPLE_XML > rules.xml
       everyday.py search > rules.json      ([[folder, search key], ...])
       everyday.py table                    (the rules as a Markdown table)

Rules run in order on the INBOX; a message moved by one rule is not seen by
the next. Age windows are computed for today (UTC, the zone the benchmark
runs in). Mailvane aligns them to calendar boundaries: "older than 3 days"
is "delivered on or before the day three days ago", "older than a month" is
"before the last day of last month, 00:01". imapfilter and the minimal
client get the same cut-off as a date (BEFORE/SINCE look at the date
alone), which differs only for mail delivered in the minute after midnight
on the boundary day (or at 23:59:59 for day windows).

One rule keeps imapfilter's own age semantics on purpose (AGE_DIFFERS):
is_older(5) is "before the day five days ago", one day less than Mailvane's
"older than 5 days". It is the last rule, and its sender is tested by no
other age rule, so its difference cannot carry over into other rules.
"""
import datetime, json, sys

from rules import lua_config, xml_rows

TODAY = datetime.datetime.now(datetime.timezone.utc).date()
MONTHS = ("Jan", "Feb", "Mar", "Apr", "May", "Jun", "Jul", "Aug", "Sep", "Oct", "Nov", "Dec")


def imap_date(d):
    return "%d-%s-%d" % (d.day, MONTHS[d.month - 1], d.year)


def month_end(months_back):
    """Last day of the month `months_back` months before this one."""
    y, m = TODAY.year, TODAY.month - months_back
    while m < 1:
        y, m = y - 1, m + 12
    first_next = datetime.date(y + (m == 12), m % 12 + 1, 1)
    return first_next - datetime.timedelta(days=1)


# Mailvane's MsgAge rows used here and the date its aligned cut-off falls on.
AGE = {
    "1 year": ("12", datetime.date(TODAY.year - 1, 1, 1)),
    "2 months": ("10", month_end(2)),
    "1 month": ("9", month_end(1)),
    "3 days": ("15", TODAY - datetime.timedelta(days=2)),  # on or before today - 3
    "5 days": ("17", TODAY - datetime.timedelta(days=4)),
}

# The rule that keeps imapfilter's own is_older semantics.
AGE_DIFFERS = {"R20": "imapfilter is_older(5): before the day five days ago; Mailvane: on or before it"}

SENDERS3 = ["anna.berg@example.com", "carl.dahl@example.org", "erik.falk@example.net"]
SENDERS2 = ["hanna@example.com", "jm@example.org"]


def q(s):
    return '"%s"' % s


def lua_str(s):
    return "'%s'" % s


def any_of(keys):
    """IMAP OR of several keys (OR takes two operands)."""
    acc = keys[-1]
    for k in reversed(keys[:-1]):
        acc = "OR %s %s" % (k, acc)
    return acc


def before(label):
    return "BEFORE " + imap_date(AGE[label][1])


# (folder, description, Mailvane columns, imapfilter expression, SEARCH key)
RULES = [
    ("R01", "subject word: invoice", {"Subject": "invoice"},
     "inbox:contain_subject('invoice')", "SUBJECT invoice"),
    ("R02", 'subject phrase: "quarterly report"', {"Subject": '"quarterly report"'},
     "inbox:contain_subject('quarterly report')", 'SUBJECT "quarterly report"'),
    ("R03", "subject, both words: lunch party", {"Subject": "lunch party"},
     "(inbox:contain_subject('lunch') * inbox:contain_subject('party'))", "SUBJECT lunch SUBJECT party"),
    ("R04", "sender: billing@mail.test", {"FromAddress": "billing@mail.test"},
     "inbox:contain_from('billing@mail.test')", "FROM billing@mail.test"),
    ("R05", "one of three senders", {"FromAddress": ";".join(SENDERS3)},
     "(" + " + ".join("inbox:contain_from(%s)" % lua_str(a) for a in SENDERS3) + ")",
     any_of(["FROM " + a for a in SENDERS3])),
    ("R06", "sender name: IT Helpdesk", {"FromAddress": "IT Helpdesk"},
     "inbox:contain_from('IT Helpdesk')", 'FROM "IT Helpdesk"'),
    ("R07", "copy recipient: Nina Kowalska", {"CcAddress": "Nina Kowalska"},
     "inbox:contain_cc('Nina Kowalska')", 'CC "Nina Kowalska"'),
    # Mailvane's recipient criterion looks at To, Cc and Bcc.
    ("R08", "recipient: tom@example.net", {"ToAddress": "tom@example.net"},
     "(inbox:contain_to('tom@example.net') + inbox:contain_cc('tom@example.net') + inbox:contain_bcc('tom@example.net'))",
     any_of(["TO tom@example.net", "CC tom@example.net", "BCC tom@example.net"])),
    ("R09", 'body phrase: "backup server"', {"Message": '"backup server"'},
     "inbox:contain_body('backup server')", 'BODY "backup server"'),
    ("R10", "sender news@example.com, body: holiday", {"FromAddress": "news@example.com", "Message": "holiday"},
     "(inbox:contain_from('news@example.com') * inbox:contain_body('holiday'))", "FROM news@example.com BODY holiday"),
    ("R11", "unread, subject: shipping", {"Status": "0", "Subject": "shipping"},
     "(inbox:is_unseen() * inbox:contain_subject('shipping'))", "UNSEEN SUBJECT shipping"),
    ("R12", "flagged", {"FlagStatus": "2"}, "inbox:is_flagged()", "FLAGGED"),
    ("R13", "answered", {"LastVerb": "102"}, "inbox:is_answered()", "ANSWERED"),
    ("R14", "read, subject: minutes", {"Status": "1", "Subject": "minutes"},
     "(inbox:is_seen() * inbox:contain_subject('minutes'))", "SEEN SUBJECT minutes"),
    ("R15", "one of two senders, older than a year", {"FromAddress": ";".join(SENDERS2), "MsgAgeID": AGE["1 year"][0]},
     "((" + " + ".join("inbox:contain_from(%s)" % lua_str(a) for a in SENDERS2) + ") * inbox:arrived_before('%s'))"
     % imap_date(AGE["1 year"][1]),
     "(%s) %s" % (any_of(["FROM " + a for a in SENDERS2]), before("1 year"))),
    ("R16", "sender yuki@example.net, older than a month", {"FromAddress": "yuki@example.net", "MsgAgeID": AGE["1 month"][0]},
     "(inbox:contain_from('yuki@example.net') * inbox:arrived_before('%s'))" % imap_date(AGE["1 month"][1]),
     "FROM yuki@example.net " + before("1 month")),
    # The rest of yuki's mail: within the month (the rule above took the older).
    ("R17", "sender yuki@example.net, within a month", {"FromAddress": "yuki@example.net"},
     "(inbox:contain_from('yuki@example.net') * inbox:arrived_since('%s'))" % imap_date(AGE["1 month"][1]),
     "FROM yuki@example.net SINCE " + imap_date(AGE["1 month"][1])),
    ("R18", "subject: newsletter, older than 3 days", {"Subject": "newsletter", "MsgAgeID": AGE["3 days"][0]},
     "(inbox:contain_subject('newsletter') * inbox:arrived_before('%s'))" % imap_date(AGE["3 days"][1]),
     "SUBJECT newsletter " + before("3 days")),
    ("R19", "read, older than 2 months", {"Status": "1", "MsgAgeID": AGE["2 months"][0]},
     "(inbox:is_seen() * inbox:arrived_before('%s'))" % imap_date(AGE["2 months"][1]),
     "SEEN " + before("2 months")),
    ("R20", "sender priya@example.net, older than 5 days", {"FromAddress": "priya@example.net", "MsgAgeID": AGE["5 days"][0]},
     "(inbox:contain_from('priya@example.net') * inbox:is_older(5))",
     "FROM priya@example.net " + before("5 days")),
]


def lua(port):
    return lua_config(port, [(expr, dst) for dst, _, _, expr, _ in RULES])


def xml(folders_text, sample):
    return xml_rows(folders_text, sample, [(dst, cols) for dst, _, cols, _, _ in RULES])


def search():
    """What the minimal client reads: the SEARCH key of every rule, in order."""
    return {"rules": [[dst, key] for dst, _, _, _, key in RULES], "age_differs": AGE_DIFFERS}


def table():
    rows = ["| Folder | Rule | Mailvane | imapfilter | minimal client (SEARCH) |", "|---|---|---|---|---|"]
    for dst, text, cols, expr, key in RULES:
        mv = ", ".join("%s=%s" % kv for kv in cols.items())
        rows.append("| %s | %s | %s | `%s` | `%s` |" % (dst, text, mv.replace("|", "\\|"), expr, key))
    return "\n".join(rows) + "\n"


if __name__ == "__main__":
    what = sys.argv[1]
    if what == "lua":
        sys.stdout.write(lua(sys.argv[2]))
    elif what == "xml":
        sys.stdout.write(xml(open(sys.argv[2]).read(), open(sys.argv[3]).read()))
    elif what == "search":
        json.dump(search(), sys.stdout)
    else:
        sys.stdout.write(table())
