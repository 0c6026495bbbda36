#!/usr/bin/env bash
# Installs every package the build and the tests need on a fresh Debian 12 machine.
# Safe to run again: it skips apt when everything is already there.
set -euo pipefail

packages=(
  build-essential cmake pkg-config util-linux coreutils libgtest-dev libgmock-dev libbenchmark-dev googletest
  g++-mingw-w64-x86-64-posix wine64 wine fonts-wine xvfb imagemagick socat xdotool
  libmodbus-dev python3 python3-pymodbus python3-serial python3-serial-asyncio mbpoll tshark hyperfine nsis unzip
  clang libclang-rt-14-dev llvm
  libmosquitto-dev mosquitto mosquitto-clients openssl
  dpkg-dev man-db groff-base gzip
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  echo "wireshark-common wireshark-common/install-setuid boolean false" | $SUDO debconf-set-selections
  $SUDO apt-get -o DPkg::Lock::Timeout=300 update
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get -o DPkg::Lock::Timeout=300 install -y --no-install-recommends "${missing[@]}"
  # The mosquitto package starts a system broker on port 1883. The tests start brokers of their own
  # on free ports, and the README's example starts one by hand: the service just installed is
  # stopped and disabled so that nothing listens that nobody asked for.
  if printf '%s\n' "${missing[@]}" | grep -qx mosquitto; then
    if [ -d /run/systemd/system ]; then
      $SUDO systemctl disable --now mosquitto.service >/dev/null 2>&1 || true
    else
      $SUDO service mosquitto stop >/dev/null 2>&1 || true
    fi
  fi
fi
