#!/usr/bin/env bash
# Builds the Windows package in the windows build folder (cpack: a zip and an NSIS installer) and
# checks what it holds: both programs, the README and the licence.
set -u
build=$1
cd "$build" || exit 1
rm -f Kestrel-*-win64.zip Kestrel-*-win64.exe
if ! cpack -C Release >cpack.log 2>&1; then
  cat cpack.log
  exit 1
fi
status=0
zip=$(ls Kestrel-*-win64.zip 2>/dev/null | head -1)
installer=$(ls Kestrel-*-win64.exe 2>/dev/null | head -1)
[ -n "$zip" ] || { echo "no zip was made"; exit 1; }
[ -n "$installer" ] || { echo "no installer was made"; exit 1; }
listing=$(unzip -Z1 "$zip")
for name in Kestrel.exe kestrel-cli.exe README.md LICENSE; do
  if ! grep -q "^Kestrel-[^/]*-win64/$name\$" <<<"$listing"; then
    echo "$zip lacks $name"
    status=1
  fi
done
[ "$(grep -c . <<<"$listing")" -eq 4 ] || { echo "$zip holds more than expected:"; echo "$listing"; status=1; }
# The programs in the zip are the ones just built.
for name in Kestrel.exe kestrel-cli.exe; do
  built=$(find src -name "$name" | head -1)
  unzip -p "$zip" "Kestrel-*-win64/$name" | cmp -s - "$built" || { echo "$name in the zip differs from $built"; status=1; }
done
# An NSIS installer: a Windows program with the NSIS data block in it.
[ "$(head -c 2 "$installer")" = "MZ" ] || { echo "$installer is no Windows program"; status=1; }
grep -aq "NullsoftInst" "$installer" || { echo "$installer is no NSIS installer"; status=1; }
[ $status -eq 0 ] && echo "$zip and $installer: Kestrel.exe, kestrel-cli.exe, README.md, LICENSE"
exit $status
