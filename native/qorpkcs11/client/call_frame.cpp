#include "qorpkcs11/client/call_frame.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "qorpkcs11/client/detached.h"
#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/comm/client.h"
#include "qorpkcs11/common/log.h"
#include "qorpkcs11/common/wipe.h"

namespace qor::client {
namespace {

using log::kClient;

struct FreeDeleter {
  void operator()(uint8_t* p) const { std::free(p); }
};

// The serialized request, in a buffer each calling thread keeps from call
// to call: a fresh buffer the size of a large payload costs a page fault per
// page on every call. However the call ends, the buffer is wiped, so no
// payload stays behind, and let go if the call needed more than calls
// usually do.
class RequestBuffer {
 public:
  explicit RequestBuffer(size_t size) : size_(size) {
    Kept& kept = tKept;
    if (size > kept.capacity) {
      kept.bytes.reset();  // before the new one, so the two never coexist
      kept.capacity = 0;
      kept.bytes.reset(new uint8_t[size]);
      kept.capacity = size;
    }
  }
  ~RequestBuffer() {
    Kept& kept = tKept;
    wipe(kept.bytes.get(), size_);
    if (kept.capacity > kKept) {
      kept.bytes.reset();
      kept.capacity = 0;
    }
  }
  RequestBuffer(const RequestBuffer&) = delete;
  RequestBuffer& operator=(const RequestBuffer&) = delete;

  uint8_t* get() const { return tKept.bytes.get(); }

 private:
  static constexpr size_t kKept = size_t{4} << 20;
  struct Kept {
    std::unique_ptr<uint8_t[]> bytes;
    size_t capacity = 0;
  };
  static thread_local Kept tKept;
  size_t size_;
};
thread_local RequestBuffer::Kept RequestBuffer::tKept;

CK_RV exchange(const Frame& frame, BuildFn build, PresentFn present, CopyFn copy) {
  if (const char* entry = frame.logsOwnName ? frame.name : frame.entry) QOR_LOGD(kClient, "%s", entry);

  pkcs11::Operation op;
  const DetachedInput detached;  // after op: gives op's field back first
  op.set_name(frame.name);
  build(op);
  markRequest(op);

  // Serialized once, straight into the buffer the transport sends; a large
  // input goes from the caller's buffer to the socket instead.
  const size_t size = op.ByteSizeLong();
  if (size > INT32_MAX) return kTransportFailed;  // more than a frame can carry
  RequestBuffer request(size - detached.length());
  iovec parts[3] = {{request.get(), size}, {}, {}};
  int count = 1;
  if (detached.length() == 0)
    op.SerializeWithCachedSizesToArray(request.get());
  else if ((count = detached.serialize(op, size, request.get(), parts)) == 0)
    return kTransportFailed;
  if (frame.sizeLine) QOR_LOGD(kClient, frame.sizeLine, static_cast<int>(size));
  if (frame.beforeSend) QOR_LOGD(kClient, "%s", frame.beforeSend);

  uint8_t* raw = nullptr;
  uint32_t rawLen = 0;
  const int rc = comm::client_execute_parts(parts, count, &raw, &rawLen);
  std::unique_ptr<uint8_t, FreeDeleter> replyBytes(raw);
  // A zero return without a buffer is the transport's "no reply" answer.
  if (rc != 0 || !replyBytes || rawLen > INT_MAX) return kTransportFailed;

  const char* name = frame.replyName ? frame.replyName : frame.name;
  if (frame.afterSend) QOR_LOGD(kClient, "%s", frame.afterSend);
  if (frame.success)
    QOR_LOGD(kClient, "%s", frame.success);
  else
    QOR_LOGD(kClient, "%s Success", name);
  QOR_LOGD(kClient, "%s response length = %d", name, static_cast<int>(rawLen));
  const auto* text = reinterpret_cast<const char*>(replyBytes.get());
  QOR_LOGD(kClient, "%s response = %.*s", name, static_cast<int>(strnlen(text, rawLen)), text);

  // A partial parse is used as far as it got: rv reads 0 when absent and
  // outputs come only from a response submessage that is present.
  pkcs11::OperationResult result;
  (void)result.ParsePartialFromArray(replyBytes.get(), static_cast<int>(rawLen));
  notePeer(result);
  CK_RV rv = static_cast<CK_RV>(result.rv());
  const bool hasResponse = present(result);
  if (frame.rvLine && (hasResponse || !frame.rvOnlyWithResponse))
    QOR_LOGD(kClient, frame.rvLine, rv);
  if (hasResponse) copy(result, rv);
  return rv;
}

}  // namespace

CK_RV run(const Frame& frame, BuildFn build, PresentFn present, CopyFn copy) noexcept {
  try {
    return exchange(frame, build, present, copy);
  } catch (const std::bad_alloc&) {
    return CKR_HOST_MEMORY;
  } catch (...) {
    return CKR_GENERAL_ERROR;
  }
}

}  // namespace qor::client
