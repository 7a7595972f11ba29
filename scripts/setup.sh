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
  softhsm2 opensc p11-kit
  libbenchmark-dev
  # 32-bit x86 (pointers of the device's size, run natively) and 32-bit ARM
  # (run under qemu-arm): cross compilers plus the target's multiarch
  # libraries. Protobuf headers and protoc are the host's, same version.
  g++-i686-linux-gnu
  libprotobuf-lite32:i386 android-liblog-dev:i386 libgtest-dev:i386 libgmock-dev:i386
  zlib1g:i386  # for the 32-bit Java VM unpacked below
  libasan8:i386 libubsan1:i386  # sanitizer runtimes of the 32-bit x86 tests
  g++-arm-linux-gnueabihf qemu-user
  libprotobuf-lite32:armhf android-liblog-dev:armhf libgtest-dev:armhf libgmock-dev:armhf
)
FOREIGN_ARCHES=(i386 armhf)

# Read the list whole first: grep -q quitting early would hand dpkg a
# SIGPIPE, which pipefail reports as a missing architecture.
foreign=$(dpkg --print-foreign-architectures)
missing_arches=()
for a in "${FOREIGN_ARCHES[@]}"; do
  grep -qx "$a" <<<"$foreign" || missing_arches+=("$a")
done

missing=()
for p in "${PACKAGES[@]}"; do
  status=$(dpkg-query -W -f='${Status}\n' "$p" 2>/dev/null || true)
  grep -q 'install ok installed' <<<"$status" || missing+=("$p")
done

# A Java VM of the device's pointer width, for the 32-bit x86 build's tests
# that host one: Debian's i386 JRE cannot be installed beside the amd64 JDK,
# so its package is unpacked into the project's own folder.
JRE32_DIR=.jdk-i386
jre32() {
  local home="$JRE32_DIR/usr/lib/jvm/java-17-openjdk-i386"
  [ -x "$home/bin/java" ] && return 0
  local tmp
  tmp=$(mktemp -d)
  chmod 777 "$tmp"  # apt's download user writes here
  (cd "$tmp" && apt-get download -q openjdk-17-jre-headless:i386) || {
    rm -rf "$tmp"; echo "setup: downloading the i386 JRE failed" >&2; return 1; }
  rm -rf "$JRE32_DIR"
  dpkg-deb -x "$tmp"/openjdk-17-jre-headless_*_i386.deb "$JRE32_DIR"
  rm -rf "$tmp"
  [ -x "$home/bin/java" ] || { echo "setup: no java in the i386 JRE package" >&2; return 1; }
  echo "setup: i386 JRE unpacked into $JRE32_DIR"
}
cd "$(dirname "$0")/.."

if [ ${#missing[@]} -eq 0 ] && [ ${#missing_arches[@]} -eq 0 ]; then
  echo "setup: all ${#PACKAGES[@]} packages present"
  jre32
  exit 0
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "setup: missing architectures: ${missing_arches[*]:-none}; packages: ${missing[*]:-none}" \
       "(run as root to install them)" >&2
  exit 1
fi

for a in "${missing_arches[@]}"; do
  dpkg --add-architecture "$a" || { echo "setup: dpkg --add-architecture $a failed" >&2; exit 1; }
done

echo "setup: installing ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
# Three architectures' indices: a mirror mid-sync fails one now and then. A
# list that stays stale shows up as an install failure below.
updated=0
for attempt in 1 2 3; do
  if apt-get update -q; then updated=1; break; fi
  echo "setup: apt-get update failed (attempt $attempt)" >&2
  sleep 10
done
[ "$updated" -eq 1 ] || echo "setup: going on with the package lists apt has" >&2
apt-get install -y -q --no-install-recommends "${missing[@]}" || {
  echo "setup: apt-get install failed for: ${missing[*]}" >&2; exit 1; }
jre32
echo "setup: done"
