# Shared by the install, package and demo tests, sourced with the test's
# arguments: each --name value pair sets the variable name; failures are
# counted and reported by finish.
while [ $# -gt 1 ]; do
    printf -v "${1#--}" '%s' "$2"
    shift 2
done
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
# same <what> <expected file> <actual file>
same() { diff -u "$2" "$3" || fail "$1"; }
# Process and thread ids, time stamps and object addresses differ from run
# to run.
ids() {
    sed -E -e 's/pid [0-9]+; tid [0-9]+/pid P; tid T/' -e 's/; sec [0-9]+; nsec [0-9]+/; sec S; nsec N/' \
        -e 's/pid = [0-9]+; tid = [0-9]+/pid = P; tid = T/' -e 's/\(pid: [0-9]+; tid: [0-9]+;/(pid: P; tid: T;/' \
        -e 's/this 0x[0-9a-f]+/this X/' -e 's/pid [0-9]+, /pid P, /'
}
finish() {
    [ "$failures" -eq 0 ] && echo "$1: passed" && exit 0
    echo "$1: $failures failures"
    exit 1
}
