#!/usr/bin/env bash
# make demo: builds kelvo and kelvo-demo, turns a trace on in a private
# instance, runs the demo, shows what the trace says and holds, and turns
# the trace off again. Every step prints its command line first, so that it
# can be repeated by hand from the top of the source tree. Nothing is left
# behind: the trace goes off and the temporary directory goes, on failure
# too, and the end checks that no shared memory object of the instance is
# left.
#
# Environment: CMAKE (cmake), JOBS (2), KELVO_DEMO_BUILD (build-demo),
# KELVO_DEMO_THREADS (4), KELVO_DEMO_CALLS (5).
set -euo pipefail

top=$(cd "$(dirname "$0")/.." && pwd)
cd "$top"
# Run from make, the build would print every directory it enters.
unset MAKELEVEL MAKEFLAGS MFLAGS

cmake=${CMAKE:-cmake}
jobs=${JOBS:-2}
build=${KELVO_DEMO_BUILD:-build-demo}
threads=${KELVO_DEMO_THREADS:-4}
calls=${KELVO_DEMO_CALLS:-5}
instance=demo-$$
shm=/dev/shm/kelvo.$instance
tmp=
trace_on=0

say() { printf '\n# %s\n' "$1"; }
show() { printf '$ %s\n' "$1"; }
run() {
    show "$*"
    "$@"
}

leftovers() {
    local left=()
    local f
    for f in "$shm" "$shm".*; do
        [ -e "$f" ] && left+=("$f")
    done
    printf '%s\n' "${left[@]}"
}

cleanup() {
    local status=$?
    trap - EXIT
    if [ "$trace_on" = 1 ]; then
        echo "demo: turning the trace off after a failure" >&2
        kelvo off >/dev/null 2>&1 || true
    fi
    [ -n "$tmp" ] && rm -rf -- "$tmp"
    local left
    left=$(leftovers)
    if [ -n "$left" ]; then
        echo "demo: FAILED: left behind: $left" >&2
        status=1
    fi
    if [ "$status" -ne 0 ]; then
        echo "demo: FAILED (status $status)" >&2
    fi
    exit "$status"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
trap 'exit 129' HUP
# A reader that goes away (make demo | head) must not leave the trace on.
trap 'exit 141' PIPE

say "Build the tool, the library and the demo (no test suite needed)"
run "$cmake" -S . -B "$build" -DKELVO_TESTS=OFF --log-level=WARNING
run "$cmake" --build "$build" -j "$jobs" --target kelvo kelvo-demo kelvo-export kelvo-stats

say "A private facility instance, the demo's .tfi file, and the programs"
show "export KELVO_INSTANCE=$instance"
export KELVO_INSTANCE=$instance
show "export TRCTFIDIR=\$PWD/examples"
export TRCTFIDIR=$top/examples
show "export PATH=\$PWD/$build/src/trc/bin:\$PWD/$build/src/trc/export:\$PWD/$build/examples:\$PATH"
export PATH=$top/$build/src/trc/bin:$top/$build/src/trc/export:$top/$build/examples:$PATH
tmp=$(mktemp -d "${TMPDIR:-/tmp}/kelvo-demo.XXXXXX")
show "tmp=\$(mktemp -d)    # here: $tmp"

say "Turn a trace on, with a time stamp in every record"
trace_on=1
run kelvo on

say "Run the demo: $threads threads place $calls orders each"
run kelvo-demo -t "$threads" -c "$calls"

say "What the trace header says"
run kelvo inf

say "Dump the trace to a binary trace file"
run kelvo dmp "$tmp/demo.trc"

say "The first 20 records in full"
run kelvo fmt -x 1-20 "$tmp/demo.trc"

say "The control flow of every thread into a file, then that of one worker"
run kelvo flw "$tmp/demo.trc" "$tmp/demo.flw"
show "awk '/^pid = /{n++} n==2' $tmp/demo.flw"
awk '/^pid = /{n++} n==2' "$tmp/demo.flw"

say "Time per function, and the trace for a trace viewer (Perfetto, speedscope)"
run kelvo-stats -n 5 "$tmp/demo.trc"
run kelvo-export "$tmp/demo.trc" "$tmp/demo.json"

say "Turn the trace off"
run kelvo off
trace_on=0

say "Nothing is left behind"
show "ls /dev/shm/kelvo.$instance*    # must find nothing"
left=$(leftovers)
if [ -n "$left" ]; then
    echo "$left"
    exit 1
fi
echo "no shared memory object of instance $instance; $tmp is removed on exit"
echo
echo "demo: done"
