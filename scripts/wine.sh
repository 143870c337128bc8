#!/usr/bin/env bash
# Runs a Windows program of this project under Wine, without a display and without a word of Wine's own.
#
#   scripts/wine.sh PROGRAM.exe [ARGUMENT...]
#   scripts/wine.sh --start | --stop      the server of our own prefix, so that programs start at once
#
# SCANSTEPS_WINEPREFIX is the prefix (~/.cache/scansteps/wine), SCANSTEPS_WINEPATH where programs find the DLLs that do
# not lie beside them (the compiler's folders; may be empty).
set -euo pipefail
export WINEPREFIX=${SCANSTEPS_WINEPREFIX:-$HOME/.cache/scansteps/wine}
export WINEARCH=win64 WINEDEBUG=-all
# The capture service is the one beside the program when there is one: the tests bring their own.
export WINEDLLOVERRIDES="mscoree,mshtml=d;winedbg.exe=d;avicap32=n,b"
unset DISPLAY
# File names are taken for what the locale says, and have letters of their own there only in UTF-8.
export LC_ALL=C.UTF-8

zpath() { printf 'Z:%s' "$1" | tr / '\\'; }
runtime=/usr/lib/gcc/x86_64-w64-mingw32/12-posix
export WINEPATH=${SCANSTEPS_WINEPATH-"$(zpath "$runtime");$(zpath /usr/x86_64-w64-mingw32/lib)"}

case ${1:-} in
    --start)
        mkdir -p "$WINEPREFIX"
        # Detached: the services that Wine starts would else hold the pipes of whoever asked first.
        wineserver -p </dev/null >/dev/null 2>&1 || true
        wineboot -i </dev/null >/dev/null 2>&1
        wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f </dev/null >/dev/null 2>&1
        ;;
    --stop)
        wineserver -k </dev/null >/dev/null 2>&1 || true
        ;;
    *)
        mkdir -p "$WINEPREFIX"
        exec wine "$@"
        ;;
esac
