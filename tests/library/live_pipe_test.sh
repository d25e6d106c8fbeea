#!/usr/bin/env bash
# The example live_pipe beside encode_pcm: same bytes whatever the pieces of the input, frames at once, every frame at
# SIGTERM, arguments that are refused.
# Usage: live_pipe_test.sh ENCODE_PCM LIVE_PIPE RECORDING [EMULATOR...]
set -euo pipefail
encode_pcm=$1 live_pipe=$2 recording=$3
shift 3
emulator=("$@")
live=("$@" "$live_pipe")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"
mkfifo pcm

fail() { echo "FAILED: $*"; exit 1; }

ffmpeg -v error -i "$recording" -ac 2 -ar 44100 -f s16le input.raw
whole_frames=$(($(stat -c %s input.raw) / 4096))

# wait_for COMMAND...: until it succeeds, at most a minute.
wait_for() {
    for _ in {1..6000}; do
        ! "$@" || return 0
        sleep 0.01
    done
    fail "waited in vain for: $*"
}

# Pieces of 1234 bytes, which end within samples and frames; a piece of a sample at the end is left out.
"${emulator[@]}" "$encode_pcm" <input.raw >expected.aac
{ dd if=input.raw bs=1234 status=none; printf x; } | "${live[@]}" >piped.aac
cmp expected.aac piped.aac

# The first frame of a live feed that pauses: three frames of input are enough.
"${live[@]}" <pcm >out.aac &
pid=$!
exec 9>pcm
head -c $((3 * 4096)) input.raw >&9
wait_for [ -s out.aac ]
exec 9>&-
wait "$pid"

# SIGTERM while the feed pauses: the stream is that of the samples given so far, finished.
size_is() { [ "$(stat -c %s "$1")" -eq "$2" ]; }
head -c $((4096 * whole_frames)) input.raw >whole.raw
"${emulator[@]}" "$encode_pcm" <whole.raw >whole.aac
"${live[@]}" <pcm >out.aac &
pid=$!
exec 9>pcm
cat whole.raw >&9
# Once that is read, the last two frames alone are still inside: the sizes of the others stand in their headers.
position=0
for ((i = 0; i < whole_frames - 2; ++i)); do
    read -r a b c < <(od -An -tu1 -j $((position + 3)) -N 3 whole.aac)
    position=$((position + ((a & 3) << 11 | b << 3 | c >> 5)))
done
wait_for size_is out.aac "$position"
kill -TERM "$pid"
wait "$pid" || fail "status $? at SIGTERM"
exec 9>&-
cmp whole.aac out.aac

# refuse PATTERN ARGUMENT...: what is said about them.
refuse() {
    local status=0 text
    text=$("${live[@]}" "${@:2}" 2>&1 </dev/null) || status=$?
    # shellcheck disable=SC2053 # a pattern
    [[ $status -eq 2 && $text == $1 ]] || fail "${*:2}: status $status, $text"
}
refuse '*RATE must be*' 44101
refuse '*CHANNELS must be*' 44100 3
refuse '*PER_CHANNEL must be*' 8000 1 64000
