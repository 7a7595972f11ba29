#!/usr/bin/env bash
# The shipped library: SONAME is its bare name, and it exports the external
# interfaces only (nothing protobuf or the C++ library defines).
set -u
lib=$1
fail=0

soname=$(readelf -d "$lib" | sed -n 's/.*(SONAME).*\[\(.*\)\]/\1/p')
if [ "$soname" != "libKorvanePkcs11Wrapper.so" ]; then
  echo "SONAME is '$soname'"; fail=1
fi

allowed='^(C_[A-Za-z]+(_Server)?|mFunctionList|qorpkcs11_[A-Za-z_]+|setModuleName_Server|Generate_Operation_Result_Server|JNI_OnLoad|gJavaVM|moduleListHead|moduleListLock|Java_[A-Za-z0-9_]+|_ZN10IQorPkcs11.*|_ZT[ISV]10IQorPkcs11)$'
bad=$(nm -D --defined-only "$lib" | awk '{print $3}' | grep -v '^$' | grep -Ev "$allowed")
if [ -n "$bad" ]; then
  echo "unexpected exported symbols:"; echo "$bad" | head -20; fail=1
fi
# Each subsystem lists the symbols it must export.
here=$(dirname "$0")
for want in $(cat "$here"/expected_*.txt 2>/dev/null); do
  nm -D --defined-only "$lib" | awk '{print $3}' | grep -qx "$want" || { echo "missing export: $want"; fail=1; }
done
exit $fail
