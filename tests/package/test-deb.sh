#!/bin/bash
# Builds the Debian package from a build tree with cpack, unpacks it into a
# temporary root and runs the program from there, with no library path and
# fresh user folders: it must start, find its installed data (not the build
# tree's) and create its database from the packaged template.
#
#   tests/package/test-deb.sh [BUILD_DIR]     (default: build/asan)
set -euo pipefail

build=$(cd "${1:-build/asan}" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() { echo "FAIL: $*" >&2; exit 1; }

(cd "$work" && cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work/out" >"$work/cpack.log" 2>&1) ||
    { cat "$work/cpack.log" >&2; fail "cpack did not build the package"; }
deb=$(ls "$work"/out/mailvane_*.deb 2>/dev/null | head -n1)
[ -n "$deb" ] || fail "no mailvane_*.deb in $work/out"

info=$(dpkg-deb --field "$deb" Package Depends)
grep -q '^Package: mailvane$' <<<"$info" || fail "package name: $info"
for lib in libqt6widgets6 libqt6network6 libsqlite3-0 libgmime-3.0-0 libetpan20; do
    grep -q "$lib" <<<"$info" || fail "Depends lacks $lib"
done

root="$work/root"
dpkg-deb -x "$deb" "$root"
for f in usr/bin/mailvane usr/share/mailvane/Database/_mvblank.mdb usr/share/mailvane/mv1.bmp \
         "usr/share/mailvane/mail search.png" usr/share/mailvane/resources/rules/sample-rules.xml \
         usr/share/mailvane/help/index.html usr/share/applications/mailvane.desktop \
         usr/share/icons/hicolor/48x48/apps/mailvane.png usr/lib/systemd/user/mailvane.service; do
    [ -e "$root/$f" ] || fail "missing from the package: $f"
done
grep -q '^ExecStart=/usr/bin/mailvane --headless$' "$root/usr/lib/systemd/user/mailvane.service" ||
    fail "service unit: $(grep ExecStart "$root/usr/lib/systemd/user/mailvane.service")"

# Fresh user folders; nothing of the build tree on the library path.
export HOME="$work/home" XDG_DATA_HOME="$work/home/data" XDG_CONFIG_HOME="$work/home/config"
unset LD_LIBRARY_PATH MAILVANE_INSTALL_DIR
export ASAN_OPTIONS=detect_leaks=0

help=$("$root/usr/bin/mailvane" --help) || fail "mailvane --help exited $?"
grep -q '^usage: mailvane' <<<"$help" || fail "no usage text"
grep -qx "installed files: $root/usr/share/mailvane" <<<"$help" ||
    fail "the program did not find its installed data: $(grep 'installed files' <<<"$help")"

"$root/usr/bin/mailvane" rules >"$work/rules.out" 2>"$work/rules.err" ||
    { cat "$work/rules.err" >&2; fail "mailvane rules exited $?"; }
[ -s "$XDG_DATA_HOME/Sorquin Software/Mailvane/mv.mdb" ] || fail "no database made from the packaged template"

echo "ok: $(basename "$deb") unpacks and runs"
