# shellcheck shell=bash
# What scripts/benchmark, scripts/embedded-facts and scripts/quality share; all run in the directory above.
export LC_ALL=C
music_dir=build/bench/music
results=build/bench/results
mkdir -p "$results"

# Freely licensed music, by package and place in it.
music_packages=(asc-music frozen-bubble-data hyperrogue-music)
music=(games/asc/music/{frontiers,machine_wars,time_to_strike}.mp3
       games/frozen-bubble/snd/{frozen-mainzik-1p,frozen-mainzik-2p,introzik}.ogg
       hyperrogue/music/hr3-{hell,graveyard,rlyeh,icyland,jungle,desert}.ogg)

# Downloads a package into this directory, with new package lists if there are none yet.
download() {
    local as_root=()
    [ "$(id -u)" -eq 0 ] || as_root=(sudo)
    apt-get download -qq "$1" || { "${as_root[@]}" apt-get update -qq && apt-get download -qq "$1"; }
}

# Unpacks the packages without installing them.
fetch_music() {
    local package
    mkdir -p "$music_dir"
    for package in "${music_packages[@]}"; do
        [ ! -d "$music_dir/$package" ] || continue
        (cd "$music_dir" && download "$package")
        dpkg-deb -x "$music_dir/${package}"_*.deb "$music_dir/$package.part"
        mv "$music_dir/$package.part" "$music_dir/$package"
    done
}

# make_clip FILE DIRECTORY RATE CHANNELS OPTIONS...: raw 16-bit samples. The options of ffmpeg choose the part of the
# file.
make_clip() {
    local name
    name=$(basename "$1")
    ffmpeg -v error -nostdin -y "${@:5}" -i "$1" -vn -ar "$3" -ac "$4" -f s16le "$2/${name%.*}.raw"
}

# make_music_clips DIRECTORY RATE CHANNELS: ten seconds of each piece of music.
make_music_clips() {
    local file
    fetch_music
    for file in "${music[@]}"; do make_clip "$(echo "$music_dir"/*/usr/share/"$file")" "$1" "$2" "$3" -ss 30 -t 10; done
}

# make_all_clips DIRECTORY RATE CHANNELS FILE...: of the files, in full; without any of the music.
make_all_clips() {
    local file
    rm -rf "$1"
    mkdir -p "$1"
    [ $# -gt 3 ] || make_music_clips "$@"
    for file in "${@:4}"; do make_clip "$file" "$1" "$2" "$3"; done
}

# build DIRECTORY PRESET OPTIONS...
build() {
    {
        cmake --preset "$2" -B "$1" "${@:3}"
        cmake --build "$1"
    } >"$results/build.log" 2>&1 || { cat "$results/build.log" >&2; return 1; }
}

# count_instructions PLUGIN_OPTIONS OPTIONS_OF_TAVIK_SPEED...
count_instructions() {
    qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib \
        -plugin "build/bench-release/bench/icount.so$1" build/bench-arm64/bench/tavik_speed --count-instructions "${@:2}"
}

# fill_tables REPORT ARGUMENTS...: a script of bench/ makes its tables of the results, those of a document where one is
# given last.
fill_tables() { run_python "$1" "$results" "${@:2}"; }

# run_python SCRIPT ARGUMENTS...: a script of bench/, by Debian's Python.
run_python() { PYTHONDONTWRITEBYTECODE=1 PYTHONPATH=bench/icount /usr/bin/python3 "bench/$1" "${@:2}"; }
