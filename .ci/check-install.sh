#!/usr/bin/env bash
# Installs BUILD into the staging tree STAGE and checks what a user of the installed files gets:
#   - the support library has a versioned SONAME and exports its public API only;
#   - no installed ELF file has a RUNPATH other than $ORIGIN-relative, and no installed file
#     holds the path of the source or build tree;
#   - a program outside the project builds against the support library with pkg-config and
#     with find_package, and runs;
#   - cpack makes the Debian packages, lintian-clean; energy-sim from the unpacked packages
#     meters the default day with no argument;
#   - energy-sim runs a simulated hour from a copy of the staging tree moved elsewhere while
#     the staging tree is out of reach.
set -euo pipefail
build=${1:?usage: check-install.sh BUILD STAGE}
stage=${2:?usage: check-install.sh BUILD STAGE}
root=$(pwd)

fail() {
  echo "install check: $*" >&2
  exit 1
}
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"; if [ -d "$stage.away" ]; then mv "$stage.away" "$stage"; fi' EXIT

rm -rf "$stage"
cmake --install "$build" --prefix "$stage" >/dev/null
stage=$(cd "$stage" && pwd)
lib=$(find "$stage" -name libwexf-common.so.1)
libdir=$(dirname "$lib")

# The support library.
soname=$(readelf -d "$lib" | sed -n 's/.*Library soname: \[\(.*\)\]/\1/p')
[ "$soname" = libwexf-common.so.1 ] || fail "$lib has SONAME '$soname'"
cmake -DLIBRARY="$lib" -DNM=nm -P tests/exports/CheckCommonExports.cmake

# RUNPATHs and absolute paths.
while IFS= read -r f; do
  readelf -h "$f" >/dev/null 2>&1 || continue
  runpath=$(readelf -d "$f" | sed -n 's/.*Library r[a-z]*path: \[\(.*\)\]/\1/p')
  for p in ${runpath//:/ }; do
    case "$p" in
      '$ORIGIN'*) ;;
      *) fail "$f has RUNPATH $p" ;;
    esac
  done
done < <(find "$stage" -type f)
if grep -rlF "$root" "$stage"; then
  fail "the files above hold the path $root"
fi
echo "install: SONAME $soname, \$ORIGIN RUNPATHs only, no path of $root"

# Consumers of the support library: a shared library linked with -z defs (every symbol it
# uses must be exported) and a program using it. The CMake build also checks that no installed
# header declares the library's internals.
PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --exists --print-errors wexf-common
common_flags=$(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs wexf-common)
# shellcheck disable=SC2086
c++ -std=c++17 -Wall -Wextra -Werror -fPIC -shared .ci/consumer/Report.cpp $common_flags \
  -Wl,-z,defs -o "$tmp/libreport.so"
# shellcheck disable=SC2086
c++ -std=c++17 -Wall -Wextra -Werror .ci/consumer/main.cpp -L"$tmp" -lreport $common_flags \
  -Wl,-rpath,"$libdir" -Wl,-rpath,"$tmp" -o "$tmp/consumer-pkgconfig"
"$tmp/consumer-pkgconfig" >/dev/null
cmake -S .ci/consumer -B "$tmp/consumer-cmake" -G Ninja -DCMAKE_PREFIX_PATH="$stage" >/dev/null
cmake --build "$tmp/consumer-cmake" >/dev/null
"$tmp/consumer-cmake/consumer" >/dev/null
echo "install: the consumer builds and runs with pkg-config and with find_package"

# Debian packages; energy-sim from the unpacked host kit meters the default day.
rm -rf "$build/packages"
(cd "$build" && cpack -G DEB >/dev/null 2>&1)
# Every error and warning of lintian fails; the overrides in cmake/debian/ say why each one
# left does not apply.
lintian --tag-display-limit 0 --fail-on error,warning "$build"/packages/*.deb 2>/dev/null ||
  fail "lintian: $(lintian --tag-display-limit 0 "$build"/packages/*.deb 2>/dev/null)"
echo "install: lintian finds no error and no warning in the packages"
for deb in "$build"/packages/*.deb; do
  echo "install: $(basename "$deb"): $(dpkg-deb -f "$deb" Depends)"
  dpkg-deb -x "$deb" "$tmp/debroot"
done
"$tmp/debroot/usr/bin/energy-sim" --log-level none >"$tmp/day.out" 2>"$tmp/day.err" ||
  fail "energy-sim from the packages failed: $(cat "$tmp/day.err")"
reports=$(grep -c dailyPowerConsumption "$tmp/day.out" || true)
[ "$reports" -ge 90 ] || fail "packaged energy-sim sent $reports reports in the default day"
echo "install: packaged energy-sim metered the default day, $reports reports"

# A moved copy of the staging tree, with the original out of reach.
cp -a "$stage" "$tmp/moved"
mv "$stage" "$stage.away"
(cd / && "$tmp/moved/bin/energy-sim" --duration 1h --log-level none) >"$tmp/hour.out" 2>"$tmp/hour.err" ||
  fail "moved energy-sim failed: $(cat "$tmp/hour.err")"
mv "$stage.away" "$stage"
reports=$(grep -c dailyPowerConsumption "$tmp/hour.out" || true)
[ "$reports" -ge 3 ] || fail "moved energy-sim sent $reports reports in an hour"
echo "install: moved energy-sim ran a simulated hour, $reports reports"
