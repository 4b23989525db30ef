#!/usr/bin/env bash
# Builds with gcov instrumentation (preset "coverage"), runs every test and
# prints line and branch coverage of the product code: overall, then one
# line per folder so two runs compare with diff. Product code is everything
# but tests/, bench/, tools/ and the build tree.
#
# Environment: MV_COVERAGE_DIR (default build/coverage), MV_JOBS (default 2).
# Outputs in the build directory: coverage-folders.txt (the per-folder
# table), coverage-summary.json (per file), coverage-html/index.html, ctest.log.
# Exits with ctest's status after printing the figures, so a failing test
# does not hide them but is not missed either.
set -euo pipefail
cd "$(dirname "$0")/.."

if ! command -v gcovr >/dev/null 2>&1; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  echo "Installing gcovr"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends gcovr
fi

source scripts/build-env.sh
build=${MV_COVERAGE_DIR:-build/coverage}
jobs=${MV_JOBS:-2}
cmake --preset coverage -B "$build" >/dev/null
cmake --build "$build" -j"$jobs"

# Sources deleted since the last run (tests shrink) leave objects and .gcno
# notes behind; gcovr would count the headers they include as unrun code.
ninja -C "$build" -t cleandead >/dev/null
find "$build" -name '*.gcno' -print0 | while IFS= read -r -d '' notes; do
  [ -e "${notes%.gcno}.o" ] || rm -f "$notes"
done
# Counters from an earlier run would add up with this one.
find "$build" -name '*.gcda' -delete

export QT_QPA_PLATFORM=offscreen
status=0
echo "Running the tests (log: $build/ctest.log)"
ctest --test-dir "$build" -j"$jobs" --timeout 600 --output-on-failure \
  >"$build/ctest.log" 2>&1 || status=$?
sed -n '/tests passed/,$p' "$build/ctest.log"

rm -rf "$build/coverage-html"
mkdir -p "$build/coverage-html"
gcovr --root . --object-directory "$build" -j"$jobs" \
  --exclude 'tests/' --exclude 'bench/' --exclude 'tools/' --exclude 'build/' \
  --exclude-unreachable-branches --exclude-throw-branches \
  --json-summary-pretty --json-summary "$build/coverage-summary.json" \
  --html-details "$build/coverage-html/index.html" \
  --print-summary "$build"

# One line per folder: the top-level folder, or platform/<component>.
python3 - "$build/coverage-summary.json" "$build/coverage-folders.txt" <<'EOF'
import json, sys
from collections import defaultdict

files = json.load(open(sys.argv[1]))["files"]
sums = defaultdict(lambda: [0, 0, 0, 0])
for f in files:
    parts = f["filename"].split("/")
    key = "/".join(parts[:2]) if parts[0] == "platform" and len(parts) > 2 else parts[0]
    for k in (key, "TOTAL"):
        s = sums[k]
        s[0] += f["line_covered"]; s[1] += f["line_total"]
        s[2] += f["branch_covered"]; s[3] += f["branch_total"]

def pct(covered, total):
    return f"{100.0 * covered / total:5.1f}%" if total else "    -"

rows = [f"{'folder':<20} {'lines':>6} {'covered/total':>13}   {'branches':>8} {'covered/total':>13}"]
for key in sorted(k for k in sums if k != "TOTAL") + ["TOTAL"]:
    lc, lt, bc, bt = sums[key]
    rows.append(f"{key:<20} {pct(lc, lt):>6} {f'{lc}/{lt}':>13}   {pct(bc, bt):>8} {f'{bc}/{bt}':>13}")
table = "\n".join(rows) + "\n"
open(sys.argv[2], "w").write(table)
print(table, end="")
EOF

[ "$status" -eq 0 ] || echo "Some tests failed (ctest exit $status): see $build/ctest.log" >&2
exit "$status"
