#!/usr/bin/env bash
# Mailvane vs imapfilter: one private Dovecot, one generated corpus in its
# INBOX, the same twenty rules for both (rules.py). Each program runs twice,
# each time on a fresh copy of the mail: once straight to Dovecot under
# /usr/bin/time -v (wall time, CPU, peak memory), once through a proxy that
# counts IMAP commands and the time to each answer (the proxy's own relaying
# would otherwise be part of the wall time). Run as root (Dovecot drops to
# nobody).
#
#   bash bench/imapfilter/run.sh [BUILD_DIR] [COUNT]     (default build/release 50000)
#
# MV_BENCH_WORK=DIR keeps the work folder (corpus and indexed copy) in DIR
# and reuses it when it is already there; MV_BENCH_ONLY=mailvane or
# imapfilter runs one program; MV_BENCH_COUNTS=0 skips the proxied runs;
# MV_BENCH_WRAP="perf record -g -o FILE" (say) goes before the timed command.
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build/release}
count=${2:-50000}
here=bench/imapfilter
only=${MV_BENCH_ONLY:-}
with_counts=${MV_BENCH_COUNTS:-1}
if [ -n "${MV_BENCH_WORK:-}" ]; then work=$MV_BENCH_WORK; mkdir -p "$work"; else work=$(mktemp -d /tmp/mv-vs-imapfilter.XXXXXX); fi
work=$(cd "$work" && pwd)
free_port() { python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])'; }
port=$(free_port); proxy_port=$(free_port)

cat > "$work/dovecot.conf" <<CONF
base_dir = $work/run
state_dir = $work/state
log_path = $work/dovecot.log
protocols = imap
listen = 127.0.0.1
ssl = no
disable_plaintext_auth = no
passdb {
  driver = passwd-file
  args = $work/passwd
}
userdb {
  driver = passwd-file
  args = $work/passwd
  default_fields = uid=nobody gid=nogroup home=$work/home/%u
}
mail_location = maildir:~/Maildir
service imap-login {
  inet_listener imap {
    address = 127.0.0.1
    port = $port
  }
  inet_listener imaps {
    port = 0
  }
}
service stats {
  inet_listener http {
    port = 0
  }
}
CONF
echo 'test:{PLAIN}secret::::' > "$work/passwd"
chmod 755 "$work" && chmod 644 "$work/passwd"

start_dovecot() {
  rm -rf "$work/home" && cp -a "$work/pristine" "$work/home" && chown -R nobody:nogroup "$work/home"
  /usr/sbin/dovecot -c "$work/dovecot.conf"
  for _ in $(seq 50); do (echo > /dev/tcp/127.0.0.1/$port) 2>/dev/null && return; sleep 0.1; done
  echo "dovecot did not start"; cat "$work/dovecot.log"; exit 1
}
stop_dovecot() { kill "$(cat "$work/run/master.pid")"; sleep 1; }

maildir=$work/home/test/Maildir
if [ -f "$work/pristine.count" ] && [ "$(cat "$work/pristine.count")" = "$count" ]; then
  echo "Reusing the indexed corpus in $work"
