#!/usr/bin/env bash
# The program's main job: installs what is missing, builds and runs.
#
#   bash tools/run.sh [--gui | --cli] [ARGS...]
#
# Where a display is available (DISPLAY set, or on Windows) it builds the window program,
# Kestrel.exe, and starts it: under Wine on Linux, directly on Windows. Without a display it runs
# the command-line demo (a slave serving the demo device, polled live with alarms) until Ctrl-C;
# with ARGS, kestrel-cli with them. --gui and --cli force either. The program works in the folder
# this script was started from (its structures file, modbus_structures.json, is kept there).
set -euo pipefail
start_dir=$PWD
cd "$(dirname "$0")/.."
root=$PWD

mode=auto
case "${1:-}" in
  --gui) mode=gui; shift ;;
  --cli) mode=cli; shift ;;
esac

on_windows=false
case "$(uname -s)" in MINGW* | MSYS* | CYGWIN*) on_windows=true ;; esac

if [ "$mode" = auto ]; then
  if [ $# -gt 0 ]; then
    mode=cli
  elif $on_windows || [ -n "${DISPLAY:-}" ]; then
    mode=gui
  else
    mode=cli
  fi
fi

run_cli() {
  bash tools/setup.sh >/dev/null
  cmake --preset linux >/dev/null
  cmake --build --preset linux --target kestrel-cli >/dev/null
  if [ $# -eq 0 ]; then set -- demo; fi
  cd "$start_dir"
  exec "$root/build/linux/src/cli/kestrel-cli" "$@"
}

# A Wine prefix of the program's own (build/wine-app-prefix, or $KESTREL_APP_WINEPREFIX), set up
# once: the caption-button font, no crash dialog.
prepare_wine_prefix() {
  export WINEPREFIX=${KESTREL_APP_WINEPREFIX:-$root/build/wine-app-prefix}
  export WINEDEBUG=${WINEDEBUG:--all}
  export WINEDLLOVERRIDES="mscoree,mshtml="
  export WINEARCH=win64
  [ -f "$WINEPREFIX/.kestrel-app-ready" ] && return 0
  echo "kestrel: preparing the Wine prefix $WINEPREFIX (once) ..." >&2
  mkdir -p "$WINEPREFIX/drive_c/windows/Fonts"
  cp -f /usr/share/wine/fonts/marlett.ttf "$WINEPREFIX/drive_c/windows/Fonts/" 2>/dev/null || true
  wineboot -i >/dev/null 2>&1 </dev/null
  wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1 </dev/null
  wineserver -w
  touch "$WINEPREFIX/.kestrel-app-ready"
}

run_gui() {
  if $on_windows; then
    # A native Windows build with the compiler at hand (MSYS2 mingw-w64 or Visual Studio).
    cmake -S . -B build/native-windows -DKESTREL_BUILD_TESTS=OFF >/dev/null
    cmake --build build/native-windows --config Release --target Kestrel -j2 >/dev/null
    exe=$(find build/native-windows -name Kestrel.exe | head -n 1)
    cd "$start_dir"
    exec "$root/$exe" "$@"
  fi
  if [ -z "${DISPLAY:-}" ]; then
    echo "kestrel: the window needs a display, and DISPLAY is not set (bash tools/run.sh --cli runs the command line)" >&2
    exit 2
  fi
  bash tools/setup.sh >/dev/null
  cmake --preset windows >/dev/null
  cmake --build --preset windows --target Kestrel >/dev/null
  prepare_wine_prefix
  cd "$start_dir"
  exec wine "$root/build/windows/src/ui/Kestrel.exe" "$@"
}

if [ "$mode" = gui ]; then run_gui "$@"; else run_cli "$@"; fi
