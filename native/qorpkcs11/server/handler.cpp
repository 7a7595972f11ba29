#include "qorpkcs11/server/handler.h"

#include <climits>
#include <cstdlib>

#include "qorpkcs11/protocol/extensions.h"
#include "qorpkcs11/server/extensions.h"

namespace qor::server {

void parse_request(const std::string& bytes) { parse_request(bytes.data(), bytes.size()); }

void parse_request(const void* bytes, size_t size) {
  const bool parsed = size <= INT_MAX && operation.ParseFromArray(size != 0 ? bytes : "",
                                                                  static_cast<int>(size));
  if (!parsed) {
    // Never served with the previous request's fields.
    if (size > INT_MAX) operation.Clear();
    QOR_LOGD(kTag, "request of %zu bytes did not parse completely", size);
  }
}

const std::string& already_parsed() {
  static const std::string marker;
  return marker;
}

CK_RV Call::refuse() const {
  QOR_LOGD(kTag, "%s: request declares more than it carries", name_);
  return CKR_ARGUMENTS_BAD;
}

CK_RV Call::out_of_memory() const {
  QOR_LOGD(kTag, "%s: no memory for the module's buffers", name_);
  return CKR_HOST_MEMORY;
}

std::string Call::conclude(CK_RV value, RvLine line) {
  result_.set_name(name_);
  result_.set_rv(static_cast<int32_t>(value));
  if (extended()) result_.set_qor_extensions(protocol::kExtendedCalls);
  if (line == RvLine::kReturnValue)
    QOR_LOGD(kTag, "return value = %u", value);
  else if (line == RvLine::kGenerateResult)
    QOR_LOGD(kTag, "Generate_Operation_Result %s rv = %u", name_, value);
  if (ReplySink::take(result_)) return {};
  std::string out;
  result_.SerializeToString(&out);
  return out;
}

namespace {
thread_local ReplySink* tSink = nullptr;
}  // namespace

ReplySink::ReplySink() { tSink = this; }

ReplySink::~ReplySink() {
  tSink = nullptr;
  std::free(bytes_);
}

void* ReplySink::release(uint32_t* size) {
  *size = size_;
  void* bytes = bytes_;
  bytes_ = nullptr;
  size_ = 0;
  return bytes;
}

bool ReplySink::take(const pkcs11::OperationResult& result) {
  ReplySink* sink = tSink;
  if (sink == nullptr || sink->taken_) return false;
  sink->taken_ = true;
  const size_t size = result.ByteSizeLong();
  // Out of memory, or more than a frame carries: the empty reply of a
  // request the server cannot serve.
  if (size > INT32_MAX) return true;
  auto* bytes = static_cast<uint8_t*>(std::malloc(size != 0 ? size : 1));
  if (bytes == nullptr) return true;
  result.SerializeWithCachedSizesToArray(bytes);
  sink->bytes_ = bytes;
  sink->size_ = static_cast<uint32_t>(size);
  return true;
}

}  // namespace qor::server
