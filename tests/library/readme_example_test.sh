#!/usr/bin/env bash
# The C example of the README, compiled as pasted and run on a recording.
# Usage: readme_example_test.sh SOURCE_DIR LIBRARY RECORDING 'COMPILER [OPTIONS]' [EMULATOR...]
set -eu
source_dir=$1 library=$2 recording=$3 compiler=$4
shift 4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

awk '/^```c$/ {inside = 1; next} /^```$/ {inside = 0} inside' "$source_dir/README.md" >"$work/example.c"
diff "$source_dir/examples/encode_pcm.c" "$work/example.c" || { echo "README and examples/encode_pcm.c differ"; exit 1; }

# With the C compiler alone: the library needs no C++ run-time library.
# shellcheck disable=SC2086 # may hold options
$compiler -std=c11 -Wall -Wextra -Wpedantic -Werror -I "$source_dir/include" "$work/example.c" "$library" \
    -o "$work/example"
ffmpeg -v error -i "$recording" -ac 2 -ar 44100 -f s16le "$work/input.raw"
"$@" "$work/example" <"$work/input.raw" >"$work/output.aac"
faad -q -f 2 -o "$work/output.raw" "$work/output.aac"

# faad leaves out the first frame; the last one is completed with silence.
frames=$((($(stat -c %s "$work/input.raw") + 4095) / 4096))
expected=$(((frames - 1) * 4096))
actual=$(stat -c %s "$work/output.raw")
[ "$actual" -eq "$expected" ] || { echo "decoded $actual bytes instead of $expected"; exit 1; }
