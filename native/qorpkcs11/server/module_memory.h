// Turning request fields into what a module call takes: heap buffers,
// attribute templates and mechanisms, always bounded by what the request
// carries and never exposing stale heap bytes to the peer. What both ends
// move alike (scalars, info structures) is the codec's.
#pragma once

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "qorpkcs11/pkcs11.h"
#include "qorpkcs11/protocol/codec.h"
#include "qorpkcs11/protocol/parameters.h"
#include "qorpkcs11/proto/pkcs11command.pb.h"

namespace qor::server {

using Attributes = google::protobuf::RepeatedPtrField<pkcs11::CK_ATTRIBUTE>;

using protocol::beyond_any_frame;
using protocol::put;
using protocol::TemplateUse;
using protocol::ul;
using protocol::wire;

// Byte counts for "%.*s", so a log line never reads past a buffer.
inline int shown(size_t size) { return size > INT_MAX ? INT_MAX : static_cast<int>(size); }

// Buffer addresses are logged as numbers.
inline unsigned address(const void* p) {
  return static_cast<unsigned>(reinterpret_cast<uintptr_t>(p));
}

// Heap memory for a module call: zero-filled, so a module that writes less
// than it was given sends zeros, not old heap contents; never null, also for
// zero items; freed when it goes out of scope.
template <typename T>
class HeapArray {
 public:
  explicit HeapArray(CK_ULONG count)
      : items_(static_cast<T*>(std::calloc(count == 0 ? 1 : count, sizeof(T)))), count_(count) {}

  bool ok() const { return items_ != nullptr; }
  T* data() const { return items_.get(); }
  CK_ULONG size() const { return count_; }

 private:
  struct Free {
    void operator()(T* p) const { std::free(p); }
  };
  std::unique_ptr<T, Free> items_;
  CK_ULONG count_;
};

// Slot ids, mechanism types, object handles.
using Ulongs = HeapArray<CK_ULONG>;

class Buffer : public HeapArray<CK_BYTE> {
 public:
  using HeapArray::HeapArray;
  // Copies as much of `source` as fits, at most `limit` bytes; the rest
  // stays zero.
  void fill(const std::string& source, CK_ULONG limit = CK_UNAVAILABLE_INFORMATION);
  // The first `length` bytes, bounded by the allocation.
  std::string head(CK_ULONG length) const;
};

// The output of a call whose caller passed no buffer: a length, no bytes.
struct NoBytes {
  std::string head(CK_ULONG) const { return {}; }
};

// The first `length` bytes of a field the module reads as data. A field
// that holds them all is handed over in place: the parsed request outlives
// the module call and nothing else touches it meanwhile, so a copy would only
// add a pass over the payload. A shorter field (a PIN, seed or signature the
// peer sent as text, cut at its first zero byte) reaches the module as a
// fresh buffer of the stated length: the field's bytes, then zeros.
class Input {
 public:
  Input(const std::string& field, CK_ULONG length);
  // CKR_ARGUMENTS_BAD for a length beyond any frame, CKR_HOST_MEMORY when
  // the padded copy cannot be had, else CKR_OK.
  CK_RV status() const { return status_; }
  // Never null when the status is CKR_OK.
  CK_BYTE* data() const { return data_; }
  // The first `length` bytes as they are now, bounded by the declared length.
  std::string head(CK_ULONG length) const;

 private:
  std::unique_ptr<Buffer> padded_;
  CK_BYTE* data_ = nullptr;
  CK_ULONG size_ = 0;
  CK_RV status_ = CKR_OK;
};

// CK_ATTRIBUTE records rebuilt from the request's messages; owns the value
// buffers.
class Template {
 public:
  // CKR_ARGUMENTS_BAD when the count exceeds the messages or a value's
  // length is beyond any frame; CKR_HOST_MEMORY; else CKR_OK. A value shorter
  // than its length reaches the module padded with zeros.
  // `label` names the records in the per-attribute log lines.
  CK_RV build(const Attributes& messages, CK_ULONG count, TemplateUse use, const char* label);

  CK_ATTRIBUTE_PTR records() { return records_.data(); }
  CK_ULONG count() const { return static_cast<CK_ULONG>(records_.size()); }
  const CK_ATTRIBUTE& record(size_t i) const { return records_[i]; }
  const Buffer* value(size_t i) const { return values_[i].get(); }

  // The records as the module left them, by the attribute round-trip rules:
  // a value asked for comes back unless unavailable; a size query returns
  // the length as set.
  void answer(Attributes* out) const;
  // Every record with its value bytes and length.
  void echo(Attributes* out) const;
  // The per-record lines logged just before the module call.
  void log_records() const;

 private:
  std::vector<CK_ATTRIBUTE> records_;
  std::vector<std::unique_ptr<Buffer>> values_;
};

// A CK_MECHANISM with its own copy of the opaque parameter bytes.
class Mechanism {
 public:
  // CKR_ARGUMENTS_BAD when the parameter's length is beyond any frame; a
  // shorter parameter is padded with zeros. An extended request's empty
  // parameter reaches the module as a null pointer, as its caller passed it,
  // and a parameter sent in depth points at this side's copies of its
  // blocks (CKR_MECHANISM_PARAM_INVALID when they do not fit its layout).
  CK_RV build(const pkcs11::CK_MECHANISM& message);
  CK_MECHANISM_PTR get() { return &mechanism_; }
  // After the call: the blocks the module wrote, for a parameter sent in
  // depth; nothing otherwise.
  void answer(google::protobuf::RepeatedPtrField<std::string>* out) const;

 private:
  CK_RV build_members(const pkcs11::CK_MECHANISM& message);

  std::unique_ptr<Buffer> parameter_;
  CK_MECHANISM mechanism_{};
  const protocol::Layout* layout_ = nullptr;  // set for a parameter sent in depth
  std::vector<std::unique_ptr<Buffer>> blocks_;  // one per member, null when absent
};

}  // namespace qor::server
