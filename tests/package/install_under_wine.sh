#!/usr/bin/env bash
# Installs the NSIS installer silently under Wine (/S) in a prefix of its own, checks the installed
# files, the Start-menu entry, the Add/Remove Programs entry and the installed Kestrel.exe's version
# information (GetFileVersionInfoW, by read_resources), starts the installed Kestrel.exe until its
# main window is on the (Xvfb) screen, closes it, and uninstalls silently again: the files, the
# Start-menu entry, the Add/Remove Programs entry and the installer's own registry key are gone.
set -u
build=$1
reader=${2:-}
installer=$(ls "$build"/Kestrel-*-win64.exe 2>/dev/null | head -1)
[ -n "$installer" ] || { echo "no installer in $build"; exit 1; }
export WINEPREFIX=$build/wine-package-prefix
export WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" WINEARCH=win64
mkdir -p "$WINEPREFIX"
exec 7>"$WINEPREFIX.runlock"
flock 7

xvfb_pid=""
app_pid=""
cleanup() {
  [ -n "$app_pid" ] && kill "$app_pid" 2>/dev/null
  wineserver -k >/dev/null 2>&1 || true
  if [ -n "$xvfb_pid" ]; then kill "$xvfb_pid" 2>/dev/null; wait "$xvfb_pid" 2>/dev/null; fi
}
trap cleanup EXIT

# A bare X server: every top-level window of Wine is an X window with its title.
for n in $(seq 190 289); do
  [ -e "/tmp/.X$n-lock" ] && continue
  Xvfb ":$n" -screen 0 1280x1024x24 -nolisten tcp >/dev/null 2>&1 </dev/null 7>&- &
  xvfb_pid=$!
  for _ in $(seq 1 100); do
    [ -S "/tmp/.X11-unix/X$n" ] && break
    sleep 0.05
  done
  if [ -S "/tmp/.X11-unix/X$n" ]; then export DISPLAY=":$n"; break; fi
  kill "$xvfb_pid" 2>/dev/null
  xvfb_pid=""
done
[ -n "$xvfb_pid" ] || { echo "no X server"; exit 1; }

if [ ! -f "$WINEPREFIX/.kestrel-package-ready" ]; then
  wineboot -i >/dev/null 2>&1 </dev/null 7>&-
  wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1 </dev/null 7>&-
  wineserver -w
  touch "$WINEPREFIX/.kestrel-package-ready"
fi
wineserver -p >/dev/null 2>&1 </dev/null 7>&-

target="$WINEPREFIX/drive_c/KestrelTest"
rm -rf "$target"
status=0
fail() { echo "FAIL: $*"; status=1; }

timeout 120 wine "$installer" /S '/D=C:\KestrelTest' </dev/null 7>&- || fail "the installer did not finish"
for name in Kestrel.exe kestrel-cli.exe README.md LICENSE Uninstall.exe; do
  [ -f "$target/$name" ] || fail "not installed: $name"
done
link=$(find "$WINEPREFIX/drive_c" -path '*Start Menu/Programs/Kestrel/*' -iname 'Kestrel.lnk' 2>/dev/null | head -1)
[ -n "$link" ] && echo "Start-menu entry: ${link#$WINEPREFIX/}" || fail "no Start-menu entry"
cmp -s "$target/Kestrel.exe" "$(find "$build/src" -name Kestrel.exe | head -1)" || fail "installed Kestrel.exe is not the one built"

