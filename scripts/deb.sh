#!/usr/bin/env bash
# Builds the Debian packages kelvo, libkelvo0 and libkelvo-dev: a build for
# /usr with Debian's build flags (dpkg-buildflags), packed by CPack's DEB
# generator, then checked by lintian where it is installed (errors fail).
#
# scripts/deb.sh [BUILD_DIR [OUT_DIR]]   (defaults: build-deb, BUILD_DIR/packages)
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:-build-deb}
out=${2:-$build/packages}
cmake=${CMAKE:-cmake}
cpack=${CPACK:-cpack}
jobs=${JOBS:-2}

for tool in dpkg-buildflags dpkg-deb dpkg-shlibdeps gzip; do
    command -v "$tool" >/dev/null || { echo "deb.sh: $tool is missing (apt-get install dpkg-dev)" >&2; exit 1; }
done
# Every hardening flag that Debian knows, bindnow included.
flags() { DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get "$1"; }

"$cmake" -S "$here" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
    -DKELVO_TESTS=OFF -DKELVO_SANITIZE=OFF -DKELVO_DEB=ON -DKELVO_GZIP_MAN=ON \
    -DCMAKE_C_FLAGS="$(flags CPPFLAGS) $(flags CFLAGS)" \
    -DCMAKE_CXX_FLAGS="$(flags CPPFLAGS) $(flags CXXFLAGS)" \
    -DCMAKE_EXE_LINKER_FLAGS="$(flags LDFLAGS)" \
    -DCMAKE_SHARED_LINKER_FLAGS="$(flags LDFLAGS)"
"$cmake" --build "$build" -j "$jobs"
mkdir -p "$out"
out=$(cd "$out" && pwd)
(cd "$build" && "$cpack" -G DEB -B "$out")
rm -rf "$out/_CPack_Packages"

if command -v lintian >/dev/null; then
    # lintian declines to run as root unless told it may.
    # Status 1 is tags of errors found, higher a failure of lintian itself.
    status=0
    lintian --allow-root "$out"/*.deb >"$out/lintian.txt" || status=$?
    cat "$out/lintian.txt"
    if [ "$status" -gt 1 ]; then
        echo "deb.sh: lintian failed (status $status)" >&2
        exit 1
    fi
    if [ "$status" -ne 0 ] || grep -q '^E: ' "$out/lintian.txt"; then
        echo "deb.sh: lintian reports errors" >&2
        exit 1
    fi
else
    echo "deb.sh: lintian is not installed; the packages are not checked"
fi
ls "$out"/*.deb
