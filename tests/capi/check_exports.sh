#!/bin/sh
# The shared library exports every C entry point of the list under its exact
# name, and otherwise only the members of Tarvel and SerialPort (with their
# type info); the public header declares exactly the names of the list.
# Usage: check_exports.sh libTarvelAPI.so exported-names.txt TarvelAPI.h
set -eu
lib=${1:?usage: check_exports.sh <shared library> <exported-names.txt> <TarvelAPI.h>}
list=${2:?usage: check_exports.sh <shared library> <exported-names.txt> <TarvelAPI.h>}
header=${3:?usage: check_exports.sh <shared library> <exported-names.txt> <TarvelAPI.h>}

entry_points=$(grep -v '^#' "$list" | tr -s ' \n' '\n' | grep . | sort)
declared=$(grep -oE '^TARVEL_API [^(]*TARVEL_CALL [A-Za-z0-9_]+' "$header" | awk '{ print $NF }' | sort)
if [ "$entry_points" != "$declared" ]; then
    echo "the list of exported names (<) and the header (>) differ:"
    a=$(mktemp); b=$(mktemp)
    echo "$entry_points" > "$a"; echo "$declared" > "$b"
    diff "$a" "$b" || true
    rm -f "$a" "$b"
    exit 1
fi

symbols=$(mktemp)
trap 'rm -f "$symbols"' EXIT
# name and type of every defined dynamic symbol (versioned names lose @...)
nm -D --defined-only "$lib" | awk '{ sub(/@.*/, "", $3); print $2, $3 }' > "$symbols"

status=0
for name in $entry_points; do
    if ! awk -v n="$name" '$1 == "T" && $2 == n { found = 1 } END { exit !found }' "$symbols"; then
        echo "missing C entry point: $name"
        status=1
    fi
done

# Everything else: C++ names of the two exported classes. Linker-made markers
# (_init, _fini, _edata, _end, __bss_start) are tolerated.
awk '{ print $2 }' "$symbols" | while read -r sym; do
    case " $(echo $entry_points) " in *" $sym "*) continue ;; esac
    case "$sym" in _init|_fini|_edata|_end|__bss_start) continue ;; esac
    plain=$(echo "$sym" | c++filt)
    case "$plain" in
        Tarvel::*|SerialPort::*) ;;
        "typeinfo for Tarvel"|"typeinfo for SerialPort"|"typeinfo name for Tarvel"|"typeinfo name for SerialPort") ;;
        "vtable for Tarvel"|"vtable for SerialPort") ;;
        *) echo "unexpected export: $sym ($plain)"; exit 1 ;;
    esac
done || status=1

[ "$status" -eq 0 ] && echo "exports OK: $(echo $entry_points | wc -w) C entry points, nothing internal"
exit "$status"
