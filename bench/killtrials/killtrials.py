#!/usr/bin/env python3
"""Random-SIGKILL trials of the mover.

For each path (Maildir within one store; IMAP with MOVE; IMAP without MOVE;
IMAP INBOX -> Maildir Archive; Maildir INBOX -> IMAP Archive) the script
builds a private world (HOME and XDG folders in a temporary folder, a
profile, a private Dovecot on 127.0.0.1 where the path needs one), writes
the mail, imports rules that move it there and back, then starts
`mailvane --yes run` again and again and SIGKILLs it after a random delay.
Afterwards it lets runs finish and checks that every message is there
exactly once, that nothing is left \\Deleted or in tmp/, and that a message
with the completed flag has either moved with the flag cleared or stayed
with its flag.

Three kinds of message:
  bulk    From bulk@killtrial.test, moved out and back by two "Any Time"
          rules, so every moment of a run is a moment of moving. One in
          five has no Message-ID; every message carries a marker line in
          its body, which is what identifies it.
  done    From done@killtrial.test with $Completed, two days old. A third
          rule (age "older than a day", run only by `run --all`) moves them
          one way. Fresh ones are written before each trial, so the flag is
          cleared under fire all along.
The settling run is `run --quarter`: it settles what killed runs left and
runs the two bulk rules but not the done rule. A done message must then be
in the source with its flag or in the destination without it; a flag
cleared on a message that did not move shows here. A last `run` moves the
done messages too and everything is checked again.

SIGTERM: a Maildir of 20,000 messages, one rule, `mailvane --headless`;
new mail starts the rule, and once the first message has arrived in the
destination the service gets SIGTERM. Reported: seconds until it exits.

Needs root for the Dovecot paths (the mail user is nobody), Python 3 and
/usr/sbin/dovecot; no other package. Exit status 1 on any fault.

    python3 bench/killtrials/killtrials.py [--trials 300] [--paths maildir,imap]
"""

import argparse
import grp
import os
import pwd
import random
import re
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
DOVECOT = "/usr/sbin/dovecot"

# Dovecot 2.3's post-login capabilities; imap_capability replaces the list,
# so hiding one means writing the others.
CAPABILITIES = (
    "IMAP4rev1 SASL-IR LOGIN-REFERRALS ID ENABLE IDLE SORT SORT=DISPLAY THREAD=REFERENCES "
    "THREAD=REFS THREAD=ORDEREDSUBJECT MULTIAPPEND URL-PARTIAL CATENATE UNSELECT CHILDREN "
    "NAMESPACE UIDPLUS LIST-EXTENDED I18NLEVEL=1 CONDSTORE QRESYNC ESEARCH ESORT SEARCHRES "
    "WITHIN CONTEXT=SEARCH LIST-STATUS BINARY MOVE SNIPPET=FUZZY PREVIEW=FUZZY PREVIEW "
    "STATUS=SIZE SAVEDATE LITERAL+ NOTIFY SPECIAL-USE").split()

COMPLETED = "$Completed"
BULK_FROM = "bulk@killtrial.test"
DONE_FROM = "done@killtrial.test"
MARK_RE = re.compile(rb"^kill-trial-mark: (\S+)", re.M)

# name: (source store, source folder, destination store, destination folder, hidden capabilities)
PATHS = {
    "maildir": ("Local", "Inbox", "Local", "Archive", []),
    "imap": ("Server", "INBOX", "Server", "Archive", []),
    "imap-nomove": ("Server", "INBOX", "Server", "Archive", ["MOVE"]),
    "imap-to-maildir": ("Server", "INBOX", "Local", "Archive", []),
    "maildir-to-imap": ("Local", "Inbox", "Server", "Archive", []),
}


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def wait_port(port, proc, timeout):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        try:
            with socket.create_connection(("127.0.0.1", port), 0.2):
                return True
        except OSError:
            if proc.poll() is not None:
                return False
            time.sleep(0.02)
    return False


