#!/usr/bin/env bash
# Installs a build, moves the installed tree, and lets projects of others use it in every way that is offered: CMake's
# find_package, pkg-config, the compiler alone; then one that has the sources as a subdirectory. All of them have to
# encode the same bytes as the build's own example.
# Usage: install_test.sh SOURCE_DIR BUILD_DIR EXAMPLE RECORDING 'CMAKE;SETTINGS' 'COMPILER [OPTIONS]' 'EMULATOR[;OPTIONS]'
set -euo pipefail
source_dir=$1 build_dir=$2 example=$3 recording=$4 compiler=$6
IFS=';' read -ra settings <<<"$5"
IFS=';' read -ra emulator <<<"$7"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tree=$work/moved

fail() {
    echo "${0##*/}: $1" >&2
    exit 1
}

# quietly COMMAND...: shows what it prints if it fails.
quietly() { "$@" >"$work/log" 2>&1 || { cat "$work/log"; fail "failed: $*"; }; }

# expect_same_bytes PROGRAM
expect_same_bytes() {
    "${emulator[@]}" "$1" <"$work/input.raw" | cmp - "$work/expected.aac" || fail "$1 encodes other bytes"
    echo "same bytes: ${1#"$work/"}"
}

# cmake_project NAME LANGUAGE SETTINGS...
cmake_project() {
    quietly cmake -S "$source_dir/tests/install/outside" -B "$work/$1" "${settings[@]}" -DLANGUAGE="$2" \
        -DSOURCE="$tree/share/doc/tavik/examples/encode_pcm.c" "${@:3}"
    quietly cmake --build "$work/$1"
    expect_same_bytes "$work/$1/encode_shared"
    expect_same_bytes "$work/$1/encode_static"
}

# compile NAME OPTIONS...: the installed example.
compile() {
    # shellcheck disable=SC2086 # may hold options
    quietly $compiler "$tree/share/doc/tavik/examples/encode_pcm.c" -o "$work/$1" "${@:2}"
}

# packaged OPTIONS...: what pkg-config says, with or without a system root of its own.
packaged() { PKG_CONFIG_SYSROOT_DIR='' PKG_CONFIG_PATH=$libraries/pkgconfig pkg-config "$@" tavik; }

ffmpeg -v error -i "$recording" -ac 2 -ar 44100 -f s16le "$work/input.raw"
"${emulator[@]}" "$example" <"$work/input.raw" >"$work/expected.aac"
[ "$(stat -c %s "$work/expected.aac")" -gt 10000 ] || fail "the example encodes next to nothing"

quietly cmake --install "$build_dir" --prefix "$work/installed"
mv "$work/installed" "$tree"
libraries=$(dirname "$(find "$tree" -name libtavik.a)")

cmake_project find_package_c C -DCMAKE_PREFIX_PATH="$tree"
cmake_project find_package_cxx CXX -DCMAKE_PREFIX_PATH="$tree"

read -ra flags <<<"$(packaged --cflags --libs)"
compile with_pkg_config_shared "${flags[@]}" "-Wl,-rpath,$libraries"
expect_same_bytes "$work/with_pkg_config_shared"
read -ra flags <<<"$(packaged --static --cflags --libs)"
compile with_pkg_config_static -static "${flags[@]}"
expect_same_bytes "$work/with_pkg_config_static"
compile with_the_compiler_alone -I "$tree/include" "$libraries/libtavik.a"
expect_same_bytes "$work/with_the_compiler_alone"

cmake_project subdirectory C -DTAVIK_SOURCES="$source_dir"

if [ -e "$tree/bin/tavik" ]; then
    ldd "$tree/bin/tavik" >"$work/libraries"  # all of it: grep -q would end ldd by SIGPIPE
    grep -q "=> $tree/.*libtavik.so" "$work/libraries" || fail "the program does not find its library"
    "$tree/bin/tavik" --version
fi

if [ -e "$libraries/gstreamer-1.0" ]; then
    export GST_PLUGIN_PATH=$libraries/gstreamer-1.0 GST_REGISTRY=$work/registry.bin
    quietly gst-inspect-1.0 tavikenc
    ldd "$GST_PLUGIN_PATH/libgsttavik.so" >"$work/libraries"
    grep -q "=> $tree/.*libtavik.so" "$work/libraries" || fail "the plug-in does not find its library"
fi
