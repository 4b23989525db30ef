#!/usr/bin/env python3
"""Mailvane, imapfilter and the minimal client side by side on the
"everyday" rules (everyday.py), on loopback and behind a proxy that adds a
round trip (CountingProxy.py with a delay), in one run. Run as root
(Dovecot drops to nobody).

    python3 bench/imapfilter/sidebyside.py [BUILD_DIR] [COUNT]   (build/release 50000)

For every program, mode and round: a fresh copy of the mail, a first pass
(one-off process) and "again" (the same rules, nothing left to move), each
under /usr/bin/time -v. Programs are alternated (the order turns round every
round); figures are medians over the rounds. After every first pass the
Message-IDs in each rule's folder are listed and compared with Mailvane's.

Environment: MV_BENCH_RTT_MS (40) the round trip of the latency mode;
MV_BENCH_ROUNDS (2); MV_BENCH_MODES ("loopback,rtt"); MV_BENCH_PROGRAMS
("mailvane,imapfilter,minimal"); MV_BENCH_WORK=DIR keeps the work folder and
reuses its corpus when the count matches. Results go to DIR/report.md and
DIR/results.json (rewritten after every run); MV_BENCH_REPORT=results.json
prints the report of an earlier run again (same COUNT and rules).
"""
import json, os, re, shutil, socket, statistics, subprocess, sys, time

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(os.path.dirname(HERE))
sys.path.insert(0, HERE)
import everyday  # noqa: E402

build = os.path.abspath(sys.argv[1] if len(sys.argv) > 1 else os.path.join(ROOT, "build/release"))
count = int(sys.argv[2]) if len(sys.argv) > 2 else 50000
rtt_ms = float(os.environ.get("MV_BENCH_RTT_MS", "40"))
rounds = int(os.environ.get("MV_BENCH_ROUNDS", "2"))
modes = os.environ.get("MV_BENCH_MODES", "loopback,rtt").split(",")
programs = os.environ.get("MV_BENCH_PROGRAMS", "mailvane,imapfilter,minimal").split(",")
work = os.environ.get("MV_BENCH_WORK") or subprocess.check_output(["mktemp", "-d", "/tmp/mv-sidebyside.XXXXXX"]).decode().strip()
os.makedirs(work, exist_ok=True)
work = os.path.abspath(work)
maildir = os.path.join(work, "home/test/Maildir")
FOLDERS = [r[0] for r in everyday.RULES]


def free_port():
    s = socket.socket()
    s.bind(("127.0.0.1", 0))
    port = s.getsockname()[1]
    s.close()
    return port


port, proxy_port = free_port(), free_port()
while proxy_port == port:
    proxy_port = free_port()


def sh(*args, **kw):
    return subprocess.run(args, check=True, **kw)


def write_dovecot_conf():
    with open(os.path.join(work, "dovecot.conf"), "w") as f:
        f.write(f"""base_dir = {work}/run
state_dir = {work}/state
log_path = {work}/dovecot.log
protocols = imap
listen = 127.0.0.1
ssl = no
disable_plaintext_auth = no
# The minimal client moves each rule's matches in one command.
imap_max_line_length = 4M
passdb {{
  driver = passwd-file
  args = {work}/passwd
}}
userdb {{
  driver = passwd-file
  args = {work}/passwd
  default_fields = uid=nobody gid=nogroup home={work}/home/%u
}}
mail_location = maildir:~/Maildir
service imap-login {{
  inet_listener imap {{
    address = 127.0.0.1
    port = {port}
  }}
  inet_listener imaps {{
    port = 0
  }}
}}
service stats {{
  inet_listener http {{
    port = 0
  }}
}}
""")
    with open(os.path.join(work, "passwd"), "w") as f:
        f.write("test:{PLAIN}secret::::\n")
    os.chmod(work, 0o755)
    os.chmod(os.path.join(work, "passwd"), 0o644)


def dovecot_up():
    sh("/usr/sbin/dovecot", "-c", os.path.join(work, "dovecot.conf"))
    for _ in range(100):
        try:
            socket.create_connection(("127.0.0.1", port), timeout=1).close()
            return
        except OSError:
            time.sleep(0.1)
    sys.exit("dovecot did not start; see " + os.path.join(work, "dovecot.log"))


def dovecot_down():
    pidfile = os.path.join(work, "run/master.pid")
    if not os.path.exists(pidfile):
        return
    pid = int(open(pidfile).read())
    try:
        os.kill(pid, 15)
    except ProcessLookupError:
        return
    for _ in range(100):
        try:
            os.kill(pid, 0)
            time.sleep(0.05)
        except ProcessLookupError:
            break
    time.sleep(0.2)