class Dovecot:
    """A private Dovecot, as tests/support/dovecot/DovecotServer does it."""

    def __init__(self, root, hide):
        self.root = root
        self.hide = hide
        self.port = 0
        self.proc = None
        os.chmod(root, 0o755)
        for sub in ("run", "state", "home/test/Maildir/cur", "home/test/Maildir/new", "home/test/Maildir/tmp"):
            os.makedirs(os.path.join(root, sub), exist_ok=True)

    @property
    def maildir(self):
        return os.path.join(self.root, "home/test/Maildir")

    def hand_over(self):
        """Gives the files written under home to the mail user."""
        uid, gid = pwd.getpwnam("nobody").pw_uid, grp.getgrnam("nogroup").gr_gid
        home = os.path.join(self.root, "home")
        for top, dirs, files in os.walk(home):
            os.chown(top, uid, gid)
            for f in files:
                os.chown(os.path.join(top, f), uid, gid)

    def start(self):
        self.port = free_port()
        caps = ""
        if self.hide:
            caps = "imap_capability = %s\n" % " ".join(c for c in CAPABILITIES if c not in self.hide)
        r = self.root
        with open(os.path.join(r, "passwd"), "w") as f:
            f.write("test:{PLAIN}secret::::\n")
        conf = (
            f"base_dir = {r}/run\nstate_dir = {r}/state\nlog_path = {r}/dovecot.log\n"
            "protocols = imap\nlisten = 127.0.0.1\nssl = no\ndisable_plaintext_auth = no\n"
            "auth_mechanisms = plain login\n" + caps +
            f"passdb {{\n  driver = passwd-file\n  args = {r}/passwd\n}}\n"
            f"userdb {{\n  driver = passwd-file\n  args = {r}/passwd\n"
            f"  default_fields = uid=nobody gid=nogroup home={r}/home/%u\n}}\n"
            "mail_location = maildir:~/Maildir\n"
            "namespace inbox {\n  inbox = yes\n"
            "  mailbox Archive {\n    special_use = \\Archive\n    auto = subscribe\n  }\n}\n"
            "service imap-login {\n"
            f"  inet_listener imap {{\n    address = 127.0.0.1\n    port = {self.port}\n  }}\n"
            "  inet_listener imaps {\n    port = 0\n  }\n}\n"
            "service stats {\n  inet_listener http {\n    port = 0\n  }\n}\n")
        with open(os.path.join(r, "dovecot.conf"), "w") as f:
            f.write(conf)
        self.hand_over()
        # Its own session, so that stop() reaches the master's children too.
        self.proc = subprocess.Popen([DOVECOT, "-F", "-c", os.path.join(r, "dovecot.conf")],
                                     start_new_session=True)
        if not wait_port(self.port, self.proc, 10):
            raise RuntimeError("dovecot did not start:\n" + self.log()[-2000:])

    def log(self):
        try:
            with open(os.path.join(self.root, "dovecot.log"), errors="replace") as f:
                return f.read()
        except OSError:
            return ""

    def stop(self):
        if self.proc and self.proc.poll() is None:
            os.killpg(self.proc.pid, signal.SIGTERM)
            try:
                self.proc.wait(5)
            except subprocess.TimeoutExpired:
                os.killpg(self.proc.pid, signal.SIGKILL)
                self.proc.wait()
        self.proc = None


def folder_dir(root, path):
    if path.lower() in ("", "inbox"):
        return root
    return os.path.join(root, "." + path.replace("/", "."))


def make_folder(root, path):
    d = folder_dir(root, path)
    for sub in ("cur", "new", "tmp"):
        os.makedirs(os.path.join(d, sub), exist_ok=True)
    if d != root:
        open(os.path.join(d, "maildirfolder"), "a").close()


def keyword_names(d):
    names = {}
    try:
        with open(os.path.join(d, "dovecot-keywords")) as f:
            for line in f:
                parts = line.strip().split(" ", 1)
                if len(parts) == 2 and parts[0].isdigit():
                    names[int(parts[0])] = parts[1]
    except OSError:
        pass
    return names


