#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, only those that are missing.
set -euo pipefail

PACKAGES=(cmake ninja-build g++ pkg-config binutils libjson-glib-dev libgtest-dev libgmock-dev
          libbenchmark-dev libcli11-dev libfmt-dev)
# Extra packages for optional work: EXTRA_PACKAGES="clang libclang-rt-14-dev valgrind".
read -r -a EXTRA <<< "${EXTRA_PACKAGES:-}"

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
