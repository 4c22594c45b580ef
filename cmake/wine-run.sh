#!/bin/sh
# Emulator for the Windows test programs of a cross build: runs one program
# under wine. When no wine server is up yet for the prefix, it starts one
# (kept 30 s after its last client) and boots the prefix with output
# detached: wine's background processes would otherwise inherit the caller's
# pipes (ctest's) and hold them open after the program has ended.
: "${WINEDEBUG:=-all}"
: "${WINEDLLOVERRIDES:=mscoree,mshtml=}"
export WINEDEBUG WINEDLLOVERRIDES
if wineserver -p30 </dev/null >/dev/null 2>&1; then
    wine wineboot </dev/null >/dev/null 2>&1
fi
exec wine "$@"
