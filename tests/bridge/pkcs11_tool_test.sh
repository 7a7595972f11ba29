#!/usr/bin/env bash
# OpenSC's pkcs11-tool, a standard consumer of the platform's ABI, drives a
# SoftHSM2 token through libqorfront.so in front of libqorbridge.so: both
# translations end to end, each check a command a user would type.
# Usage: pkcs11_tool_test.sh FRONT BRIDGE [SANITIZER-RUNTIME]
# (the runtime is preloaded into pkcs11-tool when the modules are built
# with AddressSanitizer)
set -uo pipefail
front=$1
bridge=$2
preload=${3:-}

work=$(mktemp -d /tmp/qorfront-tool-XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir "$work/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' \
  "$work" >"$work/softhsm2.conf"
export SOFTHSM2_CONF=$work/softhsm2.conf QOR_WRAPPER_LIBRARY=$bridge
softhsm2-util --init-token --free --label test --pin 1234 --so-pin 5678 >/dev/null || exit 1

tool() { LD_PRELOAD=$preload pkcs11-tool --module "$front" "$@" 2>"$work/stderr"; }
user() { tool --login --pin 1234 "$@"; }
printf 'hello, translated world' >"$work/data"
iv=000102030405060708090a0b0c0d0e0f

# shellcheck source=../support/checks.sh
source "$(dirname "$0")/../support/checks.sh"

check "library info" "tool --show-info | grep -q 'Manufacturer *SoftHSM'"
check "slots" "tool --list-slots | grep -q 'token label *: test'"
check "mechanisms" "tool --list-mechanisms | grep -q 'RSA-PKCS-OAEP'"
check "RSA key pair" "user --keypairgen --key-type rsa:2048 --label rsa --id 01"
check "EC key pair" "user --keypairgen --key-type EC:prime256v1 --label ec --id 03"
check "AES key" "user --keygen --key-type AES:32 --label aes --id 02"
check "objects" "user --list-objects | grep -q 'Public Key Object; RSA 2048 bits'"
check "public key read" "tool --read-object --type pubkey --id 01 -o $work/pub.der"

for m in SHA256-RSA-PKCS SHA256-RSA-PKCS-PSS; do
  check "sign $m" "user --sign -m $m --id 01 -i $work/data -o $work/sig.$m"
  check "verify $m" "user --verify -m $m --id 01 -i $work/data --signature-file $work/sig.$m \
    | grep -q 'Signature is valid'"
done
check "sign ECDSA" "user --sign -m ECDSA --id 03 -i $work/data -o $work/sig.ec"
check "verify ECDSA" "user --verify -m ECDSA --id 03 -i $work/data --signature-file $work/sig.ec \
  | grep -q 'Signature is valid'"

check "encrypt AES-CBC-PAD" "user --encrypt -m AES-CBC-PAD --iv $iv --id 02 -i $work/data -o $work/enc"
check "decrypt AES-CBC-PAD" "user --decrypt -m AES-CBC-PAD --iv $iv --id 02 -i $work/enc -o $work/dec \
  && cmp $work/data $work/dec"

# An independent RSA implementation on the other side, where there is one.
if command -v openssl >/dev/null; then
  check "signature checks out with openssl" "openssl dgst -sha256 -verify $work/pub.der -keyform DER \
    -signature $work/sig.SHA256-RSA-PKCS $work/data"
  check "decrypt RSA-PKCS" "openssl pkeyutl -encrypt -pubin -inkey $work/pub.der -keyform DER \
    -in $work/data -out $work/rsa && user --decrypt -m RSA-PKCS --id 01 -i $work/rsa -o $work/dec \
    && cmp $work/data $work/dec"
  check "decrypt RSA-PKCS-OAEP" "openssl pkeyutl -encrypt -pubin -inkey $work/pub.der -keyform DER \
    -pkeyopt rsa_padding_mode:oaep -in $work/data -out $work/oaep \
    && user --decrypt -m RSA-PKCS-OAEP --hash-algorithm SHA-1 --mgf MGF1-SHA1 --id 01 \
       -i $work/oaep -o $work/dec && cmp $work/data $work/dec"
fi

check "hash SHA256" "[ \"\$(tool --hash -m SHA256 -i $work/data | od -An -tx1 | tr -d ' \n')\" \
  = \"\$(sha256sum <$work/data | cut -d' ' -f1)\" ]"
check "random" "[ \"\$(tool --generate-random 32 | wc -c)\" -eq 32 ]"
check "wrong PIN refused" "! tool --login --pin 9999 --list-objects && grep -q CKR_PIN_INCORRECT $work/stderr"

checks_done
