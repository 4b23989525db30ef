"""Rule rows for `mailvane import`, shared by the benchmarks that compare
Mailvane with other programs on the same rules."""
import re
from xml.sax.saxutils import quoteattr


def xml_rows(folders_text, sample, rows):
    """The rowset of `sample` (resources/rules/sample-rules.xml) with `rows`:
    (destination, {column: value}) over a rule that tests nothing, run on the
    INBOX. folders_text is what `mailvane folders` printed (identifiers by
    path)."""
    ids, store = {}, ""
    for line in folders_text.splitlines():
        m = re.match(r"^  ([0-9A-F]+)  (\S+)", line)
        if m:
            ids[m.group(2)] = m.group(1)
        m = re.search(r"store ([0-9A-F]+)$", line)
        if m:
            store = m.group(1)
    head = sample[: sample.index("<rs:data>")]
    out = []
    for n, (dst, values) in enumerate(rows, 1):
        cols = {"FromAddress": "", "ToAddress": "", "CcAddress": "", "Subject": "", "Message": "",
                "Importance": "3", "Status": "2", "FlagStatus": "0", "MsgAgeID": "13", "LastVerb": "0"}
        cols.update(values)
        attrs = {"RuleID": str(n), "RuleName": dst, "SortID": str(n), "Active": "-1",
                 "SrcEntryID": ids.get("INBOX", ids.get("Inbox")), "SrcStoreID": store, "DstEntryID": ids[dst],
                 "DstStoreID": store}
        attrs.update(cols)
        out.append("\t<z:row " + " ".join("%s=%s" % (k, quoteattr(v)) for k, v in attrs.items()) + "/>")
    return head + "<rs:data>\n" + "\n".join(out) + "\n</rs:data>\n</xml>\n"
