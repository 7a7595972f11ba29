#!/usr/bin/env bash
# OpenSC's pkcs11-tool in one process, SoftHSM2 in another: the tool loads
# libqorfront.so, whose wrapper remotes every call over the socket to a
# serving JVM that serves the token through libqorbridge.so. Each check is a
# command a user would type; the breaks the wire keeps on purpose are
# asserted as they show.
# Usage: pkcs11_tool_remoted.sh JAVA CLASSPATH WRAPPER BRIDGE FRONT SOCKET [reset|extended]
# "reset": the serving JVM resets the module when a client goes without
# C_Finalize. "extended": the front module speaks the extended protocol
# (QOR_EXTENSIONS=1), so the kept breaks work. Abstract socket names are
# machine-wide: this run's pid keeps builds that test at the same time apart.
set -uo pipefail
java=$1 classpath=$2 wrapper=$3 bridge=$4 front=$5 socket=$6-$$ mode=${7:-}

work=$(mktemp -d /tmp/qor-e2e-tool-XXXXXX)
server=
stop() {
  if [ -n "$server" ]; then
    kill -9 "$server" 2>/dev/null
    wait "$server" 2>/dev/null
    # Anything past "ready" (JNI checks, say) reaches ctest's patterns.
    grep -vx ready "$work/server.out"
  fi
  exec 3>&- 2>/dev/null
  rm -rf "$work"
}
trap stop EXIT
trap 'exit 1' INT TERM HUP

mkdir "$work/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' \
  "$work" >"$work/softhsm2.conf"
export SOFTHSM2_CONF=$work/softhsm2.conf
softhsm2-util --init-token --free --label test --pin 1234 --so-pin 5678 >/dev/null || exit 1

# The serving JVM serves until its input ends: a fifo held open on fd 3
# keeps it up, and the trap ends it whatever happens here. Its standard
# error is this script's, so sanitizer reports reach ctest.
mkfifo "$work/in"
"$java" -Xcheck:jni -XX:ErrorFile="$work/hs_err_%p.log" -XX:-CreateCoredumpOnCrash \
  -Dqor.resetOnDisconnect="$([ "$mode" = reset ] && echo true || echo false)" \
  -Dcom.qor.smartcard.pkcs11.library="$wrapper" -cp "$classpath" \
  com.qor.smartcard.pkcs11.e2e.ServingProcess "$bridge" "$socket" \
  <"$work/in" >"$work/server.out" &
server=$!
exec 3>"$work/in"

export QOR_WRAPPER_LIBRARY=$wrapper QOR_SOCKET_NAME=$socket
if [ "$mode" = extended ]; then export QOR_EXTENSIONS=1; fi
tool() { timeout 60 pkcs11-tool --module "$front" "$@" 2>"$work/stderr"; }
user() { tool --login --pin 1234 "$@"; }

# "ready" comes a moment before the server thread listens: retry until the
# module answers through the socket.
for attempt in $(seq 1 200); do
  if ! kill -0 "$server" 2>/dev/null; then
    echo "the serving JVM exited"
    exit 1
  fi
  if grep -qx ready "$work/server.out" && tool --show-info >/dev/null; then
    break
  fi
  if [ "$attempt" -eq 200 ]; then
    echo "the serving JVM never answered:"
    cat "$work/stderr"
    exit 1
  fi
  sleep 0.1
done

printf 'hello, remoted world' >"$work/data"
iv=000102030405060708090a0b0c0d0e0f

# shellcheck source=../support/checks.sh
source "$(dirname "$0")/../support/checks.sh"

check "library info" "tool --show-info | grep -q 'Manufacturer *SoftHSM'"
check "slots" "tool --list-slots | grep -q 'token label *: test'"
check "mechanisms" "tool --list-mechanisms | grep -q 'RSA-PKCS-OAEP'"
check "RSA key pair" "user --keypairgen --key-type rsa:2048 --label rsa --id 01"
check "EC key pair" "user --keypairgen --key-type EC:prime256v1 --label ec --id 03"
check "AES key" "user --keygen --key-type AES:32 --label aes --id 02"
check "objects" "user --list-objects >$work/objects \
  && grep -q 'Public Key Object; RSA 2048 bits' $work/objects \
  && grep -q 'Public Key Object; EC' $work/objects \
  && grep -q 'Secret Key Object; AES' $work/objects"
check "public key read" "tool --read-object --type pubkey --id 01 -o $work/pub.der"

for m in RSA-PKCS SHA256-RSA-PKCS; do
  check "sign $m" "user --sign -m $m --id 01 -i $work/data -o $work/sig.$m"
