#!/bin/bash
# Tests the program tavik: tavik_test.sh PROGRAM. Prints every check that fails and then exits with status 1.
# ffmpeg makes the inputs and, with faad, decodes the outputs.
# shellcheck disable=SC2086,SC2317  # arguments in tables are meant to be split; functions are called by their parts
set -u
program=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
umask 027
mkdir out
failures=0

# expect WHAT PATTERN ACTUAL: a shell pattern.
expect() {
    # shellcheck disable=SC2053
    [[ $3 == $2 ]] && return
    printf 'FAILED: %s\n  expected: %s\n  actual:   %s\n' "$@"
    failures=$((failures + 1))
}

# make_input FILE EXPRESSION RATE [FFMPEG OPTIONS]: synthesizes audio, FFmpeg's aevalsrc syntax.
make_input() {
    ffmpeg -v error -y -f lavfi -i "aevalsrc=$2:s=$3" "${@:4}" "$1" </dev/null || exit 1
}

# run ARGUMENTS: runs the program; leaves what it printed in text and messages, its status and lines in result.
run() {
    text=$("$program" "$@" 2>stderr.txt </dev/null)
    result="$? $(wc -l <stderr.txt)"
    messages=$(<stderr.txt)
}

# encode ARGUMENTS: a run that must succeed with one line.
encode() {
    run "$@"
    expect "status and lines of: $* ($messages)" '0 1' "$result"
}

# refuse STATUS PATTERN ARGUMENTS: a run that must fail with one line and leave the directory out/ as it is.
refuse() {
    before=$(ls -A out)
    run "${@:3}"
    expect "status and lines of: ${*:3}" "$1 1" "$result"
    expect "message of: ${*:3}" "tavik: *$2*" "$messages"
    expect "files after: ${*:3}" "$before" "$(ls -A out)"
}

# view_of_... FILE. ffmpeg and faad: rate, channels, samples per channel and the level of every channel in dB; faad
# leaves out the first frame and makes two channels of one. bytes: the first ones, hexadecimal.
view_of_ffmpeg() {
    local measure=astats=measure_perchannel=RMS_level:measure_overall=Number_of_samples
    ffmpeg -hide_banner -f "${1##*.}" -i "$1" -af aformat=s16,$measure -f null - </dev/null 2>&1 |
        awk '/Stream .*Audio/ { split($0, part, /, | Hz/) }
             /RMS level/ { levels = levels sprintf(",%.0f", $NF) }
             /Number of samples/ { samples = $NF }
             END { print part[2] "," part[4] "," samples levels }'
}
view_of_faad() {
    faad -q -o faad.wav "$1" >/dev/null 2>&1 && view_of_ffmpeg faad.wav
}
view_of_bytes() {
    od -An -tx1 -N 13 "$1" | tr -d ' '
}

