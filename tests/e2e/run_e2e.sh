#!/usr/bin/env bash
# Runs one end-to-end JUnit class in a client JVM over a fresh SoftHSM2 token
# in a temp dir; the class starts and stops the serving JVMs itself, which
# inherit the token's configuration from here.
# Usage: run_e2e.sh JAVA JUNIT_JAR CLASSPATH WRAPPER BRIDGE SOCKET CLASS
# Abstract socket names are machine-wide: this run's pid keeps builds that
# test at the same time apart.
set -uo pipefail
java=$1 junit=$2 classpath=$3 wrapper=$4 bridge=$5 socket=$6-$$ class=$7

work=$(mktemp -d /tmp/qor-e2e-XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir "$work/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' \
  "$work" >"$work/softhsm2.conf"
export SOFTHSM2_CONF=$work/softhsm2.conf
softhsm2-util --init-token --free --label test --pin 1234 --so-pin 5678 >/dev/null || exit 1

"$java" -Xcheck:jni \
  -Dcom.qor.smartcard.pkcs11.library="$wrapper" -Dqor.bridge="$bridge" -Dqor.socket="$socket" \
  -Dqor.classpath="$classpath" -Dqor.workdir="$work" \
  -jar "$junit" --class-path "$classpath" --select-class "$class" \
  --fail-if-no-tests --disable-banner --details=tree
