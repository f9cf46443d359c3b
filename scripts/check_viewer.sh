#!/usr/bin/env bash
# make check-viewer: the demo's trace, exported by kelvo-export, must open in
# a real trace viewer. Builds the tool, the demo and kelvo-export in
# build-viewer/, takes the demo's trace (with time stamps) in a private
# instance, exports it, installs speedscope and playwright-core from the npm
# registry into build-viewer/node_modules and Debian's chromium if it is
# missing, and opens the export in speedscope in headless Chromium. Fails if
# the viewer reports an import error or shows no thread; leaves the export
# and a screenshot in build-viewer/ (docs/ holds a copy for the README).
#
# Environment: CMAKE (cmake), JOBS (2), KELVO_VIEWER_BUILD (build-viewer).
set -euo pipefail

top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
unset MAKELEVEL MAKEFLAGS MFLAGS

cmake=${CMAKE:-cmake}
jobs=${JOBS:-2}
build=${KELVO_VIEWER_BUILD:-build-viewer}
instance=viewer-$$
trace_on=0

cleanup() {
    local status=$?
    trap - EXIT
    if [ "$trace_on" = 1 ]; then
        "$build/src/trc/bin/kelvo" off >/dev/null 2>&1 || true
    fi
    [ "$status" -eq 0 ] || echo "check-viewer: FAILED (status $status)" >&2
    exit "$status"
}
trap cleanup EXIT

"$cmake" -S . -B "$build" -DKELVO_TESTS=OFF --log-level=WARNING
"$cmake" --build "$build" -j "$jobs" --target kelvo kelvo-demo kelvo-export kelvo-stats

export KELVO_INSTANCE=$instance TRCTFIDIR=$top/examples
out=$top/$build/viewer
rm -rf "$out"
mkdir -p "$out"
trace_on=1
"$build/src/trc/bin/kelvo" on
"$build/examples/kelvo-demo" -t 4 -c 5 >/dev/null
"$build/src/trc/bin/kelvo" dmp "$out/demo.trc"
"$build/src/trc/bin/kelvo" off
trace_on=0
"$build/src/trc/export/kelvo-export" "$out/demo.trc" "$out/demo.json"
"$build/src/trc/export/kelvo-stats" "$out/demo.trc" >"$out/demo-stats.txt"

if [ ! -f "$build/node_modules/speedscope/dist/release/index.html" ] ||
    [ ! -d "$build/node_modules/playwright-core" ]; then
    npm install --prefix "$build" --no-audit --no-fund --no-save speedscope playwright-core
fi
if [ ! -x /usr/bin/chromium ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "check-viewer: /usr/bin/chromium is missing; install Debian's chromium as root" >&2
        exit 1
    fi
    DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends chromium
fi
node scripts/check_viewer.mjs "$build/node_modules" "$out/demo.json" "$out/speedscope.png"
echo "check-viewer: passed; export, statistics and screenshot in $out"
