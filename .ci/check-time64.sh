#!/usr/bin/env bash
# A 32-bit build reads the clock through glibc's 64-bit time entry points, so that its time
# stamps stay right after 2038-01-19T03:14:08Z: each LIBRARY imports __time64 and none of the
# classic functions that take or return a 32-bit time_t (or a struct holding one).
#   .ci/check-time64.sh NM LIBRARY...
set -euo pipefail
nm=${1:?usage: check-time64.sh NM LIBRARY...}
shift
classic=(time gettimeofday clock_gettime clock_nanosleep nanosleep pthread_cond_clockwait
         pthread_cond_timedwait stat stat64 fstat fstat64 lstat lstat64 fstatat fstatat64
         gmtime gmtime_r localtime localtime_r mktime timegm difftime)
for lib in "$@"; do
  imports=$("$nm" -D --undefined-only "$lib" | awk '{print $NF}' | sed 's/@.*//' | sort -u)
  if ! grep -qx __time64 <<<"$imports"; then
    echo "time64 check: $lib does not import __time64" >&2
    exit 1
  fi
  for f in "${classic[@]}"; do
    if grep -qx "$f" <<<"$imports"; then
      echo "time64 check: $lib imports the 32-bit time_t function $f" >&2
      exit 1
    fi
  done
  echo "time64: $(basename "$lib") imports $(grep -E '^__.*(64|time64)$' <<<"$imports" | tr '\n' ' ')"
done
