#!/usr/bin/env bash
# The resources of Kestrel.exe and kestrel-cli.exe, read back from the built files twice: the
# resource types by windres (decompiling the .exe, natively), and the contents by Windows' own
# functions under Wine (read_resources: FindResource for the manifest and the icon group,
# GetFileVersionInfoW for the version). Checked: the manifest is exactly the one in the build
# folder, with Common Controls 6, Windows 7 to 11, and per-monitor (V2) DPI awareness for the
# window program only; the version strings; an icon group with its four images in Kestrel.exe.
set -u
build=$1
reader=$2
here=$(cd "$(dirname "$0")/../.." && pwd)
gui=$build/src/ui/Kestrel.exe
cli=$build/src/cli/kestrel-cli.exe
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
[ -n "$version" ] || { echo "no project version in $build/CMakeCache.txt"; exit 1; }
status=0
fail() { echo "FAIL: $*"; status=1; }
read_part() { "$here/tools/wine-run.sh" "$reader" "Z:$1" "$2" 2>&1; }

# The resource types, as windres decompiles them.
types() { timeout 60 x86_64-w64-mingw32-windres -i "$1" -O rc 2>/dev/null | grep -E '^[0-9]+ ([0-9]+ /\*|VERSIONINFO)'; }
expected_gui_types='1 3 /* RT_ICON */
2 3 /* RT_ICON */
3 3 /* RT_ICON */
4 3 /* RT_ICON */
1 14 /* RT_GROUP_ICON */
1 VERSIONINFO
1 24 /* RT_MANIFEST */'
expected_cli_types='1 VERSIONINFO
1 24 /* RT_MANIFEST */'
[ "$(types "$gui")" = "$expected_gui_types" ] || { fail "Kestrel.exe resource types:"; types "$gui"; }
[ "$(types "$cli")" = "$expected_cli_types" ] || { fail "kestrel-cli.exe resource types:"; types "$cli"; }

# The manifests: byte for byte the ones configured into the build, and what they declare.
for exe in "$gui" "$cli"; do
  name=$(basename "$exe")
  manifest=$(read_part "$exe" manifest)
  [ "$manifest" = "$(cat "$exe.manifest")" ] || fail "$name: the embedded manifest differs from $exe.manifest"
  grep -q 'name="Microsoft.Windows.Common-Controls" version="6.0.0.0"' <<<"$manifest" || fail "$name: no Common Controls 6"
  for os in 35138b9a-5d96-4fbd-8e2d-a2440225f93a 4a2f28e3-53b9-4441-ba9c-d69d4a4a6e38 \
            1f676c76-80e1-4239-95bb-83d0f6d0da78 8e0f7a12-bfb3-4fe8-b9a5-48fd50a15a9a; do
    grep -q "<supportedOS Id=\"{$os}\"/>" <<<"$manifest" || fail "$name: supportedOS $os missing"
  done
  grep -q "version=\"$version.0\"" <<<"$manifest" || fail "$name: the manifest's assembly version is not $version.0"
  if [ "$exe" = "$gui" ]; then
    grep -q '<dpiAwareness xmlns="http://schemas.microsoft.com/SMI/2016/WindowsSettings">PerMonitorV2, PerMonitor</dpiAwareness>' \
      <<<"$manifest" || fail "$name: no PerMonitorV2 DPI awareness"
    grep -q '<dpiAware xmlns="http://schemas.microsoft.com/SMI/2005/WindowsSettings">true/pm</dpiAware>' \
      <<<"$manifest" || fail "$name: no per-monitor dpiAware for Windows 8.1"
  else
    grep -q 'dpiAware' <<<"$manifest" && fail "$name declares DPI awareness"
  fi
done

# The version information, through GetFileVersionInfoW / VerQueryValueW.
version_of() {
  cat <<END
FileVersion (fixed): $version.0
ProductVersion (fixed): $version.0
Translation: 040904b0
CompanyName: Kestrel developers
FileDescription: $1
FileVersion: $version
InternalName: $2
LegalCopyright: Copyright (c) 2026 Kestrel developers
OriginalFilename: $2.exe
ProductName: Kestrel
ProductVersion: $version
END
}
got=$(read_part "$gui" version)
[ "$got" = "$(version_of "Kestrel - Modbus TCP/RTU master and slave" Kestrel)" ] || { fail "Kestrel.exe version:"; echo "$got"; }
got=$(read_part "$cli" version)
[ "$got" = "$(version_of "Kestrel command line - Modbus TCP/RTU master, slave and tools" kestrel-cli)" ] ||
  { fail "kestrel-cli.exe version:"; echo "$got"; }

# The icon group of the window program, each image present; the command line has none.
got=$(read_part "$gui" icons)
[ "$got" = "icon group 1: 4 images: 256x256x32 48x48x32 32x32x32 16x16x32" ] || { fail "Kestrel.exe icons: $got"; }
got=$(read_part "$cli" icons)
grep -q "^icon group" <<<"$got" && fail "kestrel-cli.exe has an icon group: $got"

[ $status -eq 0 ] && echo "Kestrel.exe and kestrel-cli.exe: manifests, version information and icon group as built"
exit $status
