#!/usr/bin/env bash
# Mailvane vs imapfilter: one private Dovecot, one generated corpus in its
# INBOX, the same twenty rules for both (rules.py), each program run on a
# fresh copy of the mail through a proxy that counts IMAP commands, under
# /usr/bin/time -v. Run as root (Dovecot drops to nobody).
#
#   bash bench/imapfilter/run.sh [BUILD_DIR] [COUNT]     (default build/release 50000)
set -euo pipefail
cd "$(dirname "$0")/../.."
build=${1:-build/release}
count=${2:-50000}
here=bench/imapfilter
work=$(mktemp -d /tmp/mv-vs-imapfilter.XXXXXX)
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

maildir=$work/home/test/Maildir
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

start_dovecot() {
  rm -rf "$work/home" && cp -a "$work/pristine" "$work/home" && chown -R nobody:nogroup "$work/home"
  /usr/sbin/dovecot -c "$work/dovecot.conf"
  for _ in $(seq 50); do (echo > /dev/tcp/127.0.0.1/$port) 2>/dev/null && return; sleep 0.1; done
  echo "dovecot did not start"; cat "$work/dovecot.log"; exit 1
}
stop_dovecot() { kill "$(cat "$work/run/master.pid")"; sleep 1; }
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

moved() { find "$work/home/test/Maildir" -path '*/.R*/cur/*' -o -path '*/.R*/new/*' | grep -c . || true; }

python3 $here/CountingProxy.py "$proxy_port" "$port" "$work/counts.json" & proxy=$!
trap 'kill $proxy 2>/dev/null; [ -f $work/run/master.pid ] && kill $(cat $work/run/master.pid) 2>/dev/null; true' EXIT

# Mailvane
export HOME=$work/mvhome XDG_DATA_HOME=$work/mvhome/data XDG_CONFIG_HOME=$work/mvhome/config XDG_CACHE_HOME=$work/mvhome/cache
mkdir -p "$HOME"
printf '[Bench]\ntype=imap\nhost=127.0.0.1\nport=%s\ntls=none\nuser=test\npassword=secret\ntimeout=600\n' "$proxy_port" > "$work/profile.ini"
mv_cmd=("$build/host/mailvane" --profile "$work/profile.ini")
start_dovecot
"${mv_cmd[@]}" folders > "$work/folders.txt"
python3 $here/rules.py xml "$work/folders.txt" resources/rules/sample-rules.xml > "$work/rules.xml"
"${mv_cmd[@]}" import "$work/rules.xml" 2>/dev/null
rm -f "$work/counts.json" "$work/counts.json.seconds"
/usr/bin/time -v -o "$work/mailvane.time" "${mv_cmd[@]}" run > "$work/mailvane.out" 2>&1 || true
mv_moved=$(moved); cp "$work/counts.json" "$work/mailvane.counts"; cp "$work/counts.json.seconds" "$work/mailvane.seconds"
stop_dovecot

# imapfilter
python3 $here/rules.py lua "$proxy_port" > "$work/config.lua"
start_dovecot
rm -f "$work/counts.json" "$work/counts.json.seconds"
HOME=$work/ifhome; mkdir -p "$HOME/.imapfilter"
/usr/bin/time -v -o "$work/imapfilter.time" imapfilter -c "$work/config.lua" > "$work/imapfilter.out" 2>&1 || true
if_moved=$(moved); cp "$work/counts.json" "$work/imapfilter.counts"; cp "$work/counts.json.seconds" "$work/imapfilter.seconds"
stop_dovecot

report() {
  local name=$1 movedn=$2
  local wall cpu rss cmds
  wall=$(grep 'Elapsed (wall' "$work/$name.time" | awk '{print $NF}')
  cpu=$(awk -F': ' '/User time|System time/ {s += $2} END {printf "%.2f s", s}' "$work/$name.time")
  rss=$(grep 'Maximum resident' "$work/$name.time" | awk '{print $NF}')
  cmds=$(python3 -c "import json,sys; c=json.load(open(sys.argv[1])); print(sum(c.values()), dict(sorted(c.items())))" "$work/$name.counts")
  echo "| $name | $wall | $cpu | $((rss / 1024)) MB | $movedn | $cmds |"
}
echo "| Program | Wall time | CPU (user + sys) | Peak RSS | Messages moved | IMAP commands (by name) |"
echo "|---|---|---|---|---|---|"
report mailvane "$mv_moved"
report imapfilter "$if_moved"
for name in mailvane imapfilter; do echo "$name, seconds from command to answer: $(cat "$work/$name.seconds")"; done
echo "(work folder: $work)"
