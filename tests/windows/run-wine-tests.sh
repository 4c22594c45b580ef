#!/usr/bin/env bash
# Runs the Windows test programs of a cross build under wine, with the native
# device simulator behind a COM port: wine maps COMn onto the simulator's
# pseudo-terminal through $WINEPREFIX/dosdevices/comN. Runs the C caller of
# the flat interface (capi_end_to_end.exe), ctest, then the example programs.
#
# Usage: run-wine-tests.sh [windows build dir] [-- extra ctest arguments]
#   TARVEL_SIM       the native tarvel-sim program (default: build/default/sim/tarvel-sim,
#                    else build/windows-sim/sim/tarvel-sim)
#   WINEPREFIX       wine prefix to use (default: <windows build dir>/wineprefix)
#   TARVEL_WINE_COM  COM port number for the simulator (default 7; the wire
#                    comparison uses the next one)
#   TARVEL_NATIVE_BUILD  native build whose C example is compared on the wire
#                    (default: build/default)
#   TARVEL_WINE_PROGRAMS  more programs (.exe paths, whitespace-separated) to run
#                    against the simulator, each with the COM port as argument
set -euo pipefail

source_dir=$(cd "$(dirname "$0")/../.." && pwd)
build_dir=$source_dir/build/windows
if [ $# -gt 0 ] && [ "$1" != "--" ]; then build_dir=$(cd "$1" && pwd); shift; fi
[ "${1:-}" = "--" ] && shift

sim=${TARVEL_SIM:-}
if [ -z "$sim" ]; then
    for candidate in "$source_dir/build/default/sim/tarvel-sim" "$source_dir/build/windows-sim/sim/tarvel-sim"; do
        if [ -x "$candidate" ]; then sim=$candidate; break; fi
    done
fi
[ -n "$sim" ] && [ -x "$sim" ] || { echo "run-wine-tests: no tarvel-sim found (set TARVEL_SIM)" >&2; exit 2; }
case $("$sim" --help 2>/dev/null) in
    *--inject*) ;;
    *) echo "run-wine-tests: $sim has no --inject option (rebuild it)" >&2; exit 2 ;;
esac

export WINEPREFIX=${WINEPREFIX:-$build_dir/wineprefix}
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml=" # no Mono/Gecko installer prompts
com=${TARVEL_WINE_COM:-7}
link=$WINEPREFIX/dosdevices/com$com

sim_pid=
cleanup() {
    if [ -n "$sim_pid" ]; then
        kill "$sim_pid" 2>/dev/null || true
        wait "$sim_pid" 2>/dev/null || true
    fi
    rm -f "$link"
    # Ends this prefix's server and its background processes (ours only).
    wineserver -k 2>/dev/null || true
}
trap cleanup EXIT

# A persistent server and a booted prefix before ctest: otherwise the first
# test program starts wine's background processes, which inherit ctest's
# output pipe and keep it open.
mkdir -p "$WINEPREFIX"
wineserver -p </dev/null >/dev/null 2>&1
wine wineboot </dev/null >/dev/null 2>&1

rm -f "$link"
mkdir -p "$(dirname "$link")"
# The frame capi_end_to_end waits for (see CApiProgramTest.cpp), every 20 ms.
# Only a host's request for it makes the device report it, so the other
# programs don't see it.
"$sim" --link "$link" --inject '0:123#102132435465768798A9BACB/80@20' \
    </dev/null >"$build_dir/tarvel-sim.log" 2>&1 &
sim_pid=$!
for _ in $(seq 100); do
    [ -L "$link" ] && break
    kill -0 "$sim_pid" 2>/dev/null || { cat "$build_dir/tarvel-sim.log" >&2; exit 2; }
    sleep 0.1
done
[ -L "$link" ] || { echo "run-wine-tests: the simulator made no terminal link" >&2; exit 2; }
echo "run-wine-tests: simulator on $(readlink "$link") as COM$com"

status=0
# The programs below load TarvelAPI.dll from the build directory.
export WINEPATH
WINEPATH=$(winepath -w "$build_dir" 2>/dev/null)

