#!/usr/bin/env bash
# Runs a Windows program with a real display under Wine: a private X server (Xvfb, 1280 x 1024)
# and a Wine virtual desktop of the same size in the prefix build/wine-gui-prefix (or
# $KESTREL_GUI_WINEPREFIX), with the X11 driver, so windows are drawn, not clamped to the null
# driver's 1024 x 768 screen, and can be captured.
# KESTREL_GUI_DPI=144 runs it at 144 DPI (the prefix's LogPixels) on a 1920 x 1600 screen, in the
# prefix build/wine-gui-prefix-144dpi; KESTREL_GUI_THEME=light makes Wine's visual-styles theme
# (light.msstyles) the active theme, in the prefix build/wine-gui-prefix-light (both: -144dpi-light),
# KESTREL_GUI_THEME=none switches visual styles off (classic drawing), in build/wine-gui-prefix-none.
# Without it the prefix keeps Wine's default (Wine 8 makes light.msstyles active). One run at a time per prefix (a lock), so two
# runs never share a desktop. COM7 and COM8 are the two ends of a socat pseudo-terminal pair, named
# in KESTREL_COM_A and KESTREL_COM_B. The X server, the pair and the prefix's wineserver are
# stopped on exit.
set -u
here=$(cd "$(dirname "$0")/.." && pwd)
dpi=${KESTREL_GUI_DPI:-96}
theme=${KESTREL_GUI_THEME:-}
case "$dpi" in ''|*[!0-9]*) echo "wine-gui-run: KESTREL_GUI_DPI must be a number" >&2; exit 2 ;; esac
case "$theme" in ''|light|none) ;; *) echo "wine-gui-run: KESTREL_GUI_THEME is light, none or empty" >&2; exit 2 ;; esac
variant=""
[ "$dpi" != 96 ] && variant="$variant-${dpi}dpi"
[ -n "$theme" ] && variant="$variant-$theme"
screen=1280x1024
[ "$dpi" -gt 96 ] && screen=1920x1600
export WINEPREFIX=${KESTREL_GUI_WINEPREFIX:-$here/build/wine-gui-prefix$variant}
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
export WINEARCH=win64
mkdir -p "$WINEPREFIX"

# One GUI run at a time in this prefix. Nothing started below inherits the lock's descriptor
# (7>&-): a run killed from outside (a test time-out) must not leave its lock held by a
# wineserver or an X server that outlives it.
exec 7>"$WINEPREFIX.runlock"
if ! flock -w 1200 7; then
  echo "wine-gui-run: $WINEPREFIX has been busy for 20 minutes; giving up" >&2
  exit 1
fi
# Holding the lock, any wineserver of this prefix is left over from a run that was killed.
wineserver -k >/dev/null 2>&1 7>&- || true

xvfb_pid=""
socat_pid=""
stop_all() {
  wineserver -k >/dev/null 2>&1 7>&- || true
  if [ -n "$xvfb_pid" ]; then kill "$xvfb_pid" 2>/dev/null; wait "$xvfb_pid" 2>/dev/null; fi
  if [ -n "$socat_pid" ]; then kill "$socat_pid" 2>/dev/null; wait "$socat_pid" 2>/dev/null; fi
}
trap stop_all EXIT

start_xvfb() {
  local n
  for n in $(seq 90 189); do
    [ -e "/tmp/.X$n-lock" ] && continue
    timeout 3600 Xvfb ":$n" -screen 0 "${screen}x24" -nolisten tcp >/dev/null 2>&1 </dev/null 7>&- &
    xvfb_pid=$!
    for _ in $(seq 1 100); do
      [ -S "/tmp/.X11-unix/X$n" ] && { export DISPLAY=":$n"; return 0; }
      kill -0 "$xvfb_pid" 2>/dev/null || break
      sleep 0.05
    done
    xvfb_pid=""
  done
  echo "wine-gui-run: no X server could be started" >&2
  exit 1
}

bootstrap() {
  [ -f "$WINEPREFIX/.kestrel-gui-ready" ] && return 0
  # Caption buttons are drawn with Marlett; it must be there when the prefix registers its fonts.
  mkdir -p "$WINEPREFIX/drive_c/windows/Fonts"
  cp -f /usr/share/wine/fonts/marlett.ttf "$WINEPREFIX/drive_c/windows/Fonts/" 2>/dev/null || true
  wineboot -i >/dev/null 2>&1 </dev/null 7>&-
  wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1 </dev/null 7>&-
  wine reg add 'HKCU\Software\Wine\Explorer' /v Desktop /d Default /f >/dev/null 2>&1 </dev/null 7>&-
  wine reg add 'HKCU\Software\Wine\Explorer\Desktops' /v Default /d "$screen" /f >/dev/null 2>&1 </dev/null 7>&-
  if [ "$dpi" != 96 ]; then
    # Wine reads the user's value first and the machine's only when the user has none: set both.
    wine reg add 'HKCU\Control Panel\Desktop' /v LogPixels /t REG_DWORD /d "$dpi" /f >/dev/null 2>&1 </dev/null 7>&-
    wine reg add 'HKLM\System\CurrentControlSet\Hardware Profiles\Current\Software\Fonts' /v LogPixels \
      /t REG_DWORD /d "$dpi" /f >/dev/null 2>&1 </dev/null 7>&-
  fi
  if [ "$theme" = light ]; then
    local key='HKCU\Software\Microsoft\Windows\CurrentVersion\ThemeManager'
    wine reg add "$key" /v ThemeActive /d 1 /f >/dev/null 2>&1 </dev/null 7>&-
    wine reg add "$key" /v DllName /d 'C:\windows\resources\themes\light\light.msstyles' /f >/dev/null 2>&1 </dev/null 7>&-
    # The colour scheme of light.msstyles is "Blue" (a name it does not have leaves no theme active);
    # its one size is taken when none is named.
    wine reg add "$key" /v ColorName /d Blue /f >/dev/null 2>&1 </dev/null 7>&-
  elif [ "$theme" = none ]; then
    wine reg add 'HKCU\Software\Microsoft\Windows\CurrentVersion\ThemeManager' /v ThemeActive /d 0 /f \
      >/dev/null 2>&1 </dev/null 7>&-
  fi
  # The settings are read by a fresh wineserver.
  wineserver -w 7>&-
  touch "$WINEPREFIX/.kestrel-gui-ready"
}

map_com_pair() {
  local dir="$WINEPREFIX/ptys"
  mkdir -p "$dir" "$WINEPREFIX/dosdevices"
  rm -f "$dir/ttyA" "$dir/ttyB"
  timeout 3600 socat pty,raw,echo=0,link="$dir/ttyA" pty,raw,echo=0,link="$dir/ttyB" >/dev/null 2>&1 </dev/null 7>&- &
  socat_pid=$!
  for _ in $(seq 1 100); do
    [ -e "$dir/ttyA" ] && [ -e "$dir/ttyB" ] && break
    sleep 0.02
  done
  ln -sfn "$dir/ttyA" "$WINEPREFIX/dosdevices/com7"
  ln -sfn "$dir/ttyB" "$WINEPREFIX/dosdevices/com8"
  export KESTREL_COM_A=COM7 KESTREL_COM_B=COM8
}

start_xvfb
bootstrap
map_com_pair
wineserver -p >/dev/null 2>&1 </dev/null 7>&-
wine cmd /c exit 0 >/dev/null 2>&1 </dev/null 7>&-
wine "$@" 7>&-