def fresh_copy():
    shutil.rmtree(os.path.join(work, "home"), ignore_errors=True)
    sh("cp", "-a", os.path.join(work, "pristine"), os.path.join(work, "home"))


def make_corpus():
    marker = os.path.join(work, "pristine.count")
    if os.path.exists(marker) and open(marker).read().strip() == str(count):
        print("Reusing the indexed corpus in", work, flush=True)
        return
    shutil.rmtree(os.path.join(work, "home"), ignore_errors=True)
    shutil.rmtree(os.path.join(work, "pristine"), ignore_errors=True)
    for sub in ("cur", "new", "tmp"):
        os.makedirs(os.path.join(maildir, sub))
    # Dates fall in the three years before now, so that age windows of days
    # and months hit.
    now = time.strftime("%Y-%m-%dT%H:00:00Z", time.gmtime(time.time() - 3600))
    print("Writing %d messages..." % count, flush=True)
    sh(os.path.join(build, "tools/corpus/mv-corpus"), "--seed", "7", "--count", str(count), "--out", maildir,
       "--no-attachments", "--now", now, stdout=subprocess.DEVNULL)
    # Everything goes to the INBOX: every program sorts the same messages.
    for name in os.listdir(maildir):
        if name.startswith(".") and os.path.isdir(os.path.join(maildir, name)):
            src = os.path.join(maildir, name, "cur")
            for f in os.listdir(src) if os.path.isdir(src) else []:
                os.rename(os.path.join(src, f), os.path.join(maildir, "cur", f))
            shutil.rmtree(os.path.join(maildir, name))
    for folder in FOLDERS:
        for sub in ("cur", "new", "tmp"):
            os.makedirs(os.path.join(maildir, "." + folder, sub))
        open(os.path.join(maildir, "." + folder, "maildirfolder"), "w").close()
    sh("chown", "-R", "nobody:nogroup", os.path.join(work, "home"))
    # Dovecot indexes the INBOX once before any program sees it.
    dovecot_up()
    import imaplib
    m = imaplib.IMAP4("127.0.0.1", port)
    m.login("test", "secret")
    print("INBOX indexed:", m.status("INBOX", "(MESSAGES UIDVALIDITY)")[1][0].decode(), flush=True)
    m.logout()
    dovecot_down()
    sh("cp", "-a", os.path.join(work, "home"), os.path.join(work, "pristine"))
    with open(marker, "w") as f:
        f.write(str(count))


def mv_env(p):
    home = os.path.join(work, "mvhome-%d" % p)
    env = dict(os.environ, HOME=home, XDG_DATA_HOME=home + "/data", XDG_CONFIG_HOME=home + "/config",
               XDG_CACHE_HOME=home + "/cache")
    return env, [os.path.join(build, "host/mailvane"), "--profile", os.path.join(work, "profile-%d.ini" % p)]


def mv_setup(p):
    """A Mailvane home per port (the store's identity holds the port) with the
    rules imported, kept as a pristine copy for every first pass."""
    home = os.path.join(work, "mvhome-%d" % p)
    shutil.rmtree(home, ignore_errors=True)
    os.makedirs(home)
    profile = os.path.join(work, "profile-%d.ini" % p)
    with open(profile, "w") as f:
        f.write("[Bench]\ntype=imap\nhost=127.0.0.1\nport=%d\ntls=none\nuser=test\npassword=secret\ntimeout=600\n" % p)
    os.chmod(profile, 0o600)
    env, cmd = mv_env(p)
    folders = subprocess.run(cmd + ["folders"], env=env, check=True, capture_output=True, text=True).stdout
    sample = open(os.path.join(ROOT, "resources/rules/sample-rules.xml")).read()
    xml = os.path.join(work, "rules-%d.xml" % p)
    with open(xml, "w") as f:
        f.write(everyday.xml(folders, sample))
    subprocess.run(cmd + ["import", xml], env=env, check=True, capture_output=True)
    shutil.rmtree(home + ".pristine", ignore_errors=True)
    shutil.copytree(home, home + ".pristine", symlinks=True)


def command(program, p):
    """(env, argv, before-first-pass) for one program against port p."""
    if program == "mailvane":
        env, cmd = mv_env(p)
        home = os.path.join(work, "mvhome-%d" % p)

        def reset():
            shutil.rmtree(home, ignore_errors=True)
            shutil.copytree(home + ".pristine", home, symlinks=True)
        return env, cmd + ["run"], reset
    if program == "imapfilter":
        cfg = os.path.join(work, "config-%d.lua" % p)
        return dict(os.environ, HOME=os.path.join(work, "ifhome")), ["imapfilter", "-c", cfg], lambda: None
    return dict(os.environ), [sys.executable, os.path.join(HERE, "MinimalClient.py"), str(p),
                              os.path.join(work, "minimal.json")], lambda: None


