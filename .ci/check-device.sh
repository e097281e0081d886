#!/usr/bin/env bash
# The build a set makes, proven on this machine: stages SYSROOT with the platform's and the
# framework's libraries under the pkg-config module names the device build asks for (stand-ins:
# the simulated TV and the framework host from the staging tree STAGE, with only the
# platform's declaration headers), configures and builds a `-DEC_PLATFORM=device` build against
# it (every shared library linked with -Wl,-z,defs), and checks that what the plug-in and the
# support library take from the stand-ins is declared platform and framework functions only.
#   .ci/check-device.sh STAGE SYSROOT          this machine's build (the `device` preset)
#   .ci/check-device.sh STAGE SYSROOT ARCH     cross-built for armhf or arm64: SYSROOT starts as
#                                              a copy of build/sysroot-ARCH (Debian's C library,
#                                              json-glib) and STAGE holds stand-ins built for
#                                              ARCH; 32-bit targets must call __time64
set -euo pipefail
cd "$(dirname "$0")/.."
stage=${1:?usage: check-device.sh STAGE SYSROOT [ARCH]}
sysroot=${2:?usage: check-device.sh STAGE SYSROOT [ARCH]}
arch=${3:-}

fail() {
  echo "device check: $*" >&2
  exit 1
}
standin_dir=$(dirname "$(find "$stage" -name libtvsim.so)")
nm=nm
rm -rf "$sysroot"
if [ -z "$arch" ]; then
  build=build/device
  libdir=$sysroot/usr/lib
  pcdir=$libdir/pkgconfig
  pcprefix='${pcfiledir}/../..'
else
  case "$arch" in
    armhf) triple=arm-linux-gnueabihf ;;
    arm64) triple=aarch64-linux-gnu ;;
    *) fail "unknown architecture '$arch' (armhf, arm64)" ;;
  esac
  build=build/device-$arch
  nm=$triple-nm
  bash scripts/stage-sysroot.sh "$arch"
  # Hard links: the Debian sysroot stays as staged, the copy costs no space.
  cp -al "build/sysroot-$arch" "$sysroot"
  libdir=$sysroot/usr/lib/$triple
  pcdir=$libdir/pkgconfig
  # pkg-config puts the sysroot in front of every path it prints.
  pcprefix=/usr
fi

# Modules of platform/CMakeLists.txt and wexf/CMakeLists.txt (EC_PLATFORM=device).
platform_modules=(dlog vconf capi-system-info capi-media-sound-manager capi-system-device
                  capi-appfw-app-common capi-appfw-package-manager time-util)
mkdir -p "$sysroot/usr/include" "$pcdir"
cp "$stage"/include/tvsim/platform/*.h "$stage"/include/wexfhost/framework/*.h "$sysroot/usr/include/"
cp "$standin_dir/libtvsim.so" "$standin_dir/libwexf-host.so" "$libdir/"
write_pc() { # MODULE LIBRARY
  cat >"$pcdir/$1.pc" <<PC
prefix=$pcprefix
libdir=\${prefix}/lib${triple:+/$triple}
includedir=\${prefix}/include

Name: $1
Description: stand-in for the set's $1, staged from the host kit's lib$2
Version: 1.0
Cflags: -I\${includedir}
Libs: -L\${libdir} -l$2
PC
}
for m in "${platform_modules[@]}"; do
  write_pc "$m" tvsim
done
write_pc wexf wexf-host

rm -rf "$build"
if [ -z "$arch" ]; then
  cmake --preset device >/dev/null
  cmake --build --preset device
else
  cmake -S . -B "$build" -G Ninja -DCMAKE_TOOLCHAIN_FILE="cmake/toolchains/$arch.cmake" \
    -DEC_SYSROOT="$PWD/$sysroot" -DEC_PLATFORM=device -DEC_BUILD_TESTS=OFF -DEC_WERROR=ON \
    -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  cmake --build "$build" -j2
fi

# What the built libraries take from the stand-ins must be declared in the staged headers.
declared=$(grep -ohE '\b[A-Za-z_][A-Za-z0-9_]*[[:space:]]*\(' "$sysroot"/usr/include/*.h |
  tr -d ' \t(' | sort -u)
standins=$($nm -D --defined-only "$libdir/libtvsim.so" "$libdir/libwexf-host.so" |
  awk 'NF >= 3 {print $3}' | sed 's/@.*//' | sort -u)
for built in "$build/lib/libwexf-common.so.1" "$build/lib/libenergy-consumption.so"; do
  [ -f "$built" ] || fail "$built was not built"
  used=$($nm -D --undefined-only "$built" | awk '{print $NF}' | sed 's/@.*//' | sort -u)
  taken=$(comm -12 <(echo "$used") <(echo "$standins"))
  undeclared=$(comm -23 <(echo "$taken") <(echo "$declared"))
  [ -z "$undeclared" ] || fail "$built uses stand-in symbols that no header declares: $undeclared"
  needed=$(readelf -d "$built" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p' | tr '\n' ' ')
  echo "device${arch:+ ($arch)}: $(basename "$built"): $(echo "$taken" | wc -w) platform/framework" \
    "functions ($(echo $taken)); needs $needed"
done
if [ "$arch" = armhf ]; then
  bash .ci/check-time64.sh "$nm" "$build/lib/libenergy-consumption.so"
fi
