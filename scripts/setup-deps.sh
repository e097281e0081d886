#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, only those that are missing;
# with --cross, also those of the cross builds.
# Add a package on a line of its own, to the group it belongs to.
set -euo pipefail

PACKAGES=(
  # Build
  cmake ninja-build g++ pkg-config binutils
  libjson-glib-dev
  # The host kit's programs: options, formatting, the factor fit
  libcli11-dev libfmt-dev libeigen3-dev
  # Tests and benchmarks
  libgtest-dev libgmock-dev libbenchmark-dev
  # CI: the clang build, the Debian packages (dpkg-shlibdeps reads binaries with file; the
  # programs' manual pages come from help2man; lintian checks the packages)
  clang dpkg-dev file help2man lintian
)
# The builds for a set's CPU (./test.sh armhf arm64): Debian's cross compilers, qemu-user to run
# what they build, mmdebstrap to stage the target's libraries (scripts/stage-sysroot.sh).
CROSS_PACKAGES=(g++-arm-linux-gnueabihf g++-aarch64-linux-gnu qemu-user-static mmdebstrap)
# Extra packages for optional work: EXTRA_PACKAGES="libclang-rt-14-dev valgrind".
read -r -a EXTRA <<< "${EXTRA_PACKAGES:-}"
if [ "${1:-}" = "--cross" ]; then
  EXTRA+=("${CROSS_PACKAGES[@]}")
fi

missing=()
for p in "${PACKAGES[@]}" "${EXTRA[@]}"; do
  [ -n "$p" ] || continue
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all build dependencies are installed"
  exit 0
fi

SUDO=""
if [ "$(id -u)" -ne 0 ]; then
  SUDO="sudo"
fi
echo "setup: installing ${missing[*]}"
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "setup: done"
