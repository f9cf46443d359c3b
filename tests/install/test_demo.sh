#!/usr/bin/env bash
# kelvo-demo and examples/demo.tfi, run the way make demo runs them: the
# options of the demo, and with one worker, whose four orders take the four
# paths of the shop (placed, declined, sold out, refused), the exact flow
# and error records that the trace then holds, named by demo.tfi with no
# build level warning; and the severe error that stops the trace.
#
# test_demo.sh --kelvo PATH --demo PATH --tfidir DIR
set -uo pipefail

. "$(dirname "$0")/lib.sh" "$@"

tmp=$(mktemp -d "${TMPDIR:-/tmp}/kelvo-demo-test.XXXXXX")
export KELVO_INSTANCE=demo-test-$$
export TRCTFIDIR=$tfidir
trap '"$kelvo" off >/dev/null 2>&1; rm -rf -- "$tmp"' EXIT

# 1. Options.
usage="Usage: kelvo-demo [-t <threads>] [-c <calls>] [--severe]
  -t, --threads <n>  worker threads, 1 to 64 (default 4)
  -c, --calls <n>    orders each worker places, 1 to 100000 (default 5)
      --severe       lose the ledger on the first order: a severe error,
                     which stops a trace that allows one (kelvo on -e 1)
  -h, --help         show this text"
out=$("$demo" --help 2>&1)
status=$?
[ "$status" = 0 ] && [ "$out" = "$usage" ] || fail "kelvo-demo --help: status $status, $out"
for args in "-t 65|bad number of threads: 65" "-c 1x|bad number of calls: 1x" \
    "-c|bad number of calls: (missing)" "--verbose|unknown option: --verbose"; do
    # shellcheck disable=SC2086
    "$demo" ${args%%|*} >"$tmp/out" 2>"$tmp/err"
    status=$?
    expected="kelvo-demo: ${args#*|}
$usage"
    [ "$status" = 2 ] && [ ! -s "$tmp/out" ] && [ "$(cat "$tmp/err")" = "$expected" ] ||
        fail "kelvo-demo ${args%%|*}: status $status, stderr $(cat "$tmp/err")"
done

# 2. With no trace the demo says so and runs all the same.
"$demo" -t 1 -c 4 2>&1 | ids >"$tmp/out"
printf '%s\n' \
    "kelvo-demo: pid P, no trace is on in instance $KELVO_INSTANCE: nothing is recorded" \
    "kelvo-demo: 1 threads x 4 orders: 1 placed, 1 refused, 1 sold out, 1 declined, 0 failed" \
    >"$tmp/expected"
same "kelvo-demo without a trace" "$tmp/expected" "$tmp/out"

# 3. One worker, four orders, four paths.
[ "$("$kelvo" on)" = "Trace is turned on" ] || fail "kelvo on"
"$demo" -t 1 -c 4 2>&1 | ids >"$tmp/out"
printf '%s\n' \
    "kelvo-demo: pid P, tracing into instance $KELVO_INSTANCE" \
    "kelvo-demo: 1 threads x 4 orders: 1 placed, 1 refused, 1 sold out, 1 declined, 0 failed" \
    >"$tmp/expected"
same "kelvo-demo with a trace" "$tmp/expected" "$tmp/out"

"$kelvo" inf 2>"$tmp/err" | grep '^Version prod' >"$tmp/out"
echo "Version prod  42        :    1.4.2  (KelvoDemo)" >"$tmp/expected"
same "the demo's build level in kelvo inf" "$tmp/expected" "$tmp/out"
[ -s "$tmp/err" ] && fail "kelvo inf warns: $(cat "$tmp/err")"

"$kelvo" flw 2>"$tmp/err" | ids >"$tmp/out"
cat >"$tmp/expected" <<'EOF'
Trace wrapped           : no
Size of trace           : 2612 bytes
Records in trace        : 50


pid = P; tid = T; node = -1;

     1  1|api_entry    Main Demo::run ...
     2  1|api_printf   Main Demo::run (1) ...
    50  1|api_exit     Main Demo::run -> 0
Records formatted       : 3      (pid: P; tid: T; node: -1)