else
rm -rf "$work/home" "$work/pristine"
mkdir -p "$maildir"/{cur,new,tmp}
echo "Writing $count messages..."
"$build/tools/corpus/mv-corpus" --seed 7 --count "$count" --out "$maildir" --no-attachments >/dev/null
# Everything the corpus put elsewhere goes to the INBOX: both programs get
# the same $count messages to sort.
for d in "$maildir"/.*/; do
  case "$d" in */./|*/../) continue ;; esac
  mv "$d"cur/* "$maildir/cur/" 2>/dev/null || true
done
for n in $(seq -w 1 20); do mkdir -p "$maildir/.R$n"/{cur,new,tmp}; touch "$maildir/.R$n/maildirfolder"; done

# Dovecot indexes the INBOX once before either program sees it (with tens
# of thousands of new files the first STATUS takes longer than a client's
# timeout); both programs then start from the same indexed copy.
chown -R nobody:nogroup "$work/home"
/usr/sbin/dovecot -c "$work/dovecot.conf"
for _ in $(seq 50); do (echo > /dev/tcp/127.0.0.1/$port) 2>/dev/null && break; sleep 0.1; done
python3 - "$port" <<'PY'
import imaplib, sys
m = imaplib.IMAP4("127.0.0.1", int(sys.argv[1]))
m.login("test", "secret")
print("INBOX indexed:", m.status("INBOX", "(MESSAGES UIDVALIDITY)")[1][0].decode())
m.logout()
PY
kill "$(cat "$work/run/master.pid")"; sleep 1
cp -a "$work/home" "$work/pristine"
echo "$count" > "$work/pristine.count"
fi

moved() { find "$work/home/test/Maildir" -path '*/.R*/cur/*' -o -path '*/.R*/new/*' | grep -c . || true; }

python3 $here/CountingProxy.py "$proxy_port" "$port" "$work/counts.json" & proxy=$!
trap 'kill $proxy 2>/dev/null; [ -f $work/run/master.pid ] && kill $(cat $work/run/master.pid) 2>/dev/null; true' EXIT

# run NAME PORT COMMAND...: one run on a fresh copy; straight to Dovecot it is
# timed, through the proxy its commands are counted.
run() {
  local name=$1 via=$2; shift 2
  start_dovecot
  if [ "$via" = "$port" ]; then
    /usr/bin/time -v -o "$work/$name.time" ${MV_BENCH_WRAP:-} "$@" > "$work/$name.out" 2>&1 || true
    moved > "$work/$name.moved"
  else
    rm -f "$work/counts.json" "$work/counts.json.seconds"
    "$@" > "$work/$name.counted.out" 2>&1 || true
    cp "$work/counts.json" "$work/$name.counts"; cp "$work/counts.json.seconds" "$work/$name.seconds"
  fi
  stop_dovecot
}

# Mailvane: the store's identity holds the port, so each port has its own
# home (database) with the rules imported for it.
mv_cmd() { local home=$work/mvhome-$1
           echo env HOME=$home XDG_DATA_HOME=$home/data XDG_CONFIG_HOME=$home/config XDG_CACHE_HOME=$home/cache \
                "$build/host/mailvane" --profile "$work/profile-$1.ini"; }
mv_setup() {
  rm -rf "$work/mvhome-$1"; mkdir -p "$work/mvhome-$1"
  printf '[Bench]\ntype=imap\nhost=127.0.0.1\nport=%s\ntls=none\nuser=test\npassword=secret\ntimeout=600\n' "$1" > "$work/profile-$1.ini"
  chmod 600 "$work/profile-$1.ini"
  start_dovecot
  $(mv_cmd "$1") folders > "$work/folders-$1.txt"
  python3 $here/rules.py xml "$work/folders-$1.txt" resources/rules/sample-rules.xml > "$work/rules-$1.xml"
  $(mv_cmd "$1") import "$work/rules-$1.xml" 2>/dev/null
  stop_dovecot
}
if [ "$only" != imapfilter ]; then
  mv_setup "$port"
  run mailvane "$port" $(mv_cmd "$port") run
  if [ "$with_counts" = 1 ]; then mv_setup "$proxy_port"; run mailvane "$proxy_port" $(mv_cmd "$proxy_port") run; fi
fi

# imapfilter
if [ "$only" != mailvane ]; then
  python3 $here/rules.py lua "$port" > "$work/config.lua"
  python3 $here/rules.py lua "$proxy_port" > "$work/config-counted.lua"
  mkdir -p "$work/ifhome/.imapfilter"
  run imapfilter "$port" env HOME=$work/ifhome imapfilter -c "$work/config.lua"
  if [ "$with_counts" = 1 ]; then run imapfilter "$proxy_port" env HOME=$work/ifhome imapfilter -c "$work/config-counted.lua"; fi
fi

report() {
  local name=$1
  [ -f "$work/$name.time" ] || return 0
  local wall cpu rss cmds=-
  wall=$(grep 'Elapsed (wall' "$work/$name.time" | awk '{print $NF}')
  cpu=$(awk -F': ' '/User time|System time/ {s += $2} END {printf "%.2f s", s}' "$work/$name.time")
  rss=$(grep 'Maximum resident' "$work/$name.time" | awk '{print $NF}')
  [ -f "$work/$name.counts" ] && cmds=$(python3 -c "import json,sys; c=json.load(open(sys.argv[1])); print(sum(c.values()), dict(sorted(c.items())))" "$work/$name.counts")
  echo "| $name | $wall | $cpu | $((rss / 1024)) MB | $(cat "$work/$name.moved") | $cmds |"
}
echo "| Program | Wall time | CPU (user + sys) | Peak RSS | Messages moved | IMAP commands (by name) |"
echo "|---|---|---|---|---|---|"
report mailvane
report imapfilter
for name in mailvane imapfilter; do
  [ -f "$work/$name.seconds" ] && echo "$name, seconds from command to answer (proxied run): $(cat "$work/$name.seconds")"
done
echo "(work folder: $work)"
