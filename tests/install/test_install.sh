#!/usr/bin/env bash
# Installs a build tree into a temporary prefix, and once more staged below
# DESTDIR, checks what lands where, builds a C program against the prefix
# through pkg-config and a C++ program through find_package(kelvo), and runs
# both against a live trace of the installed tool in a private instance. The
# man pages must render without warnings and the bash completion must
# complete commands and options.
#
# test_install.sh --build DIR --source DIR --cc CC --cxx CXX --cmake CMAKE
#                 [--flags "COMPILER AND LINKER FLAGS"]
# The flags are those the build tree was compiled with that a program
# linking its library needs too (the sanitizers).
set -uo pipefail
flags=
. "$(dirname "$0")/lib.sh" "$@"

tmp=$(mktemp -d "${TMPDIR:-/tmp}/kelvo-install.XXXXXX")
export KELVO_INSTANCE=install-test-$$
prefix=$tmp/prefix
kelvo=$prefix/bin/kelvo
trap '"$kelvo" off >/dev/null 2>&1; rm -rf -- "$tmp"' EXIT

# 1. Install into a prefix, and staged below DESTDIR.
"$cmake" --install "$build" --prefix "$prefix" >"$tmp/install.log" || fail "install into $prefix"
DESTDIR="$tmp/stage" "$cmake" --install "$build" --prefix /opt/kelvo-test >>"$tmp/install.log" ||
    fail "install staged below DESTDIR"
version=$(sed -n 's/^Version: //p' "$prefix/lib/pkgconfig/kelvo.pc" 2>/dev/null)
major=${version%%.*}
for root in "$prefix" "$tmp/stage/opt/kelvo-test"; do
    for f in bin/kelvo bin/kelvo-export bin/kelvo-stats lib/libkelvo.so.$version include/kelvo/trace.h \
        include/kelvo/trace.hpp include/kelvo/facility.h include/kelvo/trcformat.h lib/pkgconfig/kelvo.pc \
        lib/cmake/kelvo/kelvoConfig.cmake lib/cmake/kelvo/kelvoConfigVersion.cmake \
        share/bash-completion/completions/{kelvo,kelvo-export,kelvo-stats}; do
        [ -e "$root/$f" ] || fail "$root/$f is not installed"
    done
done
[ -e /opt/kelvo-test ] && fail "DESTDIR was not honoured: /opt/kelvo-test exists"
[ "$(readlink "$prefix/lib/libkelvo.so")" = "libkelvo.so.$major" ] || fail "libkelvo.so is not a link to the soname"
[ "$(readlink "$prefix/lib/libkelvo.so.$major")" = "libkelvo.so.$version" ] || fail "no soname link"
soname=$(objdump -p "$prefix/lib/libkelvo.so.$version" | awk '$1 == "SONAME" {print $2}')
[ "$soname" = "libkelvo.so.$major" ] || fail "soname is '$soname', not libkelvo.so.$major"

# 2. A C program through pkg-config, a C++ one through find_package(kelvo).
export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
[ "$(pkg-config --variable=includedir kelvo)" -ef "$prefix/include" ] || fail "pkg-config includedir"
# shellcheck disable=SC2046,SC2086
"$cc" $flags -o "$tmp/hello-pc" "$here/hello.c" $(pkg-config --cflags --libs kelvo) -Wl,-rpath,"$prefix/lib" ||
    fail "build hello.c through pkg-config"
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

# 3. Both programs against a live trace of the installed tool.
mkdir -p "$tmp/tfi" && cp "$here/hello.tfi" "$tmp/tfi/"
export TRCTFIDIR=$tmp/tfi
[ "$("$kelvo" on)" = "Trace is turned on" ] || fail "installed kelvo on"
"$tmp/hello-pc" || fail "hello-pc stores no record"
"$tmp/consumer/hello-cmake" || fail "hello-cmake stores no records"
"$kelvo" inf | grep -x "Version prod   7        :   inst.1  (Hello)" >/dev/null ||
    fail "kelvo inf does not show the product level that hello-pc set"
