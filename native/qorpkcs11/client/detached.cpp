#include "qorpkcs11/client/detached.h"

#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream.h>

#include <algorithm>
#include <cstring>

namespace qor::client {
namespace {

// The calling thread's armed exchange, if any, and the input it took. The
// stand-in (zeros, never the caller's bytes) is kept from call to call, so
// a run of inputs of one size costs no allocation and no fill; while a
// request holds it, `standIn` holds the field's own string.
struct Slot {
  bool armed = false;
  std::string standIn;
  std::string* field = nullptr;
  const void* input = nullptr;
  size_t length = 0;
};
thread_local Slot tSlot;

// A larger stand-in is let go after its call, as the request buffer is.
constexpr size_t kKeptStandIn = size_t{4} << 20;

// Hands the serializer the buffer in blocks smaller than any input taken,
// so that it always passes the stand-in to WriteAliasedRaw, where the
// caller's bytes take its place; anything else it passes there is copied.
class Gather final : public google::protobuf::io::ZeroCopyOutputStream {
 public:
  static constexpr size_t kBlock = 4096;
  static_assert(kBlock * 2 < kDetachFrom, "the stand-in never fits a block");

  Gather(uint8_t* buffer, size_t capacity, const Slot& slot)
      : buffer_(buffer), capacity_(capacity), slot_(slot) {}

  bool Next(void** data, int* size) override {
    const size_t n = std::min(capacity_ - at_, kBlock);
    if (n == 0) return false;
    *data = buffer_ + at_;
    *size = static_cast<int>(n);
    at_ += n;
    return true;
  }
  void BackUp(int count) override { at_ -= static_cast<size_t>(count); }
  int64_t ByteCount() const override {
    return static_cast<int64_t>(at_ + (split_ != kNone ? slot_.length : 0));
  }
  bool AllowsAliasing() const override { return true; }
  bool WriteAliasedRaw(const void* data, int size) override {
    const auto n = static_cast<size_t>(size);
    if (data == slot_.field->data() && n == slot_.length && split_ == kNone) {
      split_ = at_;
      return true;
    }
    if (capacity_ - at_ < n) return false;
    std::memcpy(buffer_ + at_, data, n);
    at_ += n;
    return true;
  }

  size_t written() const { return at_; }
  size_t split() const { return split_; }
  static constexpr size_t kNone = ~size_t{0};

 private:
  uint8_t* buffer_;
  size_t capacity_;
  const Slot& slot_;
  size_t at_ = 0;
  size_t split_ = kNone;
};

}  // namespace

DetachedInput::DetachedInput() { tSlot.armed = true; }

DetachedInput::~DetachedInput() {
  Slot& slot = tSlot;
  if (slot.field != nullptr) slot.field->swap(slot.standIn);
  if (slot.standIn.capacity() > kKeptStandIn) std::string().swap(slot.standIn);
  slot.armed = false;
  slot.field = nullptr;
  slot.input = nullptr;
  slot.length = 0;
}

bool DetachedInput::take(std::string* field, const void* p, size_t len) {
  Slot& slot = tSlot;
  if (!slot.armed || slot.field != nullptr || p == nullptr || len < kDetachFrom) return false;
  slot.standIn.resize(len);
  field->swap(slot.standIn);
  slot.field = field;
  slot.input = p;
  slot.length = len;
  return true;
}

size_t DetachedInput::length() const { return tSlot.length; }

int DetachedInput::serialize(const pkcs11::Operation& op, size_t size, uint8_t* buffer,
                             iovec parts[3]) const {
  const Slot& slot = tSlot;
  Gather gather(buffer, size - slot.length, slot);
  {
    google::protobuf::io::CodedOutputStream out(&gather);
    out.EnableAliasing(true);
    op.SerializeWithCachedSizes(&out);
    out.Trim();
    if (out.HadError()) return 0;
  }
  if (gather.split() == Gather::kNone || gather.written() + slot.length != size) return 0;
  parts[0] = {buffer, gather.split()};
  parts[1] = {const_cast<void*>(slot.input), slot.length};
  parts[2] = {buffer + gather.split(), gather.written() - gather.split()};
  return 3;
}

}  // namespace qor::client
