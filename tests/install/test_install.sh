#!/usr/bin/env bash
# Installs a build tree into a temporary prefix, and once more staged below
# DESTDIR, checks what lands where, builds a C program against the prefix
# through pkg-config and a C++ program through find_package(kelvo), and runs
# both against a live trace of the installed tool in a private instance. The
# installed man page must render without warnings and the installed bash
# completion must complete commands and options.
#
# test_install.sh --build DIR --source DIR --cc CC --cxx CXX --cmake CMAKE
#                 [--flags "COMPILER AND LINKER FLAGS"]
# The flags are those the build tree was compiled with that a program
# linking its library needs too (the sanitizers).
set -uo pipefail

build= source= cc= cxx= cmake=cmake flags=
while [ $# -gt 0 ]; do
    case $1 in
    --build) build=$2 ;;
    --source) source=$2 ;;
    --cc) cc=$2 ;;
    --cxx) cxx=$2 ;;
    --cmake) cmake=$2 ;;
    --flags) flags=$2 ;;
    *) echo "test_install: unknown argument $1" >&2; exit 2 ;;
    esac
    shift 2
done
here=$source/tests/install

failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
check() {  # check <what> <command...>: the command must succeed
    local what=$1
    shift
    "$@" || fail "$what"
}

tmp=$(mktemp -d "${TMPDIR:-/tmp}/kelvo-install.XXXXXX")
export KELVO_INSTANCE=install-test-$$
prefix=$tmp/prefix
kelvo=$prefix/bin/kelvo
cleanup() {
    "$kelvo" off >/dev/null 2>&1
    rm -rf -- "$tmp"
}
trap cleanup EXIT

# 1. Install into a prefix, and staged below DESTDIR.
check "install into $prefix" "$cmake" --install "$build" --prefix "$prefix" >"$tmp/install.log"
check "install staged below DESTDIR" env DESTDIR="$tmp/stage" \
    "$cmake" --install "$build" --prefix /opt/kelvo-test >>"$tmp/install.log"

version=$(sed -n 's/^Version: //p' "$prefix/lib/pkgconfig/kelvo.pc" 2>/dev/null)
major=${version%%.*}
for root in "$prefix" "$tmp/stage/opt/kelvo-test"; do
    for f in bin/kelvo lib/libkelvo.so "lib/libkelvo.so.$major" "lib/libkelvo.so.$version" \
        include/kelvo/trace.h include/kelvo/trace.hpp include/kelvo/facility.h \
        include/kelvo/trcformat.h share/man/man1/kelvo.1 share/man/man3/trcWrite.3 \
        share/bash-completion/completions/kelvo lib/pkgconfig/kelvo.pc \
        bin/kelvo-export bin/kelvo-stats share/man/man1/kelvo-export.1 share/man/man1/kelvo-stats.1 \
        share/bash-completion/completions/kelvo-export share/bash-completion/completions/kelvo-stats \
        lib/cmake/kelvo/kelvoConfig.cmake lib/cmake/kelvo/kelvoConfigVersion.cmake; do
        [ -e "$root/$f" ] || fail "$root/$f is not installed"
    done
done
[ -e /opt/kelvo-test ] && fail "DESTDIR was not honoured: /opt/kelvo-test exists"
[ "$(readlink "$prefix/lib/libkelvo.so")" = "libkelvo.so.$major" ] ||
    fail "libkelvo.so does not point at libkelvo.so.$major"
if command -v objdump >/dev/null; then
    soname=$(objdump -p "$prefix/lib/libkelvo.so.$version" | awk '$1 == "SONAME" {print $2}')
    [ "$soname" = "libkelvo.so.$major" ] || fail "soname is '$soname', not libkelvo.so.$major"
fi

# 2. A C program through pkg-config.
if command -v pkg-config >/dev/null; then
    export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
    [ "$(pkg-config --modversion kelvo)" = "$version" ] || fail "pkg-config --modversion kelvo"
    [ "$(pkg-config --variable=includedir kelvo)" -ef "$prefix/include" ] ||
        fail "pkg-config includedir is not $prefix/include"
    # shellcheck disable=SC2046,SC2086
    check "build hello.c through pkg-config" "$cc" $flags -o "$tmp/hello-pc" "$here/hello.c" \
        $(pkg-config --cflags --libs kelvo) -Wl,-rpath,"$prefix/lib"
else
    echo "pkg-config is not installed: the C program is built without it"
    # shellcheck disable=SC2086
    check "build hello.c" "$cc" $flags -o "$tmp/hello-pc" "$here/hello.c" \
        -I"$prefix/include" -L"$prefix/lib" -lkelvo -Wl,-rpath,"$prefix/lib"
fi

# 3. A C++ program through find_package(kelvo).
if ! { "$cmake" -S "$here/consumer" -B "$tmp/consumer" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_CXX_FLAGS="$flags" -DCMAKE_EXE_LINKER_FLAGS="$flags" &&
    "$cmake" --build "$tmp/consumer"; } >"$tmp/consumer.log" 2>&1; then
    cat "$tmp/consumer.log"
    fail "build a program through find_package(kelvo)"
fi

for program in "$tmp/hello-pc" "$tmp/consumer/hello-cmake"; do
    # grep reads all of its input: with pipefail, an early exit of grep -q
    # could fail the pipeline through SIGPIPE in the writer.
    ldd "$program" 2>/dev/null | grep "libkelvo.so.$major => $prefix/lib/" >/dev/null ||
        fail "$program does not load the installed library"
done

