#!/usr/bin/env bash
# The dynamic loader takes the library for the machine's level where it finds one, and that library gives the same bytes.
# Usage: hwcaps_test.sh WRITE_STREAMS DIGESTS_TEST...    the first with the shared library beside its variants
set -euo pipefail
program=$1
shift
loader=$(readelf -lW "$program" | sed -n 's/.*program interpreter: \(.*\)\]/\1/p')

fail() {
    echo "${0##*/}: $1" >&2
    exit 1
}

# Read to the end: a pipe that grep closes early would fail its writer.
levels=$("$loader" --help)
libraries=$(ldd "$program")
if grep -q 'x86-64-v3 (supported' <<<"$levels"; then
    grep -q 'glibc-hwcaps/x86-64-v3/libtavik' <<<"$libraries" || fail "the loader does not take the variant"
fi
"$@" "$program" || fail "the machine's variant gives other bytes"
"$@" "$loader" --glibc-hwcaps-mask '' "$program" || fail "the plain library gives other bytes"
