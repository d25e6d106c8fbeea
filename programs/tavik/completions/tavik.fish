# fish completion for tavik(1)
function __tavik_no_format
    not __fish_contains_opt m4a adts adif raw-frames
end

complete -c tavik -s o -l output -rF -d 'File or directory to write, - is standard output'
complete -c tavik -s f -l force -d 'Replace outputs that exist'
complete -c tavik -l skip-existing -d 'Skip inputs whose output exists'
complete -c tavik -l update -d 'Replace outputs that are older than their inputs'
complete -c tavik -l strict -d 'Damaged or truncated input is an error'
complete -c tavik -l verify -d 'Decode what was written and compare'
complete -c tavik -l live -d 'Endless input, an interrupt completes the output'
complete -c tavik -l m4a -n __tavik_no_format -d 'MP4 file'
complete -c tavik -l adts -n __tavik_no_format -d 'ADTS stream, a header before every frame'
complete -c tavik -l adif -n __tavik_no_format -d 'ADIF stream, one header at the start'
complete -c tavik -l raw-frames -n __tavik_no_format -d 'Frames without headers'
complete -c tavik -l start-edit -d 'Late start: edit list instead of silence'
complete -c tavik -s b -l bitrate -xa '32k 48k 64k 96k 128k 160k 192k 256k 320k' -d 'Bit/s of all channels together'
complete -c tavik -l cbr -d 'Constant rate'
complete -c tavik -l rate -xa '48000 44100 32000 24000 22050 16000 12000 11025 8000' -d 'Sampling rate of the output'
complete -c tavik -l mode -xa 'mono stereo two-mono' -d 'Channels of the output'
complete -c tavik -l no-tns -d 'No temporal noise shaping'
complete -c tavik -l priming -d 'Begin with the priming frame'
complete -c tavik -l pcm -xa 'u8 s16le s16be s24le s24be s32le s32be f32le f32be' \
    -d 'Headerless input, FORMAT:RATE:CHANNELS'
complete -c tavik -l track -x -d 'Number of the audio track'
complete -c tavik -l language -x -d 'Audio track in this language'
complete -c tavik -l gain -x -d 'Amplify, negative: attenuate, in dB'
complete -c tavik -l loudness -d 'Measure, write ReplayGain tags'
complete -c tavik -l apply-loudness -xa 'track album' -d 'Measure, normalise track or album'
complete -c tavik -l tag -x -d 'Set a tag, KEY=VALUE'
for tag in title artist album album-artist composer genre date comment
    complete -c tavik -l $tag -x -d 'Set this tag'
end
complete -c tavik -l cover -rF -d 'Front cover'
complete -c tavik -l no-tags -d 'Do not copy tags'
complete -c tavik -l no-cover -d 'Do not copy pictures'
complete -c tavik -s q -l quiet -d 'Print warnings and errors only'
complete -c tavik -s v -l verbose -d 'Print details about each file'
complete -c tavik -l no-progress -d 'No progress bar and no progress lines'
complete -c tavik -l json -d 'Reports as JSON objects, one a line'
complete -c tavik -s j -l jobs -xa '(seq (nproc))' -d 'Files to encode at a time'
complete -c tavik -l version -d 'Print the versions of program and library'
complete -c tavik -s h -l help -d 'Print a summary of the options'