make_input left.wav '0.5*sin(2*PI*440*t)|0:d=3' 44100
make_input mono.wav '0.5*sin(2*PI*440*t):d=3' 44100
make_input high.wav '0.5*sin(2*PI*440*t)|0:d=3' 96000 -c:a pcm_s24le
make_input ./-six.flac '0|0|0.5*sin(2*PI*440*t)|0|0|0:c=5.1:d=3' 13000
make_input pulses.wav '(random(0)-0.5)*pow(sin(2*PI*50*t)\,8):d=1' 44100
make_input long.flac 'random(0)-0.5|random(1)-0.5:d=20' 44100
for pair in 1:44100 1:96000 1023:44100 1024:44100 1025:44100 2049:44100; do
    make_input ./$pair.wav 0.5 ${pair#*:} -af atrim=end_sample=${pair%:*}
done

# ---- Streams that decode to what went in, exact to the frame; two frames at least ---------------------------------

while read -r view expected arguments; do
    encode -o out/x.aac $arguments
    expect "$arguments in the view of $view" "$expected" "$("view_of_$view" out/x.aac)"
done <<'END'
ffmpeg 44100,stereo,133120,-9,-inf left.wav
faad   44100,stereo,132096,-9,-inf left.wav
ffmpeg 44100,stereo,133120,-9,-inf left.wav --mode two-mono
ffmpeg 44100,mono,133120,-15       left.wav --mode mono
faad   44100,stereo,132096,-9,-inf left.wav --adif
faad   44100,stereo,132096,-9,-inf left.wav --adif --mode two-mono
faad   44100,stereo,132096,-15,-15 left.wav --adif --mode mono
ffmpeg 44100,stereo,134144,-9,-inf left.wav --priming -b 529200
ffmpeg 44100,stereo,133120,-9,-9   mono.wav --mode stereo -b 16000
ffmpeg 48000,stereo,144384,-9,-inf high.wav
ffmpeg 16000,stereo,48128,-20,-20  -- -six.flac
ffmpeg 44100,mono,2048,*           1:44100.wav
ffmpeg 48000,mono,2048,*           1:96000.wav
ffmpeg 44100,mono,2048,-1?         1023:44100.wav
ffmpeg 44100,mono,2048,-1?         1024:44100.wav
ffmpeg 44100,mono,2048,-1?         1025:44100.wav
ffmpeg 44100,mono,3072,-1?         2049:44100.wav
bytes  ??????90*                   left.wav --home
bytes  ??????a0*                   left.wav --original
bytes  21*                         left.wav --raw-frames
bytes  41444946c091a2b3c4d5e6f780  left.wav --adif --copyright-id 8123456789ABCDEF01
END

# ---- Summary, and options that reach the encoder -----------------------------------------------------------------

encode left.wav -o out/a.aac
expect 'summary' "left.wav -> out/a.aac: 44100 Hz, stereo, 128000 bit/s (64000 per channel), variable rate, ADTS, \
3.000 s, $(stat -c %s out/a.aac) bytes, mean +([0-9]) bit/s, +([0-9.])x real time" "$messages"
expect 'permissions of a new file' 640 "$(stat -c %a out/a.aac)"
encode mono.wav -o out/x.aac --cbr -b 96k --mode two-mono --rate 48000
expect 'summary of changes' "*: 48000 Hz (from 44100 Hz), two mono channels (from 1 channel), 96000 bit/s \
(48000 per channel), constant rate, *, mean 9@(5[5-9]|6[0-4])[0-9][0-9] bit/s, *" "$messages"
for pair in 8000:12 11025:16 12000:17 16000:23 22050:32 24000:35 32000:46 44100:64 48000:64; do
    encode mono.wav -o out/x.aac --rate ${pair%:*}
    expect 'default bit rate' "*: ${pair%:*} Hz*, mono, ${pair#*:}000 bit/s *" "$messages"
done
encode pulses.wav -o out/tns.aac
encode pulses.wav -o out/x.aac --no-tns
expect 'comparison with and without --no-tns' 1 "$(cmp -s out/tns.aac out/x.aac; echo $?)"
run --help
expect 'status, lines and text of --help' '0 0 *Examples:*Exit status:*' "$result $text"
run --version
expect 'status, lines and text of --version' '0 0 tavik +([0-9.]) (library +([0-9.]))' "$result $text"

# ---- Wrong usage, unusable input, impossible output --------------------------------------------------------------

head -c 44 left.wav >header.wav
yes 'not audio' | head -c 20000 >text.txt
: >empty.wav
ln left.wav out/hard.wav
while IFS='|' read -r expected_status pattern arguments; do
    refuse "$expected_status" "$pattern" $arguments
done <<'END'
2|INPUT|-o out/x
2|--bogus: |left.wav -o out/x --bogus
2|--mode: quad |left.wav -o out/x --mode quad
2|--ad?? excludes --ad??|left.wav -o out/x --adts --adif
2|--copyright-id: 123 |left.wav -o out/x --copyright-id 123
2|--bitrate: fast|left.wav -o out/x -b fast
2|--bitrate 15998: must be 16000 to 529200 bit/s for 2 channels at 44100 Hz|left.wav -o out/x -b 15998
2|8000 to 48000 bit/s for 1 channel at 8000 Hz|mono.wav -o out/x --rate 8000 -b 64k
2|--bitrate 64001: must divide |left.wav -o out/x -b 64001
3|missing.wav: *No such file|missing.wav -o out/x
3|empty.wav: is empty|empty.wav -o out/x
3|out: is a directory|out -o out/x
3|header.wav: |header.wav -o out/x
3|text.txt: no|text.txt -o out/x
4|out: *irectory|left.wav -o out
4|out/none/x: *No such file|left.wav -o out/none/x
4|out/hard.wav: is the input file|left.wav -o out/hard.wav
END
refuse 3 'line?break.wav: ' $'line\nbreak.wav' -o out/x

{ head -c 1000000 long.flac && yes damage | head -c 10000 && tail -c +1010001 long.flac; } >damaged.flac
run damaged.flac -o out/x.aac --quiet
expect 'status, lines, warning' '0 1 tavik: damaged.flac: warning: damaged at +([0-9.]) s (*' "$result $messages"
expect 'most of 882000 samples decoded' '44100,stereo,8[4-7]????,*' "$(view_of_ffmpeg out/x.aac)"

# ---- Output ------------------------------------------------------------------------------------------------------

# A program that goes wrong must not be able to replace the devices of the machine: root gets a device of its own,
# anybody else cannot change /dev.
full=/dev/full
if ((EUID == 0)); then
    full=out/full
    mknod -m 666 $full c 1 7 || exit 1
fi
refuse 4 "$full: *No space" left.wav -o $full
expect "type of $full" 'character special file' "$(stat -c %F $full)"

mkfifo out/pipe
timeout 20 cat out/pipe >piped.aac &
encode left.wav -o out/pipe
wait $!
expect 'comparison of a pipe and a file' 0 "$(cmp -s piped.aac out/a.aac; echo $?)"
timeout 20 head -c 1 out/pipe >first_byte &
refuse 4 'out/pipe: *Broken pipe' long.flac -o out/pipe

# An old file stays as it is until the new one is complete.
echo old >out/old.aac
chmod 606 out/old.aac
ln -s old.aac out/link.aac
ulimit -S -f 16
refuse 4 'out/link.aac: *File too large' long.flac -o out/link.aac
ulimit -S -f hard
ffmpeg -v error -i long.flac -f wav - </dev/null >streamed.wav  # tells no length, so that it can go on
for pair in INT:130 TERM:143; do
    before=$(ls -A out)
    rm -f endless && mkfifo endless  # a new one: an interrupted run leaves data in it
    exec 3<>endless
    "$program" endless -o out/link.aac 2>stderr.txt 3<&- &
    # 60 Mbyte
    for _ in {1..17}; do timeout 20 cat streamed.wav || break; done >&3
    expect 'less than 60 Mbyte of memory' 1 "$(awk '/^VmHWM/ { print $2 < 60000 }' /proc/$!/status)"
    expect "temporary files before ${pair%:*}" 1 "$(compgen -G 'out/.tavik*' | wc -l)"
    kill -s ${pair%:*} $!
    wait $!
    expect "status and lines after ${pair%:*}" "${pair#*:} 1" "$? $(wc -l <stderr.txt)"
    expect "files after ${pair%:*}" "$before" "$(ls -A out)"
done
expect 'content after failure and interruption' old "$(<out/old.aac)"
encode left.wav -o out/link.aac
expect 'a link, permissions and comparison after replacement' 'symbolic link 606 0' \
    "$(stat -c %F out/link.aac) $(stat -c %a out/old.aac) $(cmp -s out/old.aac out/a.aac; echo $?)"

exit $((failures > 0))