pid = P; tid = T; node = -1;

     3  1|api_entry    Main Demo::worker ...
     4  2|  api_entry    Shop Order::place ...
     5  3|    api_entry    Shop Order::validate ...
     6  3|    api_exit     Shop Order::validate -> 0
     7  3|    api_entry    Shop Order::price ...
     8  3|    api_printf   Shop Order::price (1) ...
     9  3|    api_exit     Shop Order::price -> 0
    10  3|    cii_entry    Shop Stock::reserve ...
    11  3|    cii_printf   Shop Stock::reserve (2) ...
    12  3|    cii_exit     Shop Stock::reserve -> 0
    13  3|    cei_entry    Bank Payment::charge ...
    14  4|      cii_entry    Bank Ledger::post ...
    15  4|      cii_printf   Bank Ledger::post (1) ...
    16  4|      cii_exit     Bank Ledger::post -> 0
    17  3|    cei_exit     Bank Payment::charge -> 0
    18  2|  api_exit     Shop Order::place -> 0
    19  2|  api_entry    Shop Order::place ...
    20  3|    api_entry    Shop Order::validate ...
    21  3|    api_exit     Shop Order::validate -> 0
    22  3|    api_entry    Shop Order::price ...
    23  3|    api_printf   Shop Order::price (1) ...
    24  3|    api_exit     Shop Order::price -> 0
    25  3|    cii_entry    Shop Stock::reserve ...
    26  3|    cii_printf   Shop Stock::reserve (2) ...
    27  3|    cii_exit     Shop Stock::reserve -> 0
    28  3|    cei_entry    Bank Payment::charge ...
    29  3|    NON-FATAL_ERROR  Bank Payment::charge (1) ...
    30  3|    cei_exit     Bank Payment::charge -> 0xfffffff3 = -13
    31  3|    cii_entry    Shop Stock::release ...
    32  3|    cii_exit     Shop Stock::release -> 0
    33  2|  api_exit     Shop Order::place -> 0xfffffff3 = -13
    34  2|  api_entry    Shop Order::place ...
    35  3|    api_entry    Shop Order::validate ...
    36  3|    api_exit     Shop Order::validate -> 0
    37  3|    api_entry    Shop Order::price ...
    38  3|    api_printf   Shop Order::price (1) ...
    39  3|    api_exit     Shop Order::price -> 0
    40  3|    cii_entry    Shop Stock::reserve ...
    41  3|    cii_printf   Shop Stock::reserve (1) ...
    42  3|    cii_exit     Shop Stock::reserve -> 0xffffff97 = -105
    43  2|  api_exit     Shop Order::place -> 0xffffff97 = -105
    44  2|  api_entry    Shop Order::place ...
    45  3|    api_entry    Shop Order::validate ...
    46  3|    NON-FATAL_ERROR  Shop Order::validate (1) ...
    47  3|    api_exit     Shop Order::validate -> 0xffffffea = -22
    48  2|  api_exit     Shop Order::place -> 0xffffffea = -22
    49  1|api_exit     Main Demo::worker -> 0
Records formatted       : 47     (pid: P; tid: T; node: -1)
EOF
same "kelvo flw of the demo" "$tmp/expected" "$tmp/out"
[ -s "$tmp/err" ] && fail "kelvo flw warns: $(cat "$tmp/err")"

"$kelvo" fmt -m 42.7 | ids >"$tmp/out"
printf '%s\n' \
    "Trace wrapped           : no" \
    "Size of trace           : 2612 bytes" \
    "Records in trace        : 50" \
    "" \
    $'29\tNON-FATAL_ERROR  KelvoDemo Bank Payment::charge (42.7.3.1.1.1)' \
    $'\tpid P; tid T; sec S; nsec N; this X' \
    $'\tpayment of 756.00 declined' \
    "" \
    $'46\tNON-FATAL_ERROR  KelvoDemo Shop Order::validate (42.7.2.1.2.1)' \
    $'\tpid P; tid T; sec S; nsec N; this X' \
    $'\torder 1.4 refused: item 2, quantity 0' \
    "Records formatted       : 2" >"$tmp/expected"
same "kelvo fmt of the demo's errors" "$tmp/expected" "$tmp/out"
[ "$("$kelvo" off)" = "Trace is turned off" ] || fail "kelvo off"

# 4. A severe error stops a trace that allows one, and a dump keeps it.
"$kelvo" on >/dev/null
"$demo" -t 1 -c 4 --severe | tail -n 1 >"$tmp/out"
echo "kelvo-demo: order 1.1 lost the ledger: a SYSTEM_ERROR record, which stops a trace that allows one severe error" >"$tmp/expected"
same "kelvo-demo --severe" "$tmp/expected" "$tmp/out"
[ "$("$kelvo" inf)" = "Trace is off." ] || fail "kelvo inf of a stopped trace"
"$kelvo" dmp "$tmp/severe.trc" || fail "kelvo dmp of a stopped trace"
"$kelvo" inf "$tmp/severe.trc" | grep -x "TRACE IS OFF!" >/dev/null || fail "kelvo inf of the dump"
"$kelvo" fmt -x 15 "$tmp/severe.trc" | ids | sed -n '4,8p' >"$tmp/out"
printf '%s\n' "" \
    $'15\tSYSTEM_ERROR     KelvoDemo Bank Ledger::post (42.2.3.2.1.1)' \
    $'\tpid P; tid T; sec S; nsec N; this X' \
    $'\tledger journal lost at order 1.1' \
    "Records formatted       : 1" >"$tmp/expected"
same "the severe error is the last record" "$tmp/expected" "$tmp/out"
"$kelvo" fmt -x 16 "$tmp/severe.trc" | grep -x "Records in trace        : 15" >/dev/null ||
    fail "records behind the severe error"
[ "$("$kelvo" off)" = "Trace is turned off" ] || fail "kelvo off of a stopped trace"
compgen -G "/dev/shm/kelvo.$KELVO_INSTANCE*" && fail "the trace's objects are left behind"
finish test_demo
