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
best=
for level in x86-64-v2 x86-64-v3; do
    ! grep -q "$level (supported" <<<"$levels" || best=$level
done
[ -z "$best" ] || grep -q "glibc-hwcaps/$best/libtavik" <<<"$libraries" || fail "the loader does not take the variant"
"$@" "$program" || fail "the machine's variant gives other bytes"
"$@" "$loader" --glibc-hwcaps-mask x86-64-v2 "$program" || fail "the variant for SSE4.1 gives other bytes"
"$@" "$loader" --glibc-hwcaps-mask '' "$program" || fail "the plain library gives other bytes"