def timed(env, argv, tag):
    tfile = os.path.join(work, tag + ".time")
    with open(os.path.join(work, tag + ".out"), "w") as out:
        start = time.monotonic()
        rc = subprocess.run(["/usr/bin/time", "-v", "-o", tfile] + argv, env=env, stdout=out,
                            stderr=subprocess.STDOUT).returncode
        wall = time.monotonic() - start
    text = open(tfile).read()
    cpu = sum(float(m) for m in re.findall(r"(?:User|System) time \(seconds\): ([\d.]+)", text))
    rss = int(re.search(r"Maximum resident set size \(kbytes\): (\d+)", text).group(1))
    return {"wall": round(wall, 3), "cpu": round(cpu, 2), "rss_mb": round(rss / 1024, 1), "rc": rc}


MSGID = re.compile(rb"^Message-ID:\s*(<[^>\r\n]*>)", re.I | re.M)


def moved_ids():
    out = {}
    for folder in FOLDERS:
        ids = []
        for sub in ("cur", "new"):
            d = os.path.join(maildir, "." + folder, sub)
            for name in os.listdir(d):
                with open(os.path.join(d, name), "rb") as f:
                    head = f.read(8192).split(b"\n\n", 1)[0]
                m = MSGID.search(head)
                ids.append(m.group(1).decode() if m else "?" + name)
        out[folder] = sorted(ids)
    return out


def counts_of(path):
    try:
        return json.load(open(path))
    except (OSError, ValueError):
        return {}


def main():
    write_dovecot_conf()
    make_corpus()
    proxy = subprocess.Popen([sys.executable, os.path.join(HERE, "CountingProxy.py"), str(proxy_port), str(port),
                              os.path.join(work, "counts.json"), str(rtt_ms / 2)])
    results = []
    try:
        fresh_copy()
        dovecot_up()
        if "mailvane" in programs:
            for p in (port, proxy_port):
                mv_setup(p)
        dovecot_down()
        for p in (port, proxy_port):
            with open(os.path.join(work, "config-%d.lua" % p), "w") as f:
                f.write(everyday.lua(p))
        os.makedirs(os.path.join(work, "ifhome/.imapfilter"), exist_ok=True)
        with open(os.path.join(work, "minimal.json"), "w") as f:
            json.dump(everyday.search(), f)

        for r in range(rounds):
            order = programs if r % 2 == 0 else list(reversed(programs))
            for mode in modes:
                p = proxy_port if mode == "rtt" else port
                for program in order:
                    env, argv, reset = command(program, p)
                    reset()
                    fresh_copy()
                    dovecot_up()
                    row = {"round": r, "mode": mode, "program": program}
                    for phase in ("first", "again"):
                        counts = os.path.join(work, "counts.json")
                        for f in (counts, counts + ".seconds"):
                            if os.path.exists(f):
                                os.remove(f)
                        tag = "%s-%s-%s-%d" % (program, mode, phase, r)
                        row[phase] = timed(env, argv, tag)
                        if mode == "rtt":
                            row[phase]["commands"] = counts_of(counts)
                            row[phase]["seconds"] = counts_of(counts + ".seconds")
                        if phase == "first":
                            row["ids"] = moved_ids()
                            row["moved"] = sum(len(v) for v in row["ids"].values())
                    dovecot_down()
                    print("%s %-8s %-10s first %6.2f s  again %6.2f s  moved %d" % (
                        r, mode, program, row["first"]["wall"], row["again"]["wall"], row["moved"]), flush=True)
                    results.append(row)
                    # Kept after every run: a run cut short still reports.
                    json.dump(results, open(os.path.join(work, "results.json"), "w"))
    finally:
        proxy.terminate()
        dovecot_down()
    json.dump(results, open(os.path.join(work, "results.json"), "w"))
    report = render(results)
    open(os.path.join(work, "report.md"), "w").write(report)
    print(report)
    print("(work folder: %s)" % work)


def med(values):
    return statistics.median(values) if values else float("nan")


