#!/usr/bin/env bash
# Mailvane vs afew's MailMover over notmuch on one Maildir: the same
# generated mail and the same twenty everyday rules (everyday.py), one-off
# processes under /usr/bin/time -v (wall time, peak memory).
#   first pass: Mailvane `mailvane run`; afew `notmuch new` + `afew --move-mails`
#   again:      the same command again, nothing left to move (afew: the move alone)
# Each round starts from a fresh copy of the mail and empty caches.
#
#   bash bench/maildir/vs-afew.sh [BUILD_DIR] [COUNT]      (default build/release 20000)
#
# Needs the Debian packages afew and notmuch (bench only, not in deps.sh):
#   apt-get install -y afew notmuch
# MV_BENCH_WORK=DIR keeps the work folder; MV_BENCH_ROUNDS=N rounds (default 3);
# MV_BENCH_ONLY=mailvane or afew runs one program.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build/release}
count=${2:-20000}
rounds=${MV_BENCH_ROUNDS:-3}
only=${MV_BENCH_ONLY:-}
here=bench/maildir
for tool in notmuch afew; do
  if [ "$only" != mailvane ] && ! command -v $tool >/dev/null; then echo "$tool is missing: apt-get install -y afew notmuch"; exit 1; fi
done
if [ -n "${MV_BENCH_WORK:-}" ]; then work=$MV_BENCH_WORK; mkdir -p "$work"; else work=$(mktemp -d /tmp/mv-vs-afew.XXXXXX); fi
work=$(cd "$work" && pwd)
mail=$work/mail

# The mail: every generated message in INBOX/cur (file-system layout, so
# both programs name the folders alike), twenty empty destinations.
if [ ! -f "$work/pristine.count" ] || [ "$(cat "$work/pristine.count")" != "$count" ]; then
  rm -rf "$work/pristine" "$work/gen"
  echo "Writing $count messages..."
  "$build/tools/corpus/mv-corpus" --seed 7 --count "$count" --out "$work/gen" >/dev/null
  mkdir -p "$work/pristine/INBOX"/{cur,new,tmp}
  find "$work/gen" -type f \( -path '*/cur/*' -o -path '*/new/*' \) -exec mv -t "$work/pristine/INBOX/cur/" {} +
  rm -rf "$work/gen"
  for n in $(seq -w 1 20); do mkdir -p "$work/pristine/R$n"/{cur,new,tmp}; done
  rm -f "$work/rules.xml"
  echo "$count" > "$work/pristine.count"
fi

fresh_mail() { rm -rf "$mail" && cp -a "$work/pristine" "$mail"; }
mv_env() { echo env HOME=$work/mvhome XDG_DATA_HOME=$work/mvhome/data XDG_CONFIG_HOME=$work/mvhome/config \
               XDG_CACHE_HOME=$work/mvhome/cache "$build/host/mailvane" --profile "$work/profile.ini"; }

# Mailvane's rules are imported once; the store key written at the first
# open goes into the pristine copy so every copy has the same identity.
if [ "$only" != afew ] && [ ! -f "$work/rules.xml" ]; then
  printf '[Bench]\ntype=maildir\npath=%s\n' "$mail" > "$work/profile.ini"
  rm -rf "$work/mvhome" && mkdir -p "$work/mvhome"
  fresh_mail
  $(mv_env) folders > "$work/folders.txt"
  python3 $here/everyday.py xml "$work/folders.txt" resources/rules/sample-rules.xml > "$work/rules.xml"
  $(mv_env) import "$work/rules.xml" >/dev/null
  cp "$mail/mailvane-store" "$work/pristine/" 2>/dev/null || true
  rm -rf "$work/mvhome-rules" && cp -a "$work/mvhome" "$work/mvhome-rules"
fi

moved() { find "$mail" -path '*/R*/cur/*' -o -path '*/R*/new/*' | grep -c . || true; }
timed() {  # NAME COMMAND...
  /usr/bin/time -v -o "$work/$1.time" "${@:2}" > "$work/$1.out" 2>&1 || echo "($1 failed, see $work/$1.out)"
  local wall rss
  wall=$(grep 'Elapsed (wall' "$work/$1.time" | awk '{print $NF}')
  rss=$(grep 'Maximum resident' "$work/$1.time" | awk '{print $NF}')
  echo "$1 $wall $((rss / 1024)) $(moved)" >> "$work/results.txt"
}

rm -f "$work/results.txt"
for round in $(seq 1 "$rounds"); do
  if [ "$only" != afew ]; then
    fresh_mail
    rm -rf "$work/mvhome" && cp -a "$work/mvhome-rules" "$work/mvhome"
    timed mailvane-first $(mv_env) run
    timed mailvane-again $(mv_env) run
    timed mailvane-again2 $(mv_env) run
  fi
  if [ "$only" != mailvane ]; then
    fresh_mail
    rm -rf "$work/nmhome" && mkdir -p "$work/nmhome/.config/afew"
    printf '[database]\npath=%s\n[new]\ntags=new;\n[maildir]\nsynchronize_flags=true\n' "$mail" > "$work/nmhome/.notmuch-config"
    python3 $here/everyday.py afew > "$work/nmhome/.config/afew/config"
    nm="env HOME=$work/nmhome NOTMUCH_CONFIG=$work/nmhome/.notmuch-config XDG_CONFIG_HOME=$work/nmhome/.config"
    timed afew-first sh -c "$nm notmuch new && $nm afew --move-mails --all"
    timed afew-again $nm afew --move-mails --all
    timed afew-again2 $nm afew --move-mails --all
  fi
done

# Medians over the rounds (wall as [h:]m:ss.ss).
python3 - "$work/results.txt" "$count" <<'PY'
import sys, statistics, collections
rows = collections.defaultdict(list)
for line in open(sys.argv[1]):
    name, wall, rss, moved = line.split()
    secs = 0.0
    for part in wall.split(":"):
        secs = secs * 60 + float(part)
    rows[name].append((secs, int(rss), int(moved)))
print("| %s messages | wall (median) | peak RSS (median) | moved | rounds |" % sys.argv[2])
print("|---|---|---|---|---|")
for name, vals in rows.items():
    print("| %s | %.2f s | %d MB | %d | %d |" % (name, statistics.median(v[0] for v in vals),
          statistics.median(v[1] for v in vals), vals[-1][2], len(vals)))
PY
echo "(work folder: $work)"
