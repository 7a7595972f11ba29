// Moving PKCS#11 values between the caller's memory and the wire messages;
// what both ends move alike (scalars, info structures) is the codec's.
// Every copy into the caller is bounded twice: by what the reply carries and
// by what the caller provided; lengths and counts are still reported as the
// reply states them, so a caller learns the size it needs.
#pragma once

#include <cstddef>
#include <string>

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"
#include "qorpkcs11/protocol/codec.h"

namespace qor::client {

using WireTemplate = google::protobuf::RepeatedPtrField<pkcs11::CK_ATTRIBUTE>;
using WireList = google::protobuf::RepeatedField<int32_t>;

using protocol::TemplateUse;
using protocol::take;
using protocol::ul;
using protocol::wire;

// A caller's byte range we must read: null is fine only when it is empty.
constexpr bool readable(const void* p, CK_ULONG len) { return p != nullptr || len == 0; }

// Exactly len bytes (binary-safe); the field is present even when empty.
void putBytes(std::string* field, const void* p, CK_ULONG len);
// The text at p: its bytes up to the first zero, never more than max bytes.
// Null sends an empty field.
void putText(std::string* field, const void* p, CK_ULONG max);
// Copies min(stated, src.size(), capacity) bytes into dst.
void copyBounded(void* dst, CK_ULONG capacity, const std::string& src, CK_ULONG stated);

bool readableMechanism(const CK_MECHANISM* m);
void putMechanism(pkcs11::CK_MECHANISM* out, const CK_MECHANISM& m);

// Templates go out and come back by what their call does with them.
bool readableTemplate(const CK_ATTRIBUTE* t, CK_ULONG count, TemplateUse use);
void putTemplate(WireTemplate* out, const CK_ATTRIBUTE* t, CK_ULONG count, TemplateUse use);
// `stated` is the reply's count.
void takeTemplate(const WireTemplate& in, uint32_t stated, CK_ATTRIBUTE* t, CK_ULONG count,
                  TemplateUse use);

// The caller's output buffer of a data-producing call. A null buffer is a
// size query: an empty field and a capacity of 0 go out, whatever *len held,
// so the serving side's module cannot do the work into a buffer the caller
// never sees; the length comes back, no bytes do, and CKR_BUFFER_TOO_SMALL
// means the query succeeded.
class CallerOutput {
 public:
  CallerOutput(CK_BYTE_PTR data, CK_ULONG_PTR len)
      : data_(data), len_(len), capacity_(data != nullptr && len != nullptr ? *len : 0) {}
  bool usable() const { return len_ != nullptr; }
  CK_ULONG capacity() const { return capacity_; }
  // The buffer into its request field, as deployed servers take it: its
  // text, which the module's output starts from. A null buffer also marks
  // the request as a length query for an extended server.
  void put(pkcs11::Operation& op, std::string* field) const;
  void take(const std::string& bytes, int32_t stated, CK_RV& rv) const;

 private:
  CK_BYTE_PTR data_;
  CK_ULONG_PTR len_;
  CK_ULONG capacity_;
};

}  // namespace qor::client