# The Add/Remove Programs entry (a 64-bit installer run as administrator writes it for the machine).
version=$(basename "$installer" | sed -n 's/^Kestrel-\(.*\)-win64\.exe$/\1/p')
uninstall_key='HKLM\Software\Microsoft\Windows\CurrentVersion\Uninstall\Kestrel'
vendor_key='HKLM\Software\Kestrel developers'
reg_value() {  # KEY NAME: the value's type and data as "reg query" prints them
  local which=(/v "$2")
  [ "$2" = "(Default)" ] && which=(/ve)
  timeout 60 wine reg query "$1" "${which[@]}" </dev/null 2>/dev/null 7>&- | tr -d '\r' |
    grep -F -- "$2" | sed -n 's/^ *.* *\(REG_[A-Z_]*\) *\(.*\)$/\1 \2/p' | sed 's/ *$//' | head -1
}
expect_value() {  # KEY NAME "TYPE DATA"
  local got
  got=$(reg_value "$1" "$2")
  [ "$got" = "$3" ] && echo "$2: $got" || fail "$1 $2 is '$got', not '$3'"
}
expect_value "$uninstall_key" DisplayName "REG_SZ Kestrel"
expect_value "$uninstall_key" DisplayVersion "REG_SZ $version"
expect_value "$uninstall_key" Publisher "REG_SZ Kestrel developers"
expect_value "$uninstall_key" DisplayIcon 'REG_SZ C:\KestrelTest\Kestrel.exe'
expect_value "$uninstall_key" UninstallString 'REG_SZ "C:\KestrelTest\Uninstall.exe"'
# The estimated size in KB: what the installation folder holds, give or take a KB per file.
size=$(reg_value "$uninstall_key" EstimatedSize)
folder_kb=$(( $(du -sb "$target" | cut -f1) / 1024 ))
case "$size" in
  "REG_DWORD 0x"*)
    kb=$(( ${size#REG_DWORD } ))
    echo "EstimatedSize: $kb KB (the folder holds $folder_kb KB)"
    [ "$kb" -ge $((folder_kb - 8)) ] && [ "$kb" -le $((folder_kb + 8)) ] || fail "EstimatedSize $kb KB for $folder_kb KB"
    ;;
  *) fail "EstimatedSize is '$size'" ;;
esac
expect_value "$vendor_key\Kestrel" "(Default)" 'REG_SZ C:\KestrelTest'

# The version information of the installed Kestrel.exe, as Explorer's Details tab reads it.
if [ -n "$reader" ]; then
  details=$(timeout 60 wine "$reader" 'C:\KestrelTest\Kestrel.exe' version </dev/null 2>&1 7>&- | tr -d '\r')
  echo "$details" | sed 's/^/installed Kestrel.exe: /'
  grep -qx "ProductName: Kestrel" <<<"$details" || fail "installed Kestrel.exe: no product name"
  grep -qx "FileVersion: $version" <<<"$details" || fail "installed Kestrel.exe: no file version $version"
  grep -qx "FileDescription: Kestrel - Modbus TCP/RTU master and slave" <<<"$details" ||
    fail "installed Kestrel.exe: no file description"
  grep -qx "LegalCopyright: Copyright (c) 2026 Kestrel developers" <<<"$details" || fail "installed Kestrel.exe: no copyright"
  # The installer and the uninstaller show the application's icon (its four images), not NSIS's.
  for exe in "$installer" 'C:\KestrelTest\Uninstall.exe'; do
    icons=$(timeout 60 wine "$reader" "$exe" icons </dev/null 2>&1 7>&- | tr -d '\r')
    echo "$(basename "$exe"): $icons"
    grep -q "^icon group [0-9]*: 4 images: 256x256x32 48x48x32 32x32x32 16x16x32$" <<<"$icons" ||
      fail "$exe does not carry the application icon"
  done
fi

help=$(timeout 60 wine 'C:\KestrelTest\kestrel-cli.exe' --help </dev/null 7>&- 2>&1)
grep -q "CONN is" <<<"$help" || fail "the installed kestrel-cli.exe did not print its usage"

# The installed window program, started from a folder of its own (it keeps its structures file in
# the current folder).
mkdir -p "$WINEPREFIX/drive_c/kestrel-run"
(cd "$WINEPREFIX/drive_c/kestrel-run" && exec wine 'C:\KestrelTest\Kestrel.exe' </dev/null >/dev/null 2>&1 7>&-) &
app_pid=$!
window=""
for _ in $(seq 1 60); do
  window=$(xdotool search --name '^Kestrel    TCP/RTU - Master & Slave' 2>/dev/null | head -1)
  [ -n "$window" ] && break
  kill -0 "$app_pid" 2>/dev/null || break
  sleep 0.5
done
if [ -n "$window" ]; then
  echo "installed Kestrel.exe shows: $(xdotool getwindowname "$window")"
  mkdir -p "$build/screenshots"
  sleep 1
  import -window root "$build/screenshots/package-installed-kestrel.png" 2>/dev/null
  xdotool windowclose "$window" 2>/dev/null
  for _ in $(seq 1 40); do kill -0 "$app_pid" 2>/dev/null || break; sleep 0.25; done
else
  fail "the installed Kestrel.exe showed no main window"
fi
if kill -0 "$app_pid" 2>/dev/null; then kill "$app_pid" 2>/dev/null; fi
wait "$app_pid" 2>/dev/null
app_pid=""

# The uninstaller copies itself away and returns at once; wait until it has removed the files.
timeout 60 wine 'C:\KestrelTest\Uninstall.exe' /S </dev/null 7>&- || fail "the uninstaller did not start"
for _ in $(seq 1 120); do
  [ -f "$target/Kestrel.exe" ] || [ -f "$target/Uninstall.exe" ] || break
  sleep 0.25
done
timeout 60 wineserver -w
for name in Kestrel.exe kestrel-cli.exe README.md LICENSE Uninstall.exe; do
  [ -f "$target/$name" ] && fail "left after uninstalling: $name"
done
[ -n "$link" ] && [ -f "$link" ] && fail "Start-menu entry left after uninstalling"
# Nothing of the installer's is left in the registry: no Add/Remove Programs entry, no key of its own.
for key in "$uninstall_key" "$vendor_key" 'HKCU\Software\Kestrel developers'; do
  if timeout 60 wine reg query "$key" </dev/null >/dev/null 2>&1 7>&-; then
    fail "left after uninstalling: $key"
  else
    echo "gone after uninstalling: $key"
  fi
done
[ $status -eq 0 ] && echo "installed, started and uninstalled under Wine"
exit $status