# 4. Both programs against a live trace of the installed tool.
mkdir -p "$tmp/tfi" && cp "$here/hello.tfi" "$tmp/tfi/"
export TRCTFIDIR=$tmp/tfi
[ "$("$kelvo" on)" = "Trace is turned on" ] || fail "installed kelvo on"
check "hello-pc stores its record" "$tmp/hello-pc"
check "hello-cmake stores its records" "$tmp/consumer/hello-cmake"

"$kelvo" inf | grep -x "Version prod   7        :   inst.1  (Hello)" >/dev/null ||
    fail "kelvo inf does not show the product level that hello-pc set"

"$kelvo" fmt | sed -E -e 's/pid [0-9]+; tid [0-9]+/pid P; tid T/' \
    -e 's/; sec [0-9]+; nsec [0-9]+$/; sec S; nsec N/' >"$tmp/fmt.out"
printf '%s\n' \
    "Trace wrapped           : no" \
    "Size of trace           : 236 bytes" \
    "Records in trace        : 4" \
    "" \
    $'1\tapi_printf   Hello Install Probe::c_main (7.24.1.1.1.1)' \
    $'\tpid P; tid T; sec S; nsec N' \
    $'\thello from pkg-config' \
    "" \
    $'2\tapi_entry    Hello Install Probe::cxx_main (7.22.1.1.2.0)' \
    $'\tpid P; tid T; sec S; nsec N' \
    $'\tscope' \
    "" \
    $'3\tapi_printf   Hello Install Probe::cxx_main (7.24.1.1.2.1)' \
    $'\tpid P; tid T; sec S; nsec N' \
    $'\thello from find_package' \
    "" \
    $'4\tapi_exit     Hello Install Probe::cxx_main (7.23.1.1.2.0)' \
    $'\tpid P; tid T; sec S; nsec N' \
    "Records formatted       : 4" >"$tmp/fmt.expected"
diff -u "$tmp/fmt.expected" "$tmp/fmt.out" || fail "kelvo fmt of the live trace"

[ "$("$kelvo" off)" = "Trace is turned off" ] || fail "installed kelvo off"
for f in /dev/shm/kelvo."$KELVO_INSTANCE"*; do
    [ -e "$f" ] && fail "$f is left behind"
done

# 5. The man pages render without a warning; each function of the writer
# API has a page of its name.
for name in trcWriteRc trcWritef trcSetProdVersion trcSetCompanion trcSetNode trcIsOn; do
    [ "$(readlink "$prefix/share/man/man3/$name.3")" = trcWrite.3 ] ||
        fail "man3/$name.3 does not lead to trcWrite.3"
done
if command -v groff >/dev/null; then
    for page in man1/kelvo.1 man1/kelvo-export.1 man1/kelvo-stats.1 man3/trcWrite.3; do
        warnings=$(groff -man -ww -z -Tutf8 "$prefix/share/man/$page" 2>&1)
        [ -z "$warnings" ] || fail "$page has warnings: $warnings"
    done
else
    echo "groff is not installed: the man page is not rendered"
fi

# 6. The bash completion completes commands, options and file names.
complete_words() {  # complete_words <words...>: what the last word completes to
    bash -c '
        source "$1"; shift
        COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
        COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
        _kelvo kelvo "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
        [ ${#COMPREPLY[@]} -eq 0 ] || printf "%s\n" "${COMPREPLY[@]}" | LC_ALL=C sort | tr "\n" " "
    ' complete "$prefix/share/bash-completion/completions/kelvo" "$@"
}
[ "$(complete_words kelvo o)" = "off on " ] || fail "completion of 'kelvo o': $(complete_words kelvo o)"
[ "$(complete_words kelvo f)" = "flow flw fmt format " ] ||
    fail "completion of 'kelvo f': $(complete_words kelvo f)"
[ "$(complete_words kelvo on -pa)" = "-pause_attrib -pause_mask " ] ||
    fail "completion of 'kelvo on -pa': $(complete_words kelvo on -pa)"
[ "$(complete_words kelvo chg -)" = "-c -crash -e -m -p -pause_attrib -pause_mask -r -rc -this " ] ||
    fail "completion of 'kelvo chg -': $(complete_words kelvo chg -)"
[ "$(complete_words kelvo fmt -)" = "-j -m -p -r -x " ] ||
    fail "completion of 'kelvo fmt -': $(complete_words kelvo fmt -)"
[ -z "$(complete_words kelvo off "")" ] || fail "completion after 'kelvo off'"
touch "$tmp/trace-a.bin"
[ "$(cd "$tmp" && complete_words kelvo fmt trace-)" = "trace-a.bin " ] ||
    fail "completion of a file name behind fmt"

complete_export() {  # complete_export <words...>: as complete_words, for the programs beside kelvo
    bash -c '
        source "$1"; shift
        COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1))
        _kelvo_export "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
        [ ${#COMPREPLY[@]} -eq 0 ] || printf "%s\n" "${COMPREPLY[@]}" | LC_ALL=C sort | tr "\n" " "
    ' complete "$prefix/share/bash-completion/completions/kelvo-stats" "$@"
}
[ "$(complete_export kelvo-export -)" = "--csv -m -p -x " ] ||
    fail "completion of 'kelvo-export -': $(complete_export kelvo-export -)"
[ "$(complete_export kelvo-stats -s s)" = "self " ] ||
    fail "completion of 'kelvo-stats -s s': $(complete_export kelvo-stats -s s)"
# The installed programs find the installed library and run.
case $("$prefix/bin/kelvo-stats" help) in
"Usage: kelvo-stats"*) ;;
*) fail "installed kelvo-stats does not run" ;;
esac

if [ "$failures" -ne 0 ]; then
    echo "test_install: $failures failures"
    exit 1
fi
echo "test_install: passed"
