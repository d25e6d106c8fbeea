#!/bin/bash
# Tests the program tavik: tavik_test.sh PROGRAM. Prints every check that fails and then exits with status 1.
# ffmpeg makes the inputs and, with faad, decodes the outputs.
set -u
program=$(realpath "$1")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
mkdir out
failures=0

# expect WHAT EXPECTED ACTUAL
expect() {
    [[ "$2" == "$3" ]] && return
    printf 'FAILED: %s\n  expected: %s\n  actual:   %s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
}

# expect_match WHAT REGEX ACTUAL
expect_match() {
    [[ "$3" =~ $2 ]] && return
    printf 'FAILED: %s\n  expected a match of: %s\n  actual: %s\n' "$1" "$2" "$3"
    failures=$((failures + 1))
}

# make_input FILE EXPRESSION RATE [FFMPEG OPTIONS]: synthesizes audio, FFmpeg's aevalsrc syntax.
make_input() {
    ffmpeg -v error -y -f lavfi -i "aevalsrc=$2:s=$3" "${@:4}" "$1" </dev/null || exit 1
}

# run ARGUMENTS: runs the program; leaves status, messages (stderr) and message_lines.
run() {
    "$program" "$@" 2>stderr.txt >stdout.txt </dev/null
    status=$?
    messages=$(<stderr.txt)
    message_lines=$(wc -l <stderr.txt)
}

# encode ARGUMENTS: a run that must succeed with one line.
encode() {
    run "$@"
    expect "status of: $*" 0 "$status"
    expect "number of lines from: $* ($messages)" 1 "$message_lines"
}

# refuse STATUS REGEX ARGUMENTS: a run that must fail with one line and leave the directory out/ as it is.
refuse() {
    local before after
    before=$(ls -A out)
    run "${@:3}"
    after=$(ls -A out)
    expect "status of: ${*:3}" "$1" "$status"
    expect "number of lines from: ${*:3}" 1 "$message_lines"
    expect_match "message of: ${*:3}" "^tavik: .*$2" "$messages"
    expect "files after: ${*:3}" "$before" "$after"
}

# choose_demuxer FILE: leaves the options in demuxer; a stream of one frame is not recognized without.
choose_demuxer() {
    demuxer=()
    [[ $1 != *.aac ]] || demuxer=(-f aac)
}

# sample_count FILE: samples per channel that ffmpeg decodes from it.
sample_count() {
    local channels
    channels=$(property "$1" channels)
    choose_demuxer "$1"
    echo $(($(ffmpeg -v error "${demuxer[@]}" -i "$1" -f s16le - </dev/null | wc -c) / 2 / ${channels:-1}))
}

# property FILE NAME: a property of its stream that ffmpeg sees.
property() {
    choose_demuxer "$1"
    ffprobe -v error "${demuxer[@]}" -show_entries "stream=$2" -of csv=p=0 "$1"
}

# level FILE CHANNEL: its mean level in dB, rounded.
level() {
    ffmpeg -hide_banner -i "$1" -af "pan=mono|c0=c$2,volumedetect" -f null - 2>&1 </dev/null |
        sed -n 's/.*mean_volume: \(.*\) dB/\1/p' | xargs printf '%.0f'
}

# header_byte FILE INDEX: hexadecimal.
header_byte() {
    od -An -tx1 -j "$2" -N 1 "$1" | tr -d ' '
}

left_tone='0.5*sin(2*PI*440*t)|0'
make_input left.wav "$left_tone:d=3" 44100
make_input mono.wav '0.5*sin(2*PI*440*t):d=3' 44100
make_input high.wav "$left_tone:d=3" 96000 -c:a pcm_s24le
make_input odd.flac "$left_tone:d=3" 13000
make_input six.flac '0|0|0.5*sin(2*PI*440*t)|0|0|0:c=5.1:d=3' 48000
make_input pulses.wav '(random(0)-0.5)*pow(sin(2*PI*50*t)\,8):d=1' 44100
make_input long.wav 'random(0)-0.5|random(1)-0.5:d=20' 44100
make_input long.flac 'random(0)-0.5|random(1)-0.5:d=20' 44100
frames_of() { echo $((($1 + 1023) / 1024 * 1024)); }

# ---- Streams that decode to what went in -------------------------------------------------------------------------

