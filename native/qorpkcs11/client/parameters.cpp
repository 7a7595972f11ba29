#include "qorpkcs11/client/parameters.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <vector>

#include "qorpkcs11/client/extensions.h"
#include "qorpkcs11/protocol/parameters.h"

namespace qor::client {
namespace {

using protocol::Flow;
using protocol::Layout;

// The caller's blocks, found through the layout: an address and a length
// per member, null for an absent one.
struct Blocks {
  std::vector<const void*> addresses;
  std::vector<CK_ULONG> lengths;
  uint32_t absent = 0;
  bool any = false;      // the structure points somewhere
  uint64_t carried = 0;  // bytes the request will carry
};

// Null unless the parameter is a whole structure of a known layout.
const Layout* layoutOf(const CK_MECHANISM& m) {
  const Layout* layout = protocol::parameterLayout(m.mechanism);
  return layout && m.pParameter && m.ulParameterLen == layout->size ? layout : nullptr;
}

Blocks walk(const Layout& layout, const void* structure) {
  Blocks b;
  b.addresses.resize(layout.count);
  b.lengths.resize(layout.count);
  for (size_t i = 0; i < layout.count; ++i) {
    const protocol::Member& m = layout.members[i];
    const void* holder = m.within < 0 ? structure : b.addresses[m.within];
    const void* p = holder ? protocol::pointerAt(holder, m.pointer) : nullptr;
    if (!p) {
      b.absent |= 1u << i;
      continue;
    }
    b.any = true;
    b.addresses[i] = p;
    b.lengths[i] = protocol::memberLength(layout, i, structure, b.addresses.data(), b.lengths.data());
    if (m.flow != Flow::kOut) b.carried += b.lengths[i];
  }
  return b;
}

}  // namespace

CK_RV sendableParameter(const CK_MECHANISM& m) {
  if (!extensionsOn() || !m.pParameter || m.ulParameterLen == 0) return CKR_OK;
  if (protocol::untranslatableParameter(m.mechanism)) return CKR_MECHANISM_PARAM_INVALID;
  const Layout* layout = layoutOf(m);
  if (!layout) return CKR_OK;
  const Blocks b = walk(*layout, m.pParameter);
  if (!b.any) return CKR_OK;  // no address in it: its bytes say it all
  if (!extendedPeer() || b.carried > INT32_MAX) return CKR_MECHANISM_PARAM_INVALID;
  return CKR_OK;
}

bool putParameterInDepth(pkcs11::CK_MECHANISM* out, const CK_MECHANISM& m) {
  const Layout* layout = extendedPeer() ? layoutOf(m) : nullptr;
  if (!layout) return false;
  const Blocks b = walk(*layout, m.pParameter);
  std::string* structure = out->mutable_pparameter();
  structure->assign(static_cast<const char*>(m.pParameter), m.ulParameterLen);
  for (size_t i = 0; i < layout->count; ++i) {
    const protocol::Member& member = layout->members[i];
    if (member.within < 0) protocol::setPointerAt(structure->data(), member.pointer, nullptr);
    std::string* block = out->add_qor_members();
    if (b.addresses[i] && member.flow != Flow::kOut)
      block->assign(static_cast<const char*>(b.addresses[i]), b.lengths[i]);
  }
  out->set_qor_absent_members(b.absent);
  return true;
}

void takeParameterOutputs(const CK_MECHANISM& m, const google::protobuf::RepeatedPtrField<std::string>& blocks) {
  const Layout* layout = layoutOf(m);
  if (!layout || blocks.size() != layout->count) return;
  const Blocks b = walk(*layout, m.pParameter);
  for (size_t i = 0; i < layout->count; ++i) {
    if (layout->members[i].flow == Flow::kIn || !b.addresses[i]) continue;
    const std::string& block = blocks[static_cast<int>(i)];
    std::memcpy(const_cast<void*>(b.addresses[i]), block.data(), std::min<size_t>(block.size(), b.lengths[i]));
  }
  // A returned block holds no addresses: the caller's own go back in.
  for (size_t i = 0; i < layout->count; ++i) {
    const protocol::Member& member = layout->members[i];
    if (member.within >= 0 && b.addresses[member.within] && b.lengths[member.within] >= member.pointer + sizeof(void*))
      protocol::setPointerAt(const_cast<void*>(b.addresses[member.within]), member.pointer, b.addresses[i]);
  }
}

}  // namespace qor::client