"$kelvo" fmt | ids >"$tmp/fmt.out"
printf '%s\n' "Trace wrapped           : no" "Size of trace           : 236 bytes" "Records in trace        : 4" \
    "" $'1\tapi_printf   Hello Install Probe::c_main (7.24.1.1.1.1)' $'\tpid P; tid T; sec S; nsec N' \
    $'\thello from pkg-config' \
    "" $'2\tapi_entry    Hello Install Probe::cxx_main (7.22.1.1.2.0)' $'\tpid P; tid T; sec S; nsec N' $'\tscope' \
    "" $'3\tapi_printf   Hello Install Probe::cxx_main (7.24.1.1.2.1)' $'\tpid P; tid T; sec S; nsec N' \
    $'\thello from find_package' \
    "" $'4\tapi_exit     Hello Install Probe::cxx_main (7.23.1.1.2.0)' $'\tpid P; tid T; sec S; nsec N' \
    "Records formatted       : 4" >"$tmp/fmt.expected"
same "kelvo fmt of the live trace" "$tmp/fmt.expected" "$tmp/fmt.out"
[ "$("$kelvo" off)" = "Trace is turned off" ] || fail "installed kelvo off"
compgen -G "/dev/shm/kelvo.$KELVO_INSTANCE*" && fail "the trace's objects are left behind"

# 4. The man pages render without a warning; each function of the writer
# API has a page of its name.
for name in trcWriteRc trcWritef trcSetProdVersion trcSetCompanion trcSetNode trcIsOn; do
    [ "$(readlink "$prefix/share/man/man3/$name.3")" = trcWrite.3 ] || fail "man3/$name.3 is not trcWrite.3"
done
for page in man1/kelvo.1 man1/kelvo-export.1 man1/kelvo-stats.1 man3/trcWrite.3; do
    warnings=$(groff -man -ww -z -Tutf8 "$prefix/share/man/$page" 2>&1)
    [ -z "$warnings" ] || fail "$page has warnings: $warnings"
done

# 5. The bash completion completes commands, options and file names:
# "<completion file>|<function>|<words, _ for an empty one>|<replies>".
touch "$tmp/trace-a.bin"
while IFS='|' read -r file function words expected; do
    # shellcheck disable=SC2016,SC2086
    got=$(cd "$tmp" && bash -c '
        source "$1"; function=$2; shift 2; set -- "${@/#_/}"
        COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); COMP_LINE="$*"; COMP_POINT=${#COMP_LINE}
        $function "$1" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD-1]}"
        [ ${#COMPREPLY[@]} -eq 0 ] || printf "%s\n" "${COMPREPLY[@]}" | LC_ALL=C sort | tr "\n" " "
    ' complete "$prefix/share/bash-completion/completions/$file" "$function" $words)
    [ "$got" = "$expected" ] || fail "completion of '$words': '$got'"
done <<'EOF_CASES'
kelvo|_kelvo|kelvo o|off on 
kelvo|_kelvo|kelvo f|flow flw fmt format 
kelvo|_kelvo|kelvo on -pa|-pause_attrib -pause_mask 
kelvo|_kelvo|kelvo chg -|-c -crash -e -m -p -pause_attrib -pause_mask -r -rc -this 
kelvo|_kelvo|kelvo fmt -|-j -m -p -r -x 
kelvo|_kelvo|kelvo fmt trace-|trace-a.bin 
kelvo|_kelvo|kelvo off _|
kelvo-stats|_kelvo_export|kelvo-export -|--csv -m -p -x 
kelvo-stats|_kelvo_export|kelvo-stats -s s|self 
EOF_CASES
case $("$prefix/bin/kelvo-stats" help) in
"Usage: kelvo-stats"*) ;;
*) fail "installed kelvo-stats does not run" ;;
esac
finish test_install
