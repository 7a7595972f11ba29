#!/usr/bin/env bash
# Installs everything the project needs as Debian packages. Idempotent: does
# nothing when every package is present; fails loudly when an install fails.
set -euo pipefail

PACKAGES=(
  build-essential cmake pkg-config
  protobuf-compiler libprotobuf-dev
  android-liblog-dev
  googletest libgtest-dev libgmock-dev
  openjdk-17-jdk-headless junit5
  clang libclang-rt-14-dev
)

missing=()
for p in "${PACKAGES[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all ${#PACKAGES[@]} packages present"
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing packages: ${missing[*]} (run as root to install them)" >&2
  exit 1
fi

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt-get update -q || { echo "setup: apt-get update failed" >&2; exit 1; }
apt-get install -y -q --no-install-recommends "${missing[@]}" || {
  echo "setup: apt-get install failed for: ${missing[*]}" >&2; exit 1; }
echo "setup: done"