def render(results):
    lines = ["Messages: %d; rules: %d; rounds: %d; round trip in the latency mode: %g ms" % (
        count, len(FOLDERS), rounds, rtt_ms), ""]
    lines += ["| Mode | Program | First pass (median) | Again (median) | CPU first / again | Peak RSS | Moved | Commands first / again |",
              "|---|---|---|---|---|---|---|---|"]
    for mode in modes:
        for program in programs:
            rows = [x for x in results if x["mode"] == mode and x["program"] == program]
            if not rows:
                continue
            first = med([x["first"]["wall"] for x in rows])
            again = med([x["again"]["wall"] for x in rows])
            cpu = "%.2f / %.2f s" % (med([x["first"]["cpu"] for x in rows]), med([x["again"]["cpu"] for x in rows]))
            rss = max(max(x["first"]["rss_mb"], x["again"]["rss_mb"]) for x in rows)
            moved = sorted({x["moved"] for x in rows})
            cmds = "-"
            if mode == "rtt":
                c1 = rows[0]["first"].get("commands", {})
                c2 = rows[0]["again"].get("commands", {})
                cmds = "%d / %d" % (sum(c1.values()), sum(c2.values()))
            failed = [x["round"] for x in rows if x["first"]["rc"] or x["again"]["rc"]]
            lines.append("| %s | %s | %.2f s | %.2f s | %s | %.0f MB | %s | %s |%s" % (
                mode, program, first, again, cpu, rss, "/".join(map(str, moved)), cmds,
                " exit status not 0 in rounds %s" % failed if failed else ""))
    lines.append("")
    for mode in modes:
        for program in programs:
            rows = [x for x in results if x["mode"] == mode and x["program"] == program]
            if rows and mode == "rtt":
                for phase in ("first", "again"):
                    c, t = rows[0][phase].get("commands", {}), rows[0][phase].get("seconds", {})
                    lines.append("%s, %s: %s" % (program, phase, ", ".join(
                        "%s %d (%.2f s)" % (k, c[k], t.get(k, 0)) for k in sorted(c))))
    lines.append("")
    lines += verify(results)
    return "\n".join(lines) + "\n"


def verify(results):
    """Per rule: messages moved by each program, and differences from
    Mailvane's first pass of the first round (every other first pass of every
    program is compared with it). A message two programs put in different
    folders differs first at the earlier of the two rules; at the later one
    it is only carried over (the earlier rule took it, or left it), and only
    differences where they begin count against the verdict."""
    results = [x for x in results if x.get("ids")]
    if not results:
        return ["No Message-IDs listed: nothing to compare."]
    ref = next((x for x in results if x["program"] == "mailvane"), results[0])
    rank = {f: i for i, f in enumerate(FOLDERS)}
    where_ref = {m: f for f, ids in ref["ids"].items() for m in ids}
    begins = {f: [] for f in FOLDERS}   # differences that begin at the rule
    carried = {f: [] for f in FOLDERS}
    for x in results:
        if x is ref:
            continue
        where = {m: f for f, ids in x["ids"].items() for m in ids}
        tally = {}
        for m in set(where) | set(where_ref):
            a, b = where_ref.get(m), where.get(m)
            if a == b:
                continue
            first, later = (sorted((f for f in (a, b) if f), key=rank.get) + [None])[:2]
            tally.setdefault((first, "begins"), 0)
            tally[(first, "begins")] += 1
            if later:
                tally[(later, "carried")] = tally.get((later, "carried"), 0) + 1
        label = "%s %s r%d" % (x["program"], x["mode"], x["round"])
        for (f, kind), n in sorted(tally.items()):
            (begins if kind == "begins" else carried)[f].append("%s: %d" % (label, n))
    ok = True
    lines = ["| Folder | Rule | " + " | ".join(programs) + " | differences from %s (where they begin) | carried over from an earlier rule |" % ref["program"],
             "|" + "---|" * (4 + len(programs))]
    for i, folder in enumerate(FOLDERS):
        cells = []
        for program in programs:
            sizes = sorted({len(x["ids"][folder]) for x in results if x["program"] == program})
            cells.append("/".join(map(str, sizes)) or "-")
        diffs = begins[folder]
        note = ""
        if diffs and folder in everyday.AGE_DIFFERS:
            note = " (age semantics differ on purpose: %s; left out of the verdict)" % everyday.AGE_DIFFERS[folder]
            if any(not d.startswith("imapfilter") for d in diffs):  # only imapfilter keeps its own
                ok = False
        elif diffs:
            ok = False
        lines.append("| %s | %s | %s | %s | %s |" % (folder, everyday.RULES[i][1], " | ".join(cells),
                                                      "; ".join(diffs) + note if diffs else "same",
                                                      "; ".join(carried[folder]) or "-"))
    lines.append("")
    lines.append("Verdict: " + ("every program moved the same messages per rule" if ok else
                                "DIFFERENCES (see the table: rules where differences begin)"))
    return lines


if __name__ == "__main__":
    if os.environ.get("MV_BENCH_REPORT"):  # the report again from a results.json
        print(render(json.load(open(os.environ["MV_BENCH_REPORT"]))))
    else:
        main()
