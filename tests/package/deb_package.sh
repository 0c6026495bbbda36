#!/usr/bin/env bash
# The Debian package of kestrel-cli, made by cpack in a Linux build folder and tried as a user would:
# its control data and files (dpkg-deb), apt resolving its dependencies on this system (simulated),
# then installed with dpkg into a temporary root whose package database holds this system's
# packages it depends on (the system itself is never touched), the program run from the root's
# /usr/bin, its manual page found and rendered by man, and the package removed again.
#   deb_package.sh BUILD_DIR SOURCE_DIR
set -u
build=$1
source=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
status=0
fail() {
  echo "$*"
  status=1
}

cd "$build" || exit 1
if ! cpack -G DEB -B "$work/out" >"$work/cpack.log" 2>&1; then
  cat "$work/cpack.log"
  exit 1
fi
version=$(sed -n 's/^set(CPACK_PACKAGE_VERSION "\(.*\)")$/\1/p' CPackConfig.cmake)
arch=$(dpkg --print-architecture)
deb="$work/out/kestrel-cli_${version}_${arch}.deb"
[ -f "$deb" ] || { echo "cpack made no $(basename "$deb"):"; ls "$work/out"; exit 1; }

# The control data.
[ "$(dpkg-deb -f "$deb" Package)" = kestrel-cli ] || fail "Package: $(dpkg-deb -f "$deb" Package)"
[ "$(dpkg-deb -f "$deb" Version)" = "$version" ] || fail "Version: $(dpkg-deb -f "$deb" Version)"
[ "$(dpkg-deb -f "$deb" Architecture)" = "$arch" ] || fail "Architecture: $(dpkg-deb -f "$deb" Architecture)"
depends=$(dpkg-deb -f "$deb" Depends)
for library in libc6 libstdc++6 libgcc-s1; do
  grep -qF "$library (>= " <<<"$depends" || fail "Depends lacks $library: $depends"
done

# The files: exactly the program, the manual page, the README and the licence, owned by root.
expected="-rwxr-xr-x root/root ./usr/bin/kestrel-cli
-rw-r--r-- root/root ./usr/share/doc/kestrel-cli/README.md
-rw-r--r-- root/root ./usr/share/doc/kestrel-cli/copyright
-rw-r--r-- root/root ./usr/share/man/man1/kestrel-cli.1.gz"
files=$(dpkg-deb -c "$deb" | awk '$1 !~ /^d/ {print $1, $2, $6}' | sort -k3)
[ "$files" = "$expected" ] || fail "the package holds:"$'\n'"$files"$'\n'"instead of:"$'\n'"$expected"
mkdir -p "$work/unpacked"
dpkg-deb -x "$deb" "$work/unpacked"
cmp -s "$work/unpacked/usr/share/doc/kestrel-cli/README.md" "$source/README.md" || fail "README.md differs"
cmp -s "$work/unpacked/usr/share/doc/kestrel-cli/copyright" "$source/LICENSE" || fail "copyright is not LICENSE"
gzip -dc "$work/unpacked/usr/share/man/man1/kestrel-cli.1.gz" | cmp -s - man/kestrel-cli.1 ||
  fail "the packaged manual page is not the built one"
"$work/unpacked/usr/bin/kestrel-cli" --man | cmp -s - man/kestrel-cli.1 ||
  fail "the packaged program's manual page is not the packaged page"

# apt would install it here with what the system has (a simulation takes no lock).
apt-get -o Debug::NoLocking=1 install --simulate "$deb" >"$work/apt.log" 2>&1 || { cat "$work/apt.log"; fail "apt"; }
grep -q '^Inst kestrel-cli ' "$work/apt.log" || { cat "$work/apt.log"; fail "apt would not install kestrel-cli"; }

# A root whose package database lists the packages kestrel-cli depends on, as installed here: dpkg
# refuses the package unless its Depends are met by them.
root="$work/root"
admin="$root/var/lib/dpkg"
mkdir -p "$admin/info" "$admin/updates" "$admin/triggers"
touch "$admin/available" "$admin/status"
for dependency in $(tr ',' '\n' <<<"$depends" | sed 's/|.*//; s/(.*//' | tr -d ' '); do
  dpkg-query -s "$dependency" >>"$admin/status" 2>/dev/null || fail "$dependency is not installed here"
  echo >>"$admin/status"
  touch "$admin/info/$(dpkg-query -W -f='${binary:Package}' "$dependency").list"
done
dpkg --root="$root" -i "$deb" >"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; fail "dpkg -i failed"; }
dpkg-query --admindir="$admin" -W -f='${Status}' kestrel-cli | grep -q "install ok installed" ||
  fail "kestrel-cli is not installed in the root"

# The installed program runs from /usr/bin and knows its commands.
help=$("$root/usr/bin/kestrel-cli" --help 2>&1)
[ $? -eq 0 ] || fail "kestrel-cli --help failed: $help"
[ "$(head -1 <<<"$help")" = "usage:" ] || fail "kestrel-cli --help printed: $help"
grep -q '^  kestrel-cli \[--lang en|de\] decode ' <<<"$help" || fail "the usage lacks decode: $help"
"$root/usr/bin/kestrel-cli" decode --help | grep -q '^Example:$' || fail "decode --help has no example"

# man finds the page where it was installed and renders it without a warning.
found=$(MANPATH="$root/usr/share/man" man -w kestrel-cli 2>&1)
[ "$found" = "$root/usr/share/man/man1/kestrel-cli.1.gz" ] || fail "man -w kestrel-cli: $found"
page=$(MANWIDTH=100 man --warnings -l "$root/usr/share/man/man1/kestrel-cli.1.gz" 2>"$work/man.err")
[ $? -eq 0 ] || fail "man -l failed"
[ -s "$work/man.err" ] && { cat "$work/man.err"; fail "man warned"; }
for text in "KESTREL-CLI(1)" "NAME" "SYNOPSIS" "COMMANDS" "EXIT STATUS" "kestrel-cli [--lang en|de] poll"; do
  grep -qF -- "$text" <<<"$page" || fail "the rendered page lacks '$text'"
done

# Removed again, with nothing of it left.
dpkg --root="$root" --purge kestrel-cli >>"$work/dpkg.log" 2>&1 || { cat "$work/dpkg.log"; fail "dpkg --purge failed"; }
left=$(cd "$root" && find usr -type f 2>/dev/null)
[ -z "$left" ] || fail "left after the removal: $left"

[ $status -eq 0 ] && echo "$(basename "$deb"): control data, files, apt, install, --help, man page and removal"
exit $status