# check_stream FILE RATE CHANNELS SAMPLES LEFT_LEVEL RIGHT_LEVEL
check_stream() {
    expect "rate of $1" "$2" "$(property "$1" sample_rate)"
    expect "channels of $1" "$3" "$(property "$1" channels)"
    expect "samples of $1" "$4" "$(sample_count "$1")"
    expect "left level of $1" "$5" "$(level "$1" 0)"
    expect "right level of $1" "$6" "$(level "$1" $(($3 - 1)))"
}

# check_faad FILE SAMPLES LEFT_LEVEL: faad leaves out the first frame.
check_faad() {
    faad -q -o faad.wav "$1" >/dev/null 2>&1
    expect "status of faad for $1" 0 $?
    expect "samples that faad gets from $1" $(($2 - 1024)) "$(sample_count faad.wav)"
    expect "left level that faad gets from $1" "$3" "$(level faad.wav 0)"
}

encode left.wav -o out/a.aac
expect_match 'summary line' \
    '^left.wav -> out/a.aac: 44100 Hz, stereo, 128000 bit/s \(64000 per channel\), variable rate, ADTS, 3.000 s, [0-9]+ bytes, mean [0-9]+ bit/s, [0-9.]+x real time$' "$messages"
expect_match 'size in the summary' "$(stat -c %s out/a.aac) bytes" "$messages"
check_stream out/a.aac 44100 2 "$(frames_of 132300)" -9 -91
check_faad out/a.aac "$(frames_of 132300)" -9

encode left.wav -o out/two.aac --mode two-mono
check_stream out/two.aac 44100 2 "$(frames_of 132300)" -9 -91
check_faad out/two.aac "$(frames_of 132300)" -9
encode mono.wav -o out/mono.aac
check_stream out/mono.aac 44100 1 "$(frames_of 132300)" -9 -9
encode left.wav -o out/down.aac --mode mono
check_stream out/down.aac 44100 1 "$(frames_of 132300)" -15 -15
encode mono.wav -o out/up.aac --mode stereo
check_stream out/up.aac 44100 2 "$(frames_of 132300)" -9 -9
encode six.flac -o out/six.aac
check_stream out/six.aac 48000 2 "$(frames_of 144000)" -20 -20
encode high.wav -o out/high.aac
check_stream out/high.aac 48000 2 "$(frames_of 144000)" -9 -91
encode odd.flac -o out/odd.aac
check_stream out/odd.aac 16000 2 "$(frames_of 48000)" -9 -91
encode left.wav -o out/priming.aac --priming
check_stream out/priming.aac 44100 2 $(($(frames_of 132300) + 1024)) -9 -91