# The C caller of the flat interface, first, on a device no other program has
# configured. Its trace file is given as a Windows path, as an application would.
capi=$build_dir/tests/windows/capi_end_to_end.exe
if [ -f "$capi" ]; then
    trace_unix=$build_dir/capi_trace.txt
    trace=$(winepath -w "$trace_unix" 2>/dev/null)
    rm -f "$trace_unix"
    if timeout 120 wine "$capi" "COM$com" "$trace" </dev/null >"$build_dir/capi_end_to_end.log" 2>&1; then
        # Under wine the Windows path names this file: the trace must be here.
        if grep -q ':>> 0x' "$trace_unix" 2>/dev/null; then
            echo "run-wine-tests: capi_end_to_end.exe against the simulator: passed"
            rm -f "$trace_unix"
        else
            echo "run-wine-tests: capi_end_to_end.exe left no trace in $trace_unix" >&2
            status=1
        fi
    else
        echo "run-wine-tests: capi_end_to_end.exe against the simulator: FAILED (trace: $trace_unix)" >&2
        cat "$build_dir/capi_end_to_end.log" >&2
        status=1
    fi
else
    echo "run-wine-tests: $capi not built" >&2
    status=1
fi

export TARVEL_TEST_COM=COM$com
ctest --test-dir "$build_dir" --output-on-failure -j1 --timeout 180 "$@" || status=1

# The example programs load TarvelAPI.dll like an application would: a C
# caller of the flat entry points, C++ callers of the exported classes (one
# reads its own signal back from the device's reports).
for example in basic basic_cpp receive_cpp; do
    exe=$build_dir/examples/$example.exe
    [ -f "$exe" ] || continue
    if timeout 120 wine "$exe" "COM$com" </dev/null >"$build_dir/$example.log" 2>&1; then
        echo "run-wine-tests: $example.exe against the simulator: passed"
    else
        echo "run-wine-tests: $example.exe against the simulator: FAILED" >&2
        cat "$build_dir/$example.log" >&2
        status=1
    fi
done
# Programs built outside the tree against the DLL (.ci/windows.sh: against the
# zip), each with TarvelAPI.dll next to it as an application ships it.
for exe in ${TARVEL_WINE_PROGRAMS:-}; do
    name=$(basename "$exe" .exe)
    if timeout 120 wine "$exe" "COM$com" </dev/null >"$build_dir/$name.log" 2>&1; then
        echo "run-wine-tests: $name.exe against the simulator: passed ($(tr -d '\r' <"$build_dir/$name.log"))"
    else
        echo "run-wine-tests: $name.exe against the simulator: FAILED" >&2
        cat "$build_dir/$name.log" >&2
        status=1
    fi
done
# The same operations put the same bytes on the wire from both builds: the C
# example, natively and under wine, each against a fresh device that logs
# every frame it hears.
native_basic=${TARVEL_NATIVE_BUILD:-$source_dir/build/default}/examples/basic
wire_of() { # wire_of LINK COMMAND...: the host frames a fresh device heard
    local link=$1 pid
    shift
    rm -f "$link"
    "$sim" -v --link "$link" </dev/null >/dev/null 2>"$build_dir/wire.log" &
    pid=$!
    for _ in $(seq 100); do
        [ -L "$link" ] && break
        sleep 0.1
    done
    timeout 120 "$@" </dev/null >/dev/null 2>&1 || echo "run-wine-tests: $* failed" >&2
    kill "$pid" 2>/dev/null || true
    wait "$pid" 2>/dev/null || true
    grep '^tarvel-sim: host' "$build_dir/wire.log" || true
}
if [ -x "$native_basic" ] && [ -f "$build_dir/examples/basic.exe" ]; then
    wire_com=$((com + 1))
    native=$(wire_of "$build_dir/wire-native" "$native_basic" "$build_dir/wire-native")
    windows=$(wire_of "$WINEPREFIX/dosdevices/com$wire_com" wine "$build_dir/examples/basic.exe" "COM$wire_com")
    rm -f "$WINEPREFIX/dosdevices/com$wire_com" "$build_dir/wire.log"
    if [ -n "$native" ] && [ "$native" = "$windows" ]; then
        echo "run-wine-tests: the Linux and the Windows build put the same $(wc -l <<<"$native") frames on the wire"
    else
        echo "run-wine-tests: the two builds differ on the wire (Linux <, Windows >):" >&2
        diff <(echo "$native") <(echo "$windows") >&2 || true
        status=1
    fi
else
    echo "run-wine-tests: no native example at $native_basic: wire comparison skipped"
fi
exit "$status"
