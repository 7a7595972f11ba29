#!/usr/bin/env bash
# The demo: a SoftHSM2 token served by one Java process through
# libqorbridge.so and used from another through libKorvanePkcs11Wrapper.so's
# client proxies. Sets the machine up, builds what it needs in build/, makes
# a token with an RSA key in a temp dir, runs both processes and cleans up.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${QOR_DEMO_BUILD:-$root/build}   # another build dir, for a tree that has one
cd "$root"

bash scripts/setup.sh

echo "demo: building the library, the Java API, the bridge and the demo programs in $build"
if [ ! -f "$build/CMakeCache.txt" ]; then
  mkdir -p "$build"
  cmake -S . -B "$build" >"$build/demo-configure.log" 2>&1 || { cat "$build/demo-configure.log" >&2; exit 1; }
fi
cmake --build "$build" -j2 --target KorvanePkcs11Wrapper qorpkcs11 qorbridge demo >"$build/demo-build.log" 2>&1 \
  || { tail -40 "$build/demo-build.log" >&2; exit 1; }

work=$(mktemp -d /tmp/qor-demo-XXXXXX)
server_pid=
cleanup() {
  if [ -n "$server_pid" ]; then
    kill "$server_pid" 2>/dev/null || true
    wait "$server_pid" 2>/dev/null || true
  fi
  rm -rf "$work"
}
trap cleanup EXIT

echo "demo: creating a SoftHSM2 token (label test, user PIN 1234) with an RSA-2048 key in $work"
mkdir "$work/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' \
  "$work" >"$work/softhsm2.conf"
export SOFTHSM2_CONF=$work/softhsm2.conf
softhsm2-util --init-token --free --label test --pin 1234 --so-pin 5678 >/dev/null
pkcs11-tool --module /usr/lib/softhsm/libsofthsm2.so --token-label test --login --pin 1234 \
  --keypairgen --key-type rsa:2048 --label demo-rsa --id 01 >"$work/keygen.log" 2>&1 \
  || { cat "$work/keygen.log" >&2; exit 1; }

socket=@qor-demo-$$
classpath=$build/lib/qorpkcs11.jar:$build/lib/demo.jar
java_opts=(-Djava.library.path="$build/lib" -cp "$classpath")

echo "demo: starting the serving process"
java "${java_opts[@]}" com.qor.smartcard.demo.DemoServer "$build/lib/libqorbridge.so" "$socket" \
  >"$work/server.out" 2>"$work/server.log" &
server_pid=$!
for _ in $(seq 100); do
  grep -q '^server:' "$work/server.out" && break
  kill -0 "$server_pid" 2>/dev/null || { cat "$work/server.out" "$work/server.log" >&2; exit 1; }
  sleep 0.1
done
cat "$work/server.out"

echo "demo: running the calling process (each time is one remoted call, socket and server included)"
if ! java "${java_opts[@]}" com.qor.smartcard.demo.DemoClient "$socket" 2>"$work/client.log"; then
  echo "demo: the client failed; its log and the server's:" >&2
  cat "$work/client.log" "$work/server.log" >&2
  exit 1
fi

echo "demo: stopping the serving process and removing the token"
