// A large input travels from the caller's buffer to the socket: the request
// is serialized around it, with a stand-in of the same length in its field,
// and the stand-in's bytes are replaced by the caller's own on the way out.
// The bytes on the wire are those of the request serialized whole.
#pragma once

#include <sys/uio.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "qorpkcs11/proto/pkcs11command.pb.h"

namespace qor::client {

// From this size an input is worth not copying (two copies of it, and the
// wipe of one, against a few bytes serialized apart).
inline constexpr size_t kDetachFrom = size_t{64} << 10;

// Armed by an exchange for its calling thread, from before its request is
// built until it has been sent; declared after the request, so the
// request's field gets its own string back before the request goes.
class DetachedInput {
 public:
  DetachedInput();
  ~DetachedInput();
  DetachedInput(const DetachedInput&) = delete;
  DetachedInput& operator=(const DetachedInput&) = delete;

  // Called by putBytes: takes the caller's bytes instead of copying them,
  // if an exchange is armed on this thread, the input is large enough and
  // none was taken yet. The field then holds the stand-in.
  static bool take(std::string* field, const void* p, size_t len);

  size_t length() const;

  // Serializes `op` (whose cached sizes are set, `size` bytes in all) into
  // `buffer` (at least size - length() bytes) and fills `parts`: the bytes
  // before the input, the caller's input, the bytes after. Returns the
  // number of parts, 0 if the serialization did not come out at `size`.
  int serialize(const pkcs11::Operation& op, size_t size, uint8_t* buffer, iovec parts[3]) const;
};

}  // namespace qor::client