for pair in mono:-15 stereo:-9 two-mono:-9; do
    encode left.wav -o out/a.adif --adif --mode ${pair%:*}
    expect 'start of an ADIF file' ADIF "$(head -c 4 out/a.adif)"
    check_faad out/a.adif "$(frames_of 132300)" ${pair#*:}
done

for pair in 8000:12000 11025:16000 12000:17000 16000:23000 22050:32000 24000:35000 32000:46000 44100:64000 48000:64000; do
    rate=${pair%:*}
    encode mono.wav -o out/rate.aac --rate "$rate"
    expect_match "default bit rate at $rate Hz" " ${pair#*:} bit/s" "$messages"
    check_stream out/rate.aac "$rate" 1 "$(frames_of $((3 * rate)))" -9 -9
done

for count in 1 2 1023 1024 1025 2048; do
    make_input tiny.wav "0.5:n=$count" 44100 -af "atrim=end_sample=$count"
    encode tiny.wav -o out/tiny.aac
    decoded=$(sample_count out/tiny.aac)
    expect "one or two frames or what is needed out of $count samples ($decoded)" 1 \
        $((decoded == $(frames_of $count) || (count <= 1024 && decoded == 2048)))
done
make_input tiny.wav '0.5:n=1' 96000 -af atrim=end_sample=1
encode tiny.wav -o out/tiny.aac
expect_match 'summary of one sample at 96000 Hz' '48000 Hz \(from 96000 Hz\)' "$messages"

# ---- Options that reach the encoder ------------------------------------------------------------------------------

expect 'header bits of a plain stream' 80 "$(header_byte out/a.aac 3)"
encode left.wav -o out/h.aac --home && expect 'header bits with --home' 90 "$(header_byte out/h.aac 3)"
encode left.wav -o out/h.aac --original && expect 'header bits with --original' a0 "$(header_byte out/h.aac 3)"
encode left.wav -o out/h.aac --copyright-id 8123456789ABCDEF01
expect 'header bits with --copyright-id' 8c "$(header_byte out/h.aac 3)"
encode left.wav -o out/h.adif --adif --copyright-id 8123456789ABCDEF01
# The identifier follows "ADIF" and one set bit.
expect 'identifier in the ADIF header' c091a2b3c4d5e6f780 "$(od -An -tx1 -j 4 -N 9 out/h.adif | tr -d ' ')"
encode left.wav -o out/raw --raw-frames
expect 'first byte of a raw frame and after a header' '21 21' "$(header_byte out/raw 0) $(header_byte out/a.aac 7)"
encode left.wav -o out/cbr.aac --cbr -b 96k
expect_match 'summary with --cbr' ', 96000 bit/s \(48000 per channel\), constant rate' "$messages"
expect_match 'mean rate with --cbr' 'mean 9(5[5-9]|6[0-4])[0-9][0-9] bit/s' "$messages"
encode pulses.wav -o out/tns.aac && encode pulses.wav -o out/no_tns.aac --no-tns
expect 'comparison with and without --no-tns' 1 "$(cmp -s out/tns.aac out/no_tns.aac; echo $?)"
run left.wav -o out/quiet.aac --quiet
expect 'status and lines with --quiet' '0 0' "$status $message_lines"
expect 'comparison with and without --quiet' 0 "$(cmp -s out/a.aac out/quiet.aac; echo $?)"
cp left.wav ./-left:1.wav
encode -o out/dash.aac -- -left:1.wav

run --help
expect 'status and lines of --help' '0 0' "$status $message_lines"
expect_match 'text of --help' 'Examples:.*Exit status:' "$(<stdout.txt)"
run --version
expect_match 'text of --version' '^tavik [0-9.]+ \(library [0-9.]+\)$' "$(<stdout.txt)"

# ---- Wrong usage -------------------------------------------------------------------------------------------------

refuse 2 'INPUT' -o out/x.aac
refuse 2 '--output' left.wav
refuse 2 '--output' left.wav -o ''
refuse 2 '--bogus: ' left.wav -o out/x.aac --bogus
refuse 2 'mono.wav: ' left.wav mono.wav -o out/x.aac
refuse 2 '--rate: 44000 ' left.wav -o out/x.aac --rate 44000
refuse 2 '--mode: quad ' left.wav -o out/x.aac --mode quad
refuse 2 '--ad.. excludes --ad..' left.wav -o out/x.aac --adts --adif
refuse 2 '--copyright-id: ' left.wav -o out/x.aac --copyright-id 123
refuse 2 '--bitrate: fast' left.wav -o out/x.aac -b fast
refuse 2 '--bitrate: -64000' left.wav -o out/x.aac -b -64000
range='must be 16000 to 529200 bit/s for 2 channels at 44100 Hz \(8000 to 264600 per channel\)$'
refuse 2 "--bitrate 15998: $range" left.wav -o out/x.aac -b 15998
refuse 2 "--bitrate 529202: $range" left.wav -o out/x.aac -b 529202
refuse 2 '--bitrate 64001: ' left.wav -o out/x.aac -b 64001
refuse 2 '8000 to 48000 bit/s for 1 channel at 8000 Hz' mono.wav -o out/x.aac --rate 8000 -b 64k
encode left.wav -o out/lowest.aac -b 16000
encode left.wav -o out/highest.aac -b 529200

# ---- Unusable and damaged input ----------------------------------------------------------------------------------

: >empty.wav
head -c 44 left.wav >header.wav
yes 'not audio' | head -c 20000 >text.txt
head -c 20000 "$program" >binary.bin
ffmpeg -v error -f lavfi -i testsrc=d=1 -c:v mjpeg video.avi </dev/null
refuse 3 'missing.wav: .*No such file' missing.wav -o out/x.aac
refuse 3 'empty.wav: ' empty.wav -o out/x.aac
refuse 3 'header.wav: ' header.wav -o out/x.aac
refuse 3 'text.txt: ' text.txt -o out/x.aac
refuse 3 'binary.bin: ' binary.bin -o out/x.aac
refuse 3 'video.avi: no audio' video.avi -o out/x.aac
refuse 3 'out: is a directory' out -o out/x.aac
refuse 3 'line.break.wav: ' $'line\nbreak.wav' -o out/x.aac

cp long.flac damaged.flac
yes damage | dd of=damaged.flac bs=1000 seek=1000 count=10 conv=notrunc iflag=fullblock status=none
run damaged.flac -o out/damaged.aac --quiet
expect 'status and lines for a damaged input' '0 1' "$status $message_lines"
expect_match 'warning of damage' '^tavik: damaged.flac: warning: damaged at [0-9.]+ s \(.*\)' "$messages"
decoded=$(sample_count out/damaged.aac)
expect "most of 882000 samples decoded ($decoded)" 1 $((decoded > 840000 && decoded < 882000))

# ---- Output ------------------------------------------------------------------------------------------------------

refuse 4 'out: .*[Dd]irectory' left.wav -o out
refuse 4 'out/none/x.aac: .*No such file' left.wav -o out/none/x.aac

# A program that goes wrong must not be able to replace the devices of the machine: root gets a device of its own,
# anybody else cannot change /dev.
full=/dev/full
if ((EUID == 0)); then
    full=out/full
    mknod -m 666 $full c 1 7 || exit 1
fi
refuse 4 "$full: .*No space" left.wav -o $full
expect "type of $full" 'character special file' "$(stat -c %F $full)"

mkfifo out/pipe
timeout 20 cat out/pipe >piped.aac &
encode left.wav -o out/pipe
wait $!
expect 'comparison of a pipe and a file' 0 "$(cmp -s piped.aac out/a.aac; echo $?)"
timeout 20 head -c 1 out/pipe >first_byte &
refuse 4 'out/pipe: .*Broken pipe' long.wav -o out/pipe
wait $!
expect 'type of a pipe' fifo "$(stat -c %F out/pipe)"

for name in same.wav out/hard.wav out/soft.wav; do
    cp left.wav same.wav
    [[ $name == out/hard.wav ]] && ln -f same.wav $name
    [[ $name == out/soft.wav ]] && ln -s ../same.wav $name
    refuse 4 "$name: is the input file" same.wav -o $name
    expect "content of $name" 0 "$(cmp -s left.wav same.wav; echo $?)"
done

(umask 027 && "$program" left.wav -o out/private.aac --quiet)
expect 'permissions of a new file' 640 "$(stat -c %a out/private.aac)"
chmod 600 out/private.aac
ln -s private.aac out/link.aac
encode left.wav -o out/link.aac
expect 'what a link leads to' 'symbolic link 600' "$(stat -c %F out/link.aac) $(stat -c %a out/private.aac)"

echo old >out/old.aac
(ulimit -f 16 && refuse 4 'out/old.aac: .*File too large' long.wav -o out/old.aac && exit $failures) || failures=$((failures + 1))
expect 'content after a failed write' old "$(<out/old.aac)"

# interrupt SIGNAL STATUS: interrupts an encoding of 60 Mbyte whose input does not go on.
interrupt() {
    local listing process memory
    listing=$(ls -A out)
    rm -f endless && mkfifo endless
    exec 3<>endless
    "$program" endless -o out/old.aac 2>stderr.txt 3<&- &
    process=$!
    for _ in {1..17}; do timeout 20 cat streamed.wav || break; done >&3
    memory=$(sed -n 's/VmHWM:[[:space:]]*\([0-9]*\)[0-9]\{3\} kB/\1/p' /proc/$process/status)
    expect "less than 60 Mbyte of memory ($memory)" 1 $((memory > 0 && memory < 60))
    expect "temporary files before $1" 1 "$(compgen -G 'out/.tavik*' | wc -l)"
    expect "content before $1" old "$(<out/old.aac)"
    kill -s "$1" $process
    wait $process
    expect "status after $1" "$2" $?
    exec 3>&-
    expect "number of lines after $1" 1 "$(wc -l <stderr.txt)"
    expect "files after $1" "$listing" "$(ls -A out)"
    expect "content after $1" old "$(<out/old.aac)"
}
ffmpeg -v error -i long.wav -f wav - </dev/null >streamed.wav  # tells no length, so that it can go on
interrupt INT 130
interrupt TERM 143

encode left.wav -o out/old.aac
expect 'comparison after replacement' 0 "$(cmp -s out/a.aac out/old.aac; echo $?)"
expect 'temporary files in the end' '' "$(compgen -G 'out/.tavik*')"

((failures == 0)) || exit 1
echo 'all checks passed'
