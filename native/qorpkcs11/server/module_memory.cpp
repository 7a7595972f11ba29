#include "qorpkcs11/server/module_memory.h"

#include <algorithm>
#include <cstring>

#include "qorpkcs11/server/extensions.h"
#include "qorpkcs11/server/handler.h"

namespace qor::server {

void Buffer::fill(const std::string& source, CK_ULONG limit) {
  const size_t count = std::min<size_t>({source.size(), size(), limit});
  if (ok() && count != 0) std::memcpy(data(), source.data(), count);
}

std::string Buffer::head(CK_ULONG length) const {
  if (!ok()) return {};
  return std::string(reinterpret_cast<const char*>(data()), std::min(length, size()));
}

Input::Input(const std::string& field, CK_ULONG length) : size_(length) {
  if (beyond_any_frame(length)) {
    status_ = CKR_ARGUMENTS_BAD;
  } else if (length <= field.size()) {
    // The module's parameter is not const; what it might write lands in the
    // request's own copy of the bytes, which nobody reads afterwards.
    data_ = reinterpret_cast<CK_BYTE*>(const_cast<char*>(field.data()));
  } else {
    padded_ = std::make_unique<Buffer>(length);
    if (padded_->ok()) {
      padded_->fill(field);
      data_ = padded_->data();
    } else {
      status_ = CKR_HOST_MEMORY;
    }
  }
  if (data_ == nullptr) size_ = 0;
}

std::string Input::head(CK_ULONG length) const {
  if (data_ == nullptr) return {};
  return std::string(reinterpret_cast<const char*>(data_), std::min(length, size_));
}

namespace {

bool fits(const Attributes& messages, CK_ULONG count) {
  if (count > static_cast<CK_ULONG>(messages.size())) return false;
  for (CK_ULONG i = 0; i < count; ++i)
    if (beyond_any_frame(messages.Get(static_cast<int>(i)).ulvaluelen())) return false;
  return true;
}

// A nested template (wrap, unwrap or derive) travels as the peer's own
// CK_ATTRIBUTE records, whose value pointers point into the peer's memory.
// The module must never follow them: each nested record reaches it with its
// type and length and no value, as in a length query.
constexpr CK_ATTRIBUTE_TYPE kDeriveTemplate = CKF_ARRAY_ATTRIBUTE | 0x00000213u;

void drop_peer_pointers(Buffer& value, CK_ATTRIBUTE_TYPE type) {
  if (type != CKA_WRAP_TEMPLATE && type != CKA_UNWRAP_TEMPLATE && type != kDeriveTemplate) return;
  auto* nested = reinterpret_cast<CK_ATTRIBUTE*>(value.data());
  for (CK_ULONG k = 0; k < value.size() / sizeof(CK_ATTRIBUTE); ++k) nested[k].pValue = nullptr;
}

}  // namespace

CK_RV Template::build(const Attributes& messages, CK_ULONG count, TemplateUse use, const char* label) {
  const bool search = use == TemplateUse::kSearch;  // every record gets a buffer
  if (!fits(messages, count)) return CKR_ARGUMENTS_BAD;
  // Never a null array, also for no attributes: some modules refuse one.
  records_.reserve(count == 0 ? 1 : count);
  records_.assign(count, CK_ATTRIBUTE{});
  values_.clear();
  values_.resize(count);
  for (CK_ULONG i = 0; i < count; ++i) {
    const pkcs11::CK_ATTRIBUTE& m = messages.Get(static_cast<int>(i));
    CK_ATTRIBUTE& record = records_[i];
    QOR_LOGD(kTag, "Inside for");
    if (!search)
      QOR_LOGD(kTag, "pvalue %s data = %.*s", label, shown(m.pvalue().size()), m.pvalue().data());
    record.type = m.type();
    QOR_LOGD(kTag, "attr_type set");
    if (search || m.has_pvalue()) {
      values_[i] = std::make_unique<Buffer>(m.ulvaluelen());
      if (!values_[i]->ok()) return CKR_HOST_MEMORY;
      values_[i]->fill(m.pvalue());
      drop_peer_pointers(*values_[i], record.type);
      record.pValue = values_[i]->data();
      if (search) {
        QOR_LOGD(kTag, "attr_pvalue set = %.*s", shown(m.pvalue().size()), m.pvalue().data());
      } else {
        QOR_LOGD(kTag, "Inside if not NULL pdata");
        QOR_LOGD(kTag, "length = %u", m.ulvaluelen());
      }
    }
    record.ulValueLen = m.ulvaluelen();
    QOR_LOGD(kTag, "attr_ulvaluelen set");
  }
  return CKR_OK;
}

void Template::log_records() const {
  QOR_LOGD(kTag, "Generate_Operation_Result size of attr = %d",
           static_cast<int>(sizeof(CK_ATTRIBUTE)));
  for (size_t i = 0; i < records_.size(); ++i) {
    const CK_ATTRIBUTE record = records_[i];
    const Buffer* value = values_[i].get();
    QOR_LOGD(kTag, "attr[i].type = %u", record.type);
    if (value != nullptr)
      QOR_LOGD(kTag, "attr_pvalue  = %.*s", shown(value->size()), value->data());
    else
      QOR_LOGD(kTag, "attr_pvalue  = %s", "(null)");
    QOR_LOGD(kTag, "attr_ulvaluelen = %u", record.ulValueLen);
  }
}

void Template::answer(Attributes* out) const {
  for (size_t i = 0; i < records_.size(); ++i) {
    const CK_ATTRIBUTE record = records_[i];
    pkcs11::CK_ATTRIBUTE* m = out->Add();
    m->set_type(record.type);
    QOR_LOGD(kTag, "type set inside for = %u", record.type);
    QOR_LOGD(kTag, "ulvaluelen set inside for = %u", record.ulValueLen);
    if (record.pValue != nullptr) {
      QOR_LOGD(kTag, "Inside response of if not null");
      QOR_LOGD(kTag, "ulvaluelen converted = %d", static_cast<int>(record.ulValueLen));
      if (record.ulValueLen != CK_UNAVAILABLE_INFORMATION) {
        m->set_pvalue(values_[i]->head(record.ulValueLen));
        m->set_ulvaluelen(record.ulValueLen);
      } else {
        // Deployed clients read an unavailable value asked for with a
        // buffer as absent with length 0, not as -1.
        QOR_LOGD(kTag, "Inside ulvaluelen is -1");
        m->clear_pvalue();
      }
    } else {
      m->set_ulvaluelen(record.ulValueLen);
    }
    QOR_LOGD(kTag, "ulvaluelen set inside for = %u", record.ulValueLen);
  }
}

void Template::echo(Attributes* out) const {
  for (size_t i = 0; i < records_.size(); ++i) {
    const CK_ATTRIBUTE record = records_[i];
    pkcs11::CK_ATTRIBUTE* m = out->Add();
    m->set_type(record.type);
    if (values_[i] != nullptr) m->set_pvalue(values_[i]->head(record.ulValueLen));
    m->set_ulvaluelen(record.ulValueLen);
  }
}

CK_RV Mechanism::build(const pkcs11::CK_MECHANISM& message) {
  const CK_ULONG length = ul(message.ulparameterlen());
  if (beyond_any_frame(length)) return CKR_ARGUMENTS_BAD;
  parameter_ = std::make_unique<Buffer>(length);
  if (!parameter_->ok()) return CKR_HOST_MEMORY;
  parameter_->fill(message.pparameter());
  mechanism_.mechanism = ul(message.mechanism());
  mechanism_.pParameter =
      length == 0 && !keeps<Kept::kEmptyParameterNotNull>() ? nullptr : parameter_->data();
  mechanism_.ulParameterLen = length;
  return extended() && message.qor_members_size() != 0 ? build_members(message) : CKR_OK;
}

// Every block is bounded by what the request carries: an input must come
// whole. The outputs' lengths are the peer's word alone (IV bits, a PRF's
// capacity), real ones are a few dozen bytes, so they get a modest cap.
constexpr uint64_t kParameterOutputs = 64 * 1024;

CK_RV Mechanism::build_members(const pkcs11::CK_MECHANISM& message) {
  const protocol::Layout* layout = protocol::parameterLayout(mechanism_.mechanism);
  if (!layout || mechanism_.ulParameterLen != layout->size ||
      message.qor_members_size() != layout->count)
    return CKR_MECHANISM_PARAM_INVALID;
  std::vector<const void*> addresses(layout->count);
  std::vector<CK_ULONG> lengths(layout->count);
  uint64_t written = 0;
  blocks_.resize(layout->count);
  for (size_t i = 0; i < layout->count; ++i) {
    const protocol::Member& m = layout->members[i];
    void* holder = m.within < 0 ? parameter_->data() : const_cast<void*>(addresses[m.within]);
    if (!holder) continue;  // its holder is absent, so is it
    const bool absent = i < 32 && (message.qor_absent_members() >> i & 1u);
    const CK_ULONG length =
        absent ? 0 : protocol::memberLength(*layout, i, parameter_->data(), addresses.data(), lengths.data());
    const std::string& bytes = message.qor_members(static_cast<int>(i));
    if (m.flow != protocol::Flow::kOut && !absent && bytes.size() != length)
      return CKR_MECHANISM_PARAM_INVALID;
    if (m.flow != protocol::Flow::kIn) written += length;
    if (beyond_any_frame(length) || written > kParameterOutputs) return CKR_MECHANISM_PARAM_INVALID;
    if (!absent) {
      blocks_[i] = std::make_unique<Buffer>(length);
      if (!blocks_[i]->ok()) return CKR_HOST_MEMORY;
      if (m.flow != protocol::Flow::kOut) blocks_[i]->fill(bytes);
      addresses[i] = blocks_[i]->data();
      lengths[i] = length;
    }
    protocol::setPointerAt(holder, m.pointer, addresses[i]);
  }
  layout_ = layout;
  return CKR_OK;
}

void Mechanism::answer(google::protobuf::RepeatedPtrField<std::string>* out) const {
  if (!layout_) return;
  const int base = out->size();
  for (size_t i = 0; i < layout_->count; ++i) {
    std::string* block = out->Add();
    if (layout_->members[i].flow == protocol::Flow::kIn || !blocks_[i]) continue;
    *block = blocks_[i]->head(blocks_[i]->size());
  }
  // This side's addresses stay here: pointers inside a returned block are
  // zeroed, the caller keeps its own.
  for (size_t i = 0; i < layout_->count; ++i) {
    const protocol::Member& m = layout_->members[i];
    if (m.within < 0) continue;
    std::string& holder = (*out)[base + m.within];
    if (holder.size() >= m.pointer + sizeof(void*)) protocol::setPointerAt(holder.data(), m.pointer, nullptr);
  }
}

}  // namespace qor::server