class Mailbox:
    """One Maildir tree: the local store's, or the Dovecot user's."""

    def __init__(self, root, dovecot=None):
        self.root = root
        self.dovecot = dovecot
        self.seq = 0
        self.stage = os.path.join(os.path.dirname(root.rstrip("/")), "stage")
        os.makedirs(self.stage, exist_ok=True)

    def write(self, folder, mark, sender, with_id, completed, age_days):
        """Writes one message into `folder`'s cur/, whole or not at all."""
        d = folder_dir(self.root, folder)
        letters = ""
        if completed:
            names = keyword_names(d)
            index = next((i for i, n in names.items() if n.lower() == COMPLETED.lower()), None)
            if index is None:
                index = max(names, default=-1) + 1
                with open(os.path.join(d, "dovecot-keywords"), "a") as f:
                    f.write("%d %s\n" % (index, COMPLETED))
                if self.dovecot:
                    self.dovecot.hand_over()
            letters = chr(ord("a") + index)
        when = int(time.time()) - (age_days * 86400 if age_days else 3600)
        self.seq += 1
        name = "%d.M%dP%d.killtrial:2,%s" % (when, self.seq, os.getpid(), letters)
        date = time.strftime("%a, %d %b %Y %H:%M:%S +0000", time.gmtime(when))
        head = "From: Kill Trial <%s>\r\nTo: Bob <bob@example.org>\r\nSubject: Trial %s\r\n" % (sender, mark)
        if with_id:
            head += "Message-ID: <%s@killtrial.test>\r\n" % mark
        text = (head + "Date: %s\r\nMIME-Version: 1.0\r\nContent-Type: text/plain; charset=utf-8\r\n\r\n"
                "A message of the kill trials.\r\nkill-trial-mark: %s\r\n" % (date, mark))
        staged = os.path.join(self.stage, name)
        with open(staged, "w", newline="") as f:
            f.write(text)
        os.utime(staged, (when, when))
        if self.dovecot:
            pw = pwd.getpwnam("nobody")
            os.chown(staged, pw.pw_uid, grp.getgrnam("nogroup").gr_gid)
        os.rename(staged, os.path.join(d, "cur", name))

    def folders(self):
        out = [""]
        for name in sorted(os.listdir(self.root)):
            if name.startswith(".") and name not in (".", "..") and os.path.isdir(os.path.join(self.root, name)):
                out.append(name[1:].replace(".", "/"))
        return out

    def scan(self, store):
        """[(store, folder, mark, message-id?, flags letters, keywords, in_tmp)]"""
        for attempt in range(20):
            try:
                return self._scan(store)
            except FileNotFoundError:
                time.sleep(0.05)  # the server renamed a file while we read
        return self._scan(store)

    def _scan(self, store):
        rows = []
        for folder in self.folders():
            d = folder_dir(self.root, folder)
            names = keyword_names(d)
            for sub in ("cur", "new", "tmp"):
                p = os.path.join(d, sub)
                if not os.path.isdir(p):
                    continue
                for fn in os.listdir(p):
                    with open(os.path.join(p, fn), "rb") as f:
                        data = f.read()
                    m = MARK_RE.search(data)
                    mark = m.group(1).decode() if m else None
                    info = fn.split(":2,", 1)[1] if ":2," in fn else ""
                    system = "".join(c for c in info if c.isupper())
                    keywords = [names.get(ord(c) - ord("a"), "?") for c in info if "a" <= c <= "z"]
                    rows.append((store, folder or "Inbox", mark, system, keywords, sub == "tmp"))
        return rows


