#!/usr/bin/env bash
# The SHA-256 of every stream of write_streams is the one on record.
# Usage: digests_test.sh DIGESTS WRITE_STREAMS...    the program, with its emulator in front if it needs one
# A digest changes only with a commit that says why; with - for DIGESTS the list is printed.
set -euo pipefail
digests=$1
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$@" "$work"
export LC_ALL=C
(cd "$work" && sha256sum -- *) | if [ "$digests" = - ]; then cat; else diff "$digests" -; fi
