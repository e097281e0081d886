#!/usr/bin/env bash
# The build a set makes, proven on this machine: stages SYSROOT with the platform's and the
# framework's libraries under the pkg-config module names the device build asks for (stand-ins:
# the simulated TV and the framework host from the staging tree STAGE, with only the
# platform's declaration headers), configures and builds the `device` preset against it
# (every shared library linked with -Wl,-z,defs), and checks that what the plug-in and the
# support library take from the stand-ins is declared platform and framework functions only.
set -euo pipefail
stage=${1:?usage: check-device.sh STAGE SYSROOT}
sysroot=${2:?usage: check-device.sh STAGE SYSROOT}

fail() {
  echo "device check: $*" >&2
  exit 1
}
libdir=$(dirname "$(find "$stage" -name libtvsim.so)")

# Modules of platform/CMakeLists.txt and wexf/CMakeLists.txt (EC_PLATFORM=device).
platform_modules=(dlog vconf capi-system-info capi-media-sound-manager capi-system-device
                  capi-appfw-app-common capi-appfw-package-manager time-util)
rm -rf "$sysroot"
mkdir -p "$sysroot/usr/include" "$sysroot/usr/lib/pkgconfig"
cp "$stage"/include/tvsim/platform/*.h "$stage"/include/wexfhost/framework/*.h "$sysroot/usr/include/"
cp "$libdir/libtvsim.so" "$libdir/libwexf-host.so" "$sysroot/usr/lib/"
write_pc() { # MODULE LIBRARY
  cat >"$sysroot/usr/lib/pkgconfig/$1.pc" <<PC
prefix=\${pcfiledir}/../..
libdir=\${prefix}/lib
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

rm -rf build/device
cmake --preset device >/dev/null
cmake --build --preset device

# What the built libraries take from the stand-ins must be declared in the staged headers.
declared=$(grep -ohE '\b[A-Za-z_][A-Za-z0-9_]*[[:space:]]*\(' "$sysroot"/usr/include/*.h |
  tr -d ' \t(' | sort -u)
standins=$(nm -D --defined-only "$sysroot/usr/lib/libtvsim.so" "$sysroot/usr/lib/libwexf-host.so" |
  awk 'NF >= 3 {print $3}' | sed 's/@.*//' | sort -u)
for built in build/device/lib/libwexf-common.so.1 build/device/lib/libenergy-consumption.so; do
  [ -f "$built" ] || fail "$built was not built"
  used=$(nm -D --undefined-only "$built" | awk '{print $NF}' | sed 's/@.*//' | sort -u)
  taken=$(comm -12 <(echo "$used") <(echo "$standins"))
  undeclared=$(comm -23 <(echo "$taken") <(echo "$declared"))
  [ -z "$undeclared" ] || fail "$built uses stand-in symbols that no header declares: $undeclared"
  needed=$(readelf -d "$built" | sed -n 's/.*Shared library: \[\(.*\)\]/\1/p' | tr '\n' ' ')
  echo "device: $(basename "$built"): $(echo "$taken" | wc -w) platform/framework functions" \
    "($(echo $taken)); needs $needed"
done