class World:
    """HOME, XDG folders, profile, stores and the mailvane program."""

    def __init__(self, program, base, path_name, hide):
        self.program = program
        self.base = base
        self.path = path_name
        src_store, _, dst_store, _, _ = PATHS.get(path_name, ("Local", "", "Local", "", []))
        self.stores = {src_store, dst_store}
        self.mailboxes = {}
        self.dovecot = None
        # Dovecot's auth and mail users must reach the server's folder inside.
        os.chmod(base, 0o755)
        profile = ""
        if "Local" in self.stores:
            root = os.path.join(base, "local", "Mail")
            for f in ("", "Archive"):
                make_folder(root, f)
            self.mailboxes["Local"] = Mailbox(root)
            profile += "[Local]\ntype=maildir\npath=%s\naddress=bob@example.org\n" % root
        if "Server" in self.stores:
            dv_root = os.path.join(base, "dovecot")
            os.makedirs(dv_root)
            self.dovecot = Dovecot(dv_root, hide)
            make_folder(self.dovecot.maildir, "Archive")
            self.mailboxes["Server"] = Mailbox(self.dovecot.maildir, self.dovecot)
        self.profile_text = profile
        for sub in ("data", "config/Mailvane", "cache"):
            os.makedirs(os.path.join(base, sub), exist_ok=True)
        self.log_path = os.path.join(base, "runs.log")

    def start(self):
        if self.dovecot:
            self.dovecot.start()
            self.profile_text += ("[Server]\ntype=imap\nhost=127.0.0.1\nport=%d\ntls=none\nuser=test\n"
                                  "password=secret\n" % self.dovecot.port)
        # A profile holding a password must be the user's alone.
        fd = os.open(os.path.join(self.base, "profile.ini"), os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
        with os.fdopen(fd, "w") as f:
            f.write(self.profile_text)

    def stop(self):
        if self.dovecot:
            self.dovecot.stop()

    def env(self):
        env = dict(os.environ)
        for name in ("DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"):
            env.pop(name, None)
        env.update(HOME=self.base, XDG_DATA_HOME=os.path.join(self.base, "data"),
                   XDG_CONFIG_HOME=os.path.join(self.base, "config"),
                   XDG_CACHE_HOME=os.path.join(self.base, "cache"),
                   ASAN_OPTIONS="detect_leaks=0")
        # A build tree holds the blank database two levels up; an installed
        # program finds its own.
        build = os.path.dirname(os.path.dirname(self.program))
        if os.path.exists(os.path.join(build, "Database", "_mvblank.mdb")):
            env["MAILVANE_INSTALL_DIR"] = build
        return env

    def args(self, *rest):
        return [self.program, "--profile", os.path.join(self.base, "profile.ini"), *rest]

    def run(self, *rest, timeout=600):
        p = subprocess.run(self.args(*rest), env=self.env(), capture_output=True, text=True, timeout=timeout)
        return p.returncode, p.stdout, p.stderr

    def spawn(self, *rest):
        with open(self.log_path, "a") as log:
            return subprocess.Popen(self.args(*rest), env=self.env(), stdout=subprocess.DEVNULL, stderr=log)

    def folder_ids(self):
        """{(store section, folder path): hex}, {store section: hex}"""
        code, out, err = self.run("folders")
        if code != 0:
            raise RuntimeError("mailvane folders failed (%d): %s" % (code, err))
        folders, stores, current = {}, {}, None
        for line in out.splitlines():
            m = re.match(r"^(.*)  store ([0-9A-F]+)$", line)
            if m:
                # The Maildir store is shown by its section's name, the server by user@host.
                current = "Local" if m.group(1).strip() == "Local" else "Server"
                stores[current] = m.group(2)
                continue
            m = re.match(r"^  ([0-9A-F]+)  (.*?)(  \(.*\))?$", line)
            if m and current:
                folders[(current, m.group(2))] = m.group(1)
        return folders, stores

    def import_rules(self, rules):
        """rules: [(name, src store, src folder, dst store, dst folder, from address, age id)]"""
        folders, stores = self.folder_ids()

        def fid(store, path):
            for key in ((store, path), (store, path.upper()), (store, path.capitalize())):
                if key in folders:
                    return folders[key]
            raise RuntimeError("no folder %s in store %s (mailvane folders: %s)" % (path, store, folders))

        with open(os.path.join(SOURCE_DIR, "resources/rules/sample-rules.xml")) as f:
            sample = f.read()
        rows = []
        for i, (name, ss, sf, ds, df, sender, age) in enumerate(rules, 1):
            rows.append(
                "\t<z:row RuleID='%d' RuleName='%s' FromAddress='%s' ToAddress='' CcAddress='' Subject='' "
                "Importance='3' Status='2' FlagStatus='0' MsgAgeID='%d' SrcEntryID='%s' SrcStoreID='%s' "
                "DstEntryID='%s' DstStoreID='%s' Active='-1' SortID='%d' LastVerb='0' Message=''/>\n"
                % (i, name, sender, age, fid(ss, sf), stores[ss], fid(ds, df), stores[ds], i))
        xml = sample[:sample.index("<rs:data>")] + "<rs:data>\n" + "".join(rows) + "</rs:data>\n</xml>\n"
        path = os.path.join(self.base, "rules.xml")
        with open(path, "w") as f:
            f.write(xml)
        code, out, err = self.run("import", path)
        if code != 0:
            raise RuntimeError("mailvane import failed (%d): %s" % (code, err))

    def scan(self):
        rows = []
        for store, box in self.mailboxes.items():
            rows += box.scan(store)
        return rows


def check(world, bulk, done, src, dst, done_may_stay):
    """Counts of the faults: lost, duplicated, left \\Deleted or in tmp/, flag errors."""
    rows = world.scan()
    live, left, flag_errors = {}, 0, []
    for store, folder, mark, system, keywords, in_tmp in rows:
        if in_tmp and world.mailboxes[store].dovecot is None:
            left += 1
            continue
        if in_tmp:
            continue  # the server's own unfinished delivery
        if "T" in system:
            left += 1
            continue
        live.setdefault(mark, []).append(((store, folder), keywords))
    lost = dup = 0
    for mark in bulk + done:
        copies = live.get(mark, [])
        if not copies:
            lost += 1
        elif len(copies) > 1:
            dup += len(copies) - 1
    strangers = [m for m in live if m not in set(bulk) | set(done)]
    dup += sum(len(live[m]) for m in strangers)
    for mark in done:
        for where, keywords in live.get(mark, []):
            flagged = COMPLETED in keywords
            if where == src and flagged and done_may_stay:
                continue
            if where == dst and not flagged:
                continue
            flag_errors.append("%s in %s/%s %s the flag" % (mark, where[0], where[1],
                                                            "with" if flagged else "without"))
    return lost, dup, left, flag_errors


def trials_for_path(name, program, opts, rng):
    src_store, src_folder, dst_store, dst_folder, hide = PATHS[name]
    base = tempfile.mkdtemp(prefix="killtrials-%s-" % name)
    world = World(program, base, name, hide)
    src, dst = (src_store, src_folder), (dst_store, dst_folder)
    norm = lambda where: (where[0], "Inbox" if where[1].lower() == "inbox" else where[1])
    src, dst = norm(src), norm(dst)
    result = dict(path=name, trials=0, killed=0, lost=0, dup=0, left=0, flags=0, errors=0, notes=[])
    try:
        world.start()
        box = world.mailboxes[src_store]
        bulk, done = [], []
        for i in range(opts.messages):
            mark = "kt-bulk-%05d" % i
            box.write(src_folder, mark, BULK_FROM, with_id=(i % 5 != 4), completed=False, age_days=0)
            bulk.append(mark)

        def add_done(count):
            for _ in range(count):
                mark = "kt-done-%05d" % len(done)
                box.write(src_folder, mark, DONE_FROM, with_id=(len(done) % 5 != 4), completed=True, age_days=2)
                done.append(mark)

        add_done(opts.done_per_trial)
        if box.dovecot:
            box.dovecot.hand_over()
        world.import_rules([
            ("Out", src_store, src_folder, dst_store, dst_folder, BULK_FROM, 13),
            ("Back", dst_store, dst_folder, src_store, src_folder, BULK_FROM, 13),
            ("Done", src_store, src_folder, dst_store, dst_folder, DONE_FROM, 5),  # older than a day
        ])

        # A whole run's length sets the range of the kill moments.
        t0 = time.monotonic()
        code, out, err = world.run("--yes", "run")
        run_s = time.monotonic() - t0
        if code != 0:
            raise RuntimeError("the first whole run failed (%d): %s%s" % (code, out[-500:], err[-1000:]))
        result["run_s"] = run_s

        def tally(stage):
            lost, dup, left, flag_errors = check(world, bulk, done, src, dst, done_may_stay=(stage != "final"))
            result["lost"] = max(result["lost"], lost)
            result["dup"] = max(result["dup"], dup)
            result["left"] = max(result["left"], left)
            result["flags"] = max(result["flags"], len(flag_errors))
            if lost or dup or left or flag_errors:
                result["notes"].append("%s: lost %d, duplicated %d, left %d, flags %s"
                                       % (stage, lost, dup, left, flag_errors[:3]))

        def settle(stage, *run_args):
            code, out, err = world.run("--yes", "run", *run_args)
            if code != 0:
                result["errors"] += 1
                result["notes"].append("%s run exited %d: %s" % (stage, code, err.strip()[-300:]))
            tally(stage)

        for trial in range(opts.trials):
            add_done(opts.done_per_trial)
            p = world.spawn("--yes", "run")
            delay = rng.uniform(0, run_s * opts.spread)
            try:
                p.wait(delay)
            except subprocess.TimeoutExpired:
                p.send_signal(signal.SIGKILL)
                result["killed"] += 1
            code = p.wait()
            if code not in (0, -signal.SIGKILL):
                result["errors"] += 1
                result["notes"].append("trial %d: run exited %d (see %s)" % (trial, code, world.log_path))
            result["trials"] += 1
            if opts.check_every and (trial + 1) % opts.check_every == 0:
                settle("after trial %d" % trial, "--quarter")
            if opts.verbose:
                print("  %s trial %d: %.3f s" % (name, trial, delay), file=sys.stderr)

        # Settle what the last kill left, then the done rule too.
        settle("settled", "--quarter")
        settle("final")
    except Exception as e:  # the table still shows the path, as failed
        result["errors"] += 1
        result["notes"].append("%s: %s" % (type(e).__name__, e))
    finally:
        world.stop()
        failed = any(result[k] for k in ("lost", "dup", "left", "flags", "errors"))
        if opts.keep or failed:
            result["notes"].append("world kept in %s" % base)
        else:
            shutil.rmtree(base, ignore_errors=True)
    return result


def sigterm_measure(program, count):
    """Seconds from SIGTERM to exit of `mailvane --headless` in the middle of a rule over `count` messages."""
    base = tempfile.mkdtemp(prefix="killtrials-sigterm-")
    world = World(program, base, "sigterm", [])
    try:
        world.start()
        box = world.mailboxes["Local"]
        for i in range(count):
            box.write("Inbox", "kt-term-%06d" % i, BULK_FROM, with_id=True, completed=False, age_days=0)
        world.import_rules([("Out", "Local", "Inbox", "Local", "Archive", BULK_FROM, 13)])
        mvlog = os.path.join(base, "data", "Sorquin Software", "Mailvane", "mv.log")
        p = world.spawn("--headless")
        deadline = time.monotonic() + 120
        started = lambda: os.path.exists(mvlog) and "Started: timers on" in open(mvlog, errors="replace").read()
        while not started() and p.poll() is None and time.monotonic() < deadline:
            time.sleep(0.1)
        if p.poll() is not None or not started():
            return None, "the service did not start (see %s)" % base
        # New mail in the INBOX arms the "Any Time" run.
        trigger = "%d.trigger.killtrial" % time.time()
        with open(os.path.join(box.root, "tmp", trigger), "w") as f:
            f.write("From: Someone <x@example.org>\r\nSubject: trigger\r\n\r\nnew mail\r\n")
        os.rename(os.path.join(box.root, "tmp", trigger), os.path.join(box.root, "new", trigger))
        archive = os.path.join(box.root, ".Archive")
        arrived = lambda: len(os.listdir(os.path.join(archive, "cur"))) + len(os.listdir(os.path.join(archive, "new")))
        while arrived() == 0 and p.poll() is None and time.monotonic() < deadline:
            time.sleep(0.02)
        if arrived() == 0:
            p.kill()
            p.wait()
            return None, "the rule did not start moving within two minutes (see %s)" % base
        moved_at_term = arrived()
        t0 = time.monotonic()
        p.send_signal(signal.SIGTERM)
        try:
            p.wait(120)
        except subprocess.TimeoutExpired:
            p.kill()
            p.wait()
            return None, "still running 120 s after SIGTERM"
        seconds = time.monotonic() - t0
        note = "%d of %d moved at SIGTERM, %d at exit; exit code %d" % (moved_at_term, count, arrived(), p.returncode)
        if moved_at_term >= count:
            note += " (the rule had ended: not a mid-rule figure)"
        shutil.rmtree(base, ignore_errors=True)
        return seconds, note
    finally:
        world.stop()


def default_program():
    for build in ("build/release", "build/asan"):
        p = os.path.join(SOURCE_DIR, build, "host", "mailvane")
        if os.access(p, os.X_OK):
            return p
    return None


def main():
    ap = argparse.ArgumentParser(description="Random-SIGKILL trials of the mover, and the SIGTERM time.")
    ap.add_argument("--mailvane", default=default_program(), help="the program (default: build/release, else build/asan)")
    ap.add_argument("--paths", default=",".join(PATHS), help="comma-separated, of: " + ", ".join(PATHS))
    ap.add_argument("--trials", type=int, default=300, help="kills per path (default 300)")
    ap.add_argument("--messages", type=int, default=200, help="bulk messages per path (default 200)")
    ap.add_argument("--done-per-trial", type=int, default=2, help="completed-flag messages written before each trial")
    ap.add_argument("--check-every", type=int, default=25, help="settle and check every K trials (0: only at the end)")
    ap.add_argument("--spread", type=float, default=1.0, help="kill within spread x a whole run's time (default 1)")
    ap.add_argument("--seed", type=int, default=None, help="random seed (printed when not given)")
    ap.add_argument("--sigterm-messages", type=int, default=20000, help="messages of the SIGTERM run (0: skip it)")
    ap.add_argument("--keep", action="store_true", help="keep every temporary world")
    ap.add_argument("--verbose", action="store_true")
    opts = ap.parse_args()

    if not opts.mailvane or not os.access(opts.mailvane, os.X_OK):
        sys.exit("no mailvane program: build it (cmake --build build/release --target mailvane) or give --mailvane")
    opts.mailvane = os.path.abspath(opts.mailvane)
    paths = [p.strip() for p in opts.paths.split(",") if p.strip()]
    for p in paths:
        if p not in PATHS:
            sys.exit("unknown path %s (use %s)" % (p, ", ".join(PATHS)))
    needs_dovecot = any("Server" in (PATHS[p][0], PATHS[p][2]) for p in paths)
    if needs_dovecot and (os.geteuid() != 0 or not os.access(DOVECOT, os.X_OK)):
        sys.exit("the IMAP paths need root and %s; run as root or give --paths maildir" % DOVECOT)
    seed = opts.seed if opts.seed is not None else random.randrange(1 << 30)
    print("mailvane %s, seed %d, %d trials per path, %d messages" % (opts.mailvane, seed, opts.trials, opts.messages))
    rng = random.Random(seed)

    results = []
    for p in paths:
        r = trials_for_path(p, opts.mailvane, opts, rng)
        results.append(r)
        print("  %-16s done: %d trials, whole run %.2f s" % (p, r["trials"], r.get("run_s", 0)), flush=True)

    header = "%-16s %7s %7s %5s %11s %13s %12s %11s" % (
        "path", "trials", "killed", "lost", "duplicated", "left-deleted", "flag errors", "run errors")
    print()
    print(header)
    print("-" * len(header))
    faults = False
    for r in results:
        print("%-16s %7d %7d %5d %11d %13d %12d %11d" % (r["path"], r["trials"], r["killed"], r["lost"], r["dup"],
                                                         r["left"], r["flags"], r["errors"]))
        faults = faults or any(r[k] for k in ("lost", "dup", "left", "flags", "errors"))
    for r in results:
        for n in r["notes"][:8]:
            print("  %s: %s" % (r["path"], n))
    print("(lost, duplicated, left-deleted and flag errors: the worst check of the path)")

    if opts.sigterm_messages > 0:
        seconds, note = sigterm_measure(opts.mailvane, opts.sigterm_messages)
        if seconds is None:
            print("\nSIGTERM: no figure: %s" % note)
            faults = True
        else:
            verdict = "ok" if seconds < 5 else "OVER the 5 s target"
            print("\nSIGTERM mid-rule over %d messages: exited after %.2f s (%s); %s"
                  % (opts.sigterm_messages, seconds, verdict, note))
            faults = faults or seconds >= 5
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
