#!/usr/bin/env bash
# Runs a Windows program under Wine in the project's private prefix (build/wine-prefix by default,
# or $KESTREL_WINEPREFIX). The first call bootstraps the prefix: no graphics driver, no crash
# dialog. Every call also gets its own pair of COM ports mapped to the two ends of a socat
# pseudo-terminal pair, named in KESTREL_COM_A and KESTREL_COM_B, so serial tests can run in
# parallel. The pair and the program are bounded in time and stopped on exit.
set -u
here=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX=${KESTREL_WINEPREFIX:-$here/build/wine-prefix}
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
export WINEARCH=win64

bootstrap() {
  mkdir -p "$WINEPREFIX"
  exec 9>"$WINEPREFIX.lock"
  flock 9
  if [ ! -f "$WINEPREFIX/.kestrel-ready" ]; then
    wineboot -i >/dev/null 2>&1
    wine reg add 'HKCU\Software\Wine\Drivers' /v Graphics /d null /f >/dev/null 2>&1
    wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1
    touch "$WINEPREFIX/.kestrel-ready"
  fi
  flock -u 9
}

# Picks two free COM numbers (20..199) under the lock and maps them to a fresh pty pair.
map_com_pair() {
  local dir="$WINEPREFIX/ptys" n
  mkdir -p "$dir" "$WINEPREFIX/dosdevices"
  exec 8>"$WINEPREFIX.comlock"
  flock 8
  for n in $(seq 20 2 198); do
    if [ ! -e "$dir/slot$n" ]; then
      echo $$ > "$dir/slot$n"
      slot=$n
      break
    fi
    # a slot whose owner is gone is free again
    if ! kill -0 "$(cat "$dir/slot$n" 2>/dev/null)" 2>/dev/null; then
      echo $$ > "$dir/slot$n"
      slot=$n
      break
    fi
  done
  flock -u 8
  [ -n "${slot:-}" ] || return 0
  local a="$dir/tty$slot" b="$dir/tty$((slot + 1))"
  rm -f "$a" "$b"
  timeout 900 socat pty,raw,echo=0,link="$a" pty,raw,echo=0,link="$b" 2>/dev/null &
  socat_pid=$!
  for _ in $(seq 1 100); do [ -e "$a" ] && [ -e "$b" ] && break; sleep 0.02; done
  ln -sfn "$a" "$WINEPREFIX/dosdevices/com$slot"
  ln -sfn "$b" "$WINEPREFIX/dosdevices/com$((slot + 1))"
  export KESTREL_COM_A="COM$slot" KESTREL_COM_B="COM$((slot + 1))"
}

cleanup() {
  [ -n "${socat_pid:-}" ] && kill "$socat_pid" 2>/dev/null
  [ -n "${slot:-}" ] && rm -f "$WINEPREFIX/ptys/slot$slot"
}

bootstrap
# A wineserver that persists keeps later runs fast. Wine's own background processes (services,
# device drivers) start with the first program of a server and inherit its output: start them
# here with no output attached, or they would hold the caller's pipe (ctest's) open long after the
# test ended.
wineserver -p >/dev/null 2>&1 </dev/null
wine cmd /c exit 0 >/dev/null 2>&1 </dev/null
slot=""
socat_pid=""
if command -v socat >/dev/null 2>&1; then map_com_pair; fi
trap cleanup EXIT
wine "$@"
