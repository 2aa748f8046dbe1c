#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, only those that
# are missing (non-interactive; needs root, as on the project's machines).
set -euo pipefail
packages=(cmake ninja-build g++ clang libclang-rt-14-dev libgtest-dev libgmock-dev
          libbenchmark-dev libgif-dev libpng-dev libjpeg-dev libwebp-dev libtiff-dev
          libnetpbm-dev libexif-dev libpixman-1-dev pkg-config
          libgsf-bin clang-format)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  SUDO=""
  [ "$(id -u)" -ne 0 ] && SUDO="sudo"
  $SUDO apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
