# bash completion for tavik(1)
# shellcheck shell=bash

_tavik() {
    local word=${COMP_WORDS[COMP_CWORD]} option=${COMP_WORDS[COMP_CWORD - 1]} values=''
    COMPREPLY=()
    # Readline splits --option=value into three words.
    if [[ $word == '=' ]]; then
        word=''
    elif [[ $option == '=' ]]; then
        option=${COMP_WORDS[COMP_CWORD - 2]}
    fi
    # After -- only files follow; with an empty COMPREPLY readline completes file names.
    local i
    for ((i = 1; i < COMP_CWORD; ++i)); do
        [[ ${COMP_WORDS[i]} == -- ]] && return
    done
    case $option in
        -o | --output | --cover) return ;;
        -b | --bitrate) values='32k 48k 64k 96k 128k 160k 192k 256k 320k' ;;
        --rate) values='48000 44100 32000 24000 22050 16000 12000 11025 8000' ;;
        --mode) values='mono stereo two-mono' ;;
        --pcm) values='u8 s16le s16be s24le s24be s32le s32be f32le f32be' ;;
        -j | --jobs) values=$(seq "$(nproc)") ;;
        --apply-loudness) values='track album' ;;
        --track | --language | --gain | --tag | --title | --artist | --album | --album-artist | --composer | --genre | --date | \
            --comment) compopt +o default ;;
        *)
            [[ $word == -* ]] || return
            values='-o --output -f --force --skip-existing --update --strict --verify --live
                --m4a --adts --adif --raw-frames --start-edit
                -b --bitrate --cbr --rate --mode --no-tns --priming --pcm --track --language
                --gain --loudness --apply-loudness
                --tag --title --artist --album --album-artist --composer --genre --date --comment
                --cover --no-tags --no-cover
                -q --quiet -v --verbose --no-progress --json -j --jobs --version -h --help'
            ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$values" -- "$word")
}

complete -o default -F _tavik tavik
