#!/usr/bin/env bash
# The Debian packages as an operator meets them: builds them with
# scripts/deb.sh (lintian errors fail it), installs them with dpkg -i,
# builds a traced C program through pkg-config against the installed files,
# runs it under `kelvo on` as a user of the group kelvusr, dumps and formats
# the trace, and purges the packages. Installing makes the account kelvusr
# when it is missing and keeps one that exists; purging leaves no trace
# behind.
#
# All of it happens in a mount namespace of its own, where /usr, /etc and
# /var are overlays and /dev/shm is a fresh tmpfs: the packages, the
# accounts and the traces never reach the machine, so the tests that run
# beside this one, and the machine itself, see nothing of it.
#
# test_deb.sh --source DIR --cc CC [--cmake CMAKE] [--cpack CPACK]
# Exits 77 (skipped) unless it runs as root on a machine with dpkg.
set -uo pipefail

cc=cc cmake=cmake cpack=cpack
. "$(dirname "$0")/lib.sh" "$@"

skip() {
    echo "SKIPPED: $*"
    exit 77
}

if [ -z "${KELVO_DEB_TEST_ROOT:-}" ]; then
    [ "$(id -u)" -eq 0 ] || skip "installing packages needs root"
    for tool in dpkg dpkg-deb dpkg-buildflags dpkg-shlibdeps unshare pkg-config adduser \
        useradd userdel groupadd groupdel runuser gzip "$cc"; do
        command -v "$tool" >/dev/null || skip "$tool is not installed"
    done
    tmp=$(mktemp -d "${TMPDIR:-/tmp}/kelvo-deb.XXXXXX")
    trap 'rm -rf -- "$tmp"' EXIT
    chmod 755 "$tmp"
    if ! CMAKE=$cmake CPACK=$cpack bash "$source/scripts/deb.sh" "$tmp/build" "$tmp/packages" \
        >"$tmp/deb.log" 2>&1; then
        cat "$tmp/deb.log"
        echo "FAIL: scripts/deb.sh"
        exit 1
    fi
    grep -E '^[EWI]: ' "$tmp/packages/lintian.txt" 2>/dev/null
    # The rest runs again in the private namespace.
    KELVO_DEB_TEST_ROOT=$tmp unshare --mount --propagation private \
        bash "$0" --source "$source" --cc "$cc" --cmake "$cmake" --cpack "$cpack"
    exit $?
fi

tmp=$KELVO_DEB_TEST_ROOT
mkdir -p "$tmp/layers"
mount -t tmpfs kelvo-deb-layers "$tmp/layers" || skip "no private mounts here"
for dir in usr etc var; do
    mkdir -p "$tmp/layers/$dir/upper" "$tmp/layers/$dir/work"
    mount -t overlay "kelvo-deb-$dir" \
        -o "lowerdir=/$dir,upperdir=$tmp/layers/$dir/upper,workdir=$tmp/layers/$dir/work" "/$dir" ||
        skip "no overlay on /$dir here"
done
mount -t tmpfs kelvo-deb-shm /dev/shm || skip "no private /dev/shm here"

