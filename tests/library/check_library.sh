#!/usr/bin/env bash
# Reads promises about the shared library off the built file: exact exports, memset as the only import, libc as the only
# library needed, its soname, binding when it is loaded, no writable data, no floating-point instruction.
# Usage: check_library.sh LIBRARY VERSION_SCRIPT SONAME NM READELF OBJDUMP
set -u
library=$1 version_script=$2 soname=$3 nm=$4 readelf=$5 objdump=$6
faults=0

# expect_none WHAT LINES: complains when there are any lines.
expect_none() {
    [ -z "$2" ] && return
    printf '%s: %s\n%s\n' "$library" "$1" "$(head -n 10 <<<"$2")"
    faults=$((faults + 1))
}

# AArch64: f* (fmov only moves bits between registers, but not an immediate), conversions from integer.
# x86-64: scalar and packed single and double arithmetic, comparison and conversion; x87.
floating_point_instructions() {
    local mnemonics
    # GNU's objdump puts a space between mnemonic and operands, LLVM's a tab.
    mnemonics=$("$objdump" -d --no-show-raw-insn "$library" | awk -F'\t' '/^ *[0-9a-f]+:/ {print $2 " " $3}')
    [ -n "$mnemonics" ] || echo "(no code at all)"
    case $("$readelf" -h "$library") in
        *AArch64*) grep -E '^(f[a-z0-9]+|scvtf|ucvtf)[[:space:]]' <<<"$mnemonics" | grep -vE '^fmov[[:space:]][^#]*$' ;;
        *) grep -E -e '^v?(add|sub|mul|div|sqrt|rsqrt|rcp|min|max|cmp[a-z]+|u?comi|round|dp|h(add|sub)|addsub|fn?m[a-z]+[0-9]*)(ss|sd|ps|pd)[[:space:]]' \
                   -e '^(v?cvt|f)[a-z0-9]+([[:space:]]|$)' <<<"$mnemonics" ;;
    esac
}

expect_none "exports differ from the version script (< missing, > extra)" \
    "$(diff <(sed -n 's/^ *\(TAVIK_.*\);$/\1/p' "$version_script" | sort) \
            <("$nm" -D --defined-only "$library" | awk '{print $3}' | sort))"
expect_none "imports other than memset" \
    "$("$nm" -D --undefined-only "$library" | awk '$1 == "U" {sub(/@.*/, "", $2); print $2}' | grep -vx memset)"
expect_none "needs a library other than libc" \
    "$("$readelf" -dW "$library" | awk '/NEEDED/ {print $NF}' | grep -vFx '[libc.so.6]')"
expect_none "soname is not $soname" "$("$readelf" -dW "$library" | awk '/SONAME/ {print $NF}' | diff <(echo "[$soname]") -)"
expect_none "binds its imports at their first call" \
    "$("$readelf" -dW "$library" | grep -q 'FLAGS.*NOW' || echo "no flag NOW in the dynamic section")"
# Beside the loader's own tables, which are read-only once it is done.
expect_none "writable sections" \
    "$("$readelf" -SW "$library" | sed 's/^ *\[ *[0-9]*\] *//' | awk '$7 ~ /W/ && $7 ~ /A/ {print $1}' |
        grep -vxE '\.dynamic|\.got')"
expect_none "floating-point instructions" "$(floating_point_instructions)"

[ "$faults" -eq 0 ] && echo "$library keeps its promises"
exit $((faults > 0))
