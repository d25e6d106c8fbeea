# fish completion for tavik(1)
function __tavik_no_format
    not __fish_contains_opt m4a adts adif raw-frames
end

complete -c tavik -s o -l output -rF -d 'File or directory to write, - is standard output'
complete -c tavik -s f -l force -d 'Replace outputs that exist'
complete -c tavik -l skip-existing -d 'Leave out inputs whose output exists'
complete -c tavik -l strict -d 'Damaged or truncated input is an error'
complete -c tavik -l verify -d 'Decode what was written and compare'
complete -c tavik -l m4a -n __tavik_no_format -d 'MP4 file'
complete -c tavik -l adts -n __tavik_no_format -d 'ADTS stream, a header in front of every frame'
complete -c tavik -l adif -n __tavik_no_format -d 'ADIF stream, one header in front'
complete -c tavik -l raw-frames -n __tavik_no_format -d 'The frames alone'
complete -c tavik -s b -l bitrate -xa '32k 48k 64k 96k 128k 160k 192k 256k 320k' -d 'Bit/s of all channels together'
complete -c tavik -l cbr -d 'Constant rate'
complete -c tavik -l rate -xa '48000 44100 32000 24000 22050 16000 12000 11025 8000' -d 'Sampling rate of the output'
complete -c tavik -l mode -xa 'mono stereo two-mono' -d 'Channels of the output'
complete -c tavik -l no-tns -d 'No temporal noise shaping'
complete -c tavik -l priming -d 'Begin with the priming frame'
complete -c tavik -l pcm -xa 'u8 s16le s16be s24le s24be s32le s32be f32le f32be' \
    -d 'Headerless input, FORMAT:RATE:CHANNELS'
complete -c tavik -l home -d 'Set the home bit'
complete -c tavik -l original -d 'Set the original/copy bit'
complete -c tavik -l copyright-id -x -d 'Copyright identifier, 18 hexadecimal digits'
complete -c tavik -s q -l quiet -d 'Warnings and errors only'
complete -c tavik -l no-progress -d 'No progress bar and no progress lines'
complete -c tavik -l json -d 'Reports as JSON objects, one a line'
complete -c tavik -s j -l jobs -xa '(seq (nproc))' -d 'Files encoded at once'
complete -c tavik -l version -d 'Print the versions of program and library'
complete -c tavik -s h -l help -d 'Print a summary of the options'
