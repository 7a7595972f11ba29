#include "qorpkcs11/server/handler.h"

namespace qor::server {

void parse_request(const std::string& bytes) {
  if (!operation.ParseFromString(bytes))
    QOR_LOGD(kTag, "request of %zu bytes did not parse completely", bytes.size());
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
  if (line == RvLine::kReturnValue)
    QOR_LOGD(kTag, "return value = %u", value);
  else if (line == RvLine::kGenerateResult)
    QOR_LOGD(kTag, "Generate_Operation_Result %s rv = %u", name_, value);
  std::string out;
  result_.SerializeToString(&out);
  return out;
}

}  // namespace qor::server