packages=(kelvo libkelvo-dev libkelvo0)
purge() {
    dpkg --purge "${packages[@]}" >>"$tmp/dpkg.log" 2>&1
}
trap purge EXIT
install_packages() {
    dpkg -i "$tmp"/packages/*.deb >>"$tmp/dpkg.log" 2>&1 || {
        cat "$tmp/dpkg.log"
        fail "dpkg -i"
    }
}
forget_account() {
    userdel kelvusr 2>/dev/null
    groupdel kelvusr 2>/dev/null
}
libdir=/usr/lib/$(dpkg-architecture -qDEB_HOST_MULTIARCH 2>/dev/null || gcc -print-multiarch)

# 1. No account: installing makes a system group and user kelvusr.
userdel kelvotest 2>/dev/null
forget_account
install_packages
IFS=: read -r _ _ uid gid _ home shell < <(getent passwd kelvusr)
[ "${uid:-}" ] && [ "$uid" -lt 1000 ] || fail "kelvusr is not a system user: uid '${uid:-}'"
[ "$(getent group kelvusr | cut -d: -f3)" = "${gid:-}" ] || fail "kelvusr's group is not kelvusr"
[ "${home:-}:${shell:-}" = /nonexistent:/usr/sbin/nologin ] || fail "kelvusr has home and shell '$home:$shell'"

for f in /usr/bin/kelvo "$libdir/libkelvo.so" "$libdir/cmake/kelvo/kelvoConfig.cmake" \
    /usr/share/man/man1/kelvo.1.gz /usr/share/bash-completion/completions/kelvo; do
    [ -e "$f" ] || fail "$f is not installed"
done
for name in trcWriteRc trcWritef trcSetProdVersion trcSetCompanion trcSetNode trcIsOn; do
    [ "$(readlink "/usr/share/man/man3/$name.3.gz")" = trcWrite.3.gz ] || fail "no man page $name(3)"
done
[ "$(dpkg-query -W -f '${Status}' libkelvo0)" = "install ok installed" ] || fail "libkelvo0 is not installed"

# 2. A C program through pkg-config, against the installed files only.
# shellcheck disable=SC2046
"$cc" -o "$tmp/hello" "$here/hello.c" $(pkg-config --cflags --libs kelvo) || fail "build hello.c"
loaded=$(ldd "$tmp/hello" | awk '$1 == "libkelvo.so.0" {print $3}')
[ -n "$loaded" ] && [ "$loaded" -ef "$libdir/libkelvo.so.0" ] ||
    fail "hello loads '$loaded', not the installed library"

# 3. Root turns the trace on, which then belongs to kelvusr; a user of the
# group kelvusr writes into it and dumps it.
useradd --no-create-home --groups kelvusr --shell /bin/sh kelvotest || fail "useradd kelvotest"
export KELVO_INSTANCE=deb-test-$$ TRCTFIDIR=$tmp/tfi
mkdir -p "$tmp/tfi" "$tmp/out" && cp "$here/hello.tfi" "$tmp/tfi/" && chown kelvotest "$tmp/out"
[ "$(kelvo on)" = "Trace is turned on" ] || fail "kelvo on"
[ "$(stat -c '%U:%G %a' "/dev/shm/kelvo.$KELVO_INSTANCE")" = "kelvusr:kelvusr 660" ] ||
    fail "the trace is $(stat -c '%U:%G %a' "/dev/shm/kelvo.$KELVO_INSTANCE")"
as_user() {
    runuser -u kelvotest -- env KELVO_INSTANCE="$KELVO_INSTANCE" TRCTFIDIR="$TRCTFIDIR" "$@"
}
as_user "$tmp/hello" || fail "hello run by kelvotest stores no record"
(umask 022 && as_user kelvo dmp "$tmp/out/d.bin") || fail "kelvo dmp run by kelvotest"
[ "$(stat -c '%U %a' "$tmp/out/d.bin")" = "kelvotest 640" ] ||
    fail "the dump is $(stat -c '%U %a' "$tmp/out/d.bin")"

kelvo fmt "$tmp/out/d.bin" | ids >"$tmp/fmt.out"
printf '%s\n' "Trace wrapped           : no" "Size of trace           : 68 bytes" "Records in trace        : 1" "" \
    $'1\tapi_printf   Hello Install Probe::c_main (7.24.1.1.1.1)' $'\tpid P; tid T; sec S; nsec N' \
    $'\thello from pkg-config' "Records formatted       : 1" >"$tmp/fmt.expected"
same "kelvo fmt of the dump" "$tmp/fmt.expected" "$tmp/fmt.out"

# 4. Purging, with the trace still on, leaves nothing of the packages and
# no trace; the account stays, as files may belong to it.
purge || fail "dpkg --purge"
for f in /usr/bin/kelvo "$libdir/libkelvo.so.0" /usr/include/kelvo /usr/share/doc/kelvo \
    /usr/share/man/man3/trcWrite.3.gz; do
    [ -e "$f" ] && fail "$f is left after the purge"
done
leftover=$(find /dev/shm -name 'kelvo.*')
[ -z "$leftover" ] || fail "traces left after the purge: $leftover"
getent passwd kelvusr >/dev/null || fail "the purge removed kelvusr"

# 5. An account kelvusr that exists, even an ordinary one, is kept as it is.
userdel kelvotest
forget_account
groupadd --gid 4321 kelvusr && useradd --uid 4321 --gid kelvusr --no-create-home kelvusr ||
    fail "make an ordinary account kelvusr"
before=$(getent passwd kelvusr; getent group kelvusr)
install_packages
[ "$(getent passwd kelvusr; getent group kelvusr)" = "$before" ] ||
    fail "installing changed the existing account: $(getent passwd kelvusr)"
purge || fail "dpkg --purge over the existing account"
finish test_deb