done
check "sign ECDSA" "user --sign -m ECDSA --id 03 -i $work/data -o $work/sig.ec"
if command -v openssl >/dev/null; then
  check "signature checks out with openssl" "openssl dgst -sha256 -verify $work/pub.der -keyform DER \
    -signature $work/sig.SHA256-RSA-PKCS $work/data"
fi

# The tool verifies an input under 1 KiB with C_Verify, which the legacy
# wire answers against a signature buffer it never fills: a good signature
# is called invalid. Longer inputs go through C_VerifyUpdate/C_VerifyFinal,
# which work either way.
verdict="Invalid signature" how="calls a good signature invalid"
if [ "$mode" = extended ]; then verdict="Signature is valid" how="checks a good signature"; fi
for m in RSA-PKCS SHA256-RSA-PKCS; do
  check "single-part verify $m $how" "user --verify -m $m --id 01 \
    -i $work/data --signature-file $work/sig.$m | grep -qx '$verdict'"
done
check "single-part verify ECDSA $how" "user --verify -m ECDSA --id 03 \
  -i $work/data --signature-file $work/sig.ec | grep -qx '$verdict'"
if [ "$mode" = extended ]; then
  check "single-part verify refuses another input's signature" "user --verify -m SHA256-RSA-PKCS \
    --id 01 -i $work/data --signature-file $work/sig.RSA-PKCS | grep -qx 'Invalid signature'"
fi
head -c 3000 /dev/urandom >"$work/long"
check "sign a long input" "user --sign -m SHA256-RSA-PKCS --id 01 -i $work/long -o $work/sig.long"
check "multi-part verify" "user --verify -m SHA256-RSA-PKCS --id 01 -i $work/long \
  --signature-file $work/sig.long | grep -qx 'Signature is valid'"
check "multi-part verify refuses another input's signature" "user --verify -m SHA256-RSA-PKCS --id 01 \
  -i $work/long --signature-file $work/sig.SHA256-RSA-PKCS | grep -qx 'Invalid signature'"

for n in 16 100 3000; do
  head -c $n "$work/long" >"$work/plain.$n"
  check "AES-CBC-PAD round trip of $n bytes" "user --encrypt -m AES-CBC-PAD --iv $iv --id 02 \
    -i $work/plain.$n -o $work/enc.$n && user --decrypt -m AES-CBC-PAD --iv $iv --id 02 \
    -i $work/enc.$n -o $work/dec.$n && cmp $work/plain.$n $work/dec.$n"
done
# The tool encrypts with secret keys only: the RSA side comes from openssl.
if command -v openssl >/dev/null; then
  check "decrypt RSA-PKCS" "openssl pkeyutl -encrypt -pubin -inkey $work/pub.der -keyform DER \
    -in $work/data -out $work/rsa && user --decrypt -m RSA-PKCS --id 01 -i $work/rsa -o $work/dec \
    && cmp $work/data $work/dec"
fi

check "hash SHA256" "[ \"\$(tool --hash -m SHA256 -i $work/data | od -An -tx1 | tr -d ' \n')\" \
  = \"\$(sha256sum <$work/data | cut -d' ' -f1)\" ]"
check "random" "[ \"\$(tool --generate-random 32 | wc -c)\" -eq 32 ]"
check "wrong PIN refused" "! tool --login --pin 9999 --list-objects && grep -q CKR_PIN_INCORRECT $work/stderr"
# One module serves every client: one that ends without C_Finalize (the
# tool aborting on a missing key) leaves the module initialized and logged
# in until some client finalizes it, unless the server resets it then.
if [ "$mode" = reset ]; then
  check "an aborted client's login goes with it" "! user --encrypt -m AES-CBC-PAD --iv $iv --id 7f \
    -i $work/data -o $work/none && user --list-objects >/dev/null"
else
  check "an aborted client's login outlives it" "! user --encrypt -m AES-CBC-PAD --iv $iv --id 7f \
    -i $work/data -o $work/none && ! user --list-objects \
    && grep -q CKR_USER_ALREADY_LOGGED_IN $work/stderr"
  check "the next client's C_Finalize ends it" "tool --list-slots >/dev/null && user --list-objects"
fi
# The PIN changes travel under names the legacy wire's server never routes.
# The tool leaves without C_Finalize after changing a PIN, so a client that
# finalizes ends its login before the new PIN is tried.
if [ "$mode" = extended ]; then
  check "change PIN" "tool --login --pin 1234 --change-pin --new-pin 4321 \
    && tool --list-slots >/dev/null && tool --login --pin 4321 --list-objects >/dev/null"
  check "init PIN as SO" "tool --list-slots >/dev/null \
    && tool --login --login-type so --so-pin 5678 --init-pin --new-pin 1234 \
    && tool --list-slots >/dev/null && user --list-objects | grep -q 'Secret Key Object; AES'"
fi
check "serving JVM still up" "kill -0 $server"

checks_done
