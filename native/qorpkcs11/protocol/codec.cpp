#include "qorpkcs11/protocol/codec.h"

#include <algorithm>
#include <cstring>

namespace qor::protocol {
namespace {

// A text member as the serving side reads it: up to its first zero, never
// past the end of the structure that holds it.
template <typename Info, size_t N>
std::string text(const Info& info, const CK_UTF8CHAR (&member)[N]) {
  const char* start = reinterpret_cast<const char*>(member);
  const size_t room = sizeof(Info) - static_cast<size_t>(start - reinterpret_cast<const char*>(&info));
  return std::string(start, strnlen(start, room));
}

// CK_INFO and CK_SLOT_INFO on the client: shorter texts land with their
// terminator, a text of exactly the width lands whole, longer ones not at all.
template <size_t N>
void takeText(const std::string& text, CK_UTF8CHAR (&member)[N]) {
  if (text.size() > N) return;  // would not fit: the member keeps its bytes
  const size_t n = strnlen(text.data(), text.size());
  std::memcpy(member, text.data(), n);
  if (n < N) member[n] = 0;
}

// CK_TOKEN_INFO on the client: raw bytes, blank-padded to the width.
template <size_t N>
void takeBlock(const std::string& text, CK_UTF8CHAR (&member)[N]) {
  const size_t n = std::min(N, text.size());
  std::memcpy(member, text.data(), n);
  std::memset(member + n, ' ', N - n);
}

}  // namespace

void put(const CK_VERSION& from, pkcs11::CK_VERSION* to) {
  to->set_major(from.major);
  to->set_minor(from.minor);
}

void take(const pkcs11::CK_VERSION& from, CK_VERSION* to) {
  to->major = static_cast<CK_BYTE>(from.major());
  to->minor = static_cast<CK_BYTE>(from.minor());
}

void put(const CK_INFO& from, pkcs11::CK_INFO* to) {
  put(from.cryptokiVersion, to->mutable_cryptokiversion());
  put(from.libraryVersion, to->mutable_libraryversion());
  to->set_manufacturerid(text(from, from.manufacturerID));
  to->set_flags(wire(from.flags));
  to->set_librarydescription(text(from, from.libraryDescription));
}

void take(const pkcs11::CK_INFO& from, CK_INFO* to) {
  take(from.cryptokiversion(), &to->cryptokiVersion);
  takeText(from.manufacturerid(), to->manufacturerID);
  to->flags = ul(from.flags());
  takeText(from.librarydescription(), to->libraryDescription);
  take(from.libraryversion(), &to->libraryVersion);
}

void put(const CK_SLOT_INFO& from, pkcs11::CK_SLOT_INFO* to) {
  to->set_slotdescription(text(from, from.slotDescription));
  to->set_manufacturerid(text(from, from.manufacturerID));
  to->set_flags(wire(from.flags));
  put(from.hardwareVersion, to->mutable_hardwareversion());
  put(from.firmwareVersion, to->mutable_firmwareversion());
}

void take(const pkcs11::CK_SLOT_INFO& from, CK_SLOT_INFO* to) {
  takeText(from.slotdescription(), to->slotDescription);
  takeText(from.manufacturerid(), to->manufacturerID);
  to->flags = ul(from.flags());
  take(from.hardwareversion(), &to->hardwareVersion);
  take(from.firmwareversion(), &to->firmwareVersion);
}

// CK_TOKEN_INFO's counters, in the order of the structure.
#define QOR_TOKEN_COUNTERS(X)                                                                    \
  X(flags, flags) X(ulMaxSessionCount, ulmaxsessioncount) X(ulSessionCount, ulsessioncount)      \
  X(ulMaxRwSessionCount, ulmaxrwsessioncount) X(ulRwSessionCount, ulrwsessioncount)              \
  X(ulMaxPinLen, ulmaxpinlen) X(ulMinPinLen, ulminpinlen)                                        \
  X(ulTotalPublicMemory, ultotalpublicmemory) X(ulFreePublicMemory, ulfreepublicmemory)          \
  X(ulTotalPrivateMemory, ultotalprivatememory) X(ulFreePrivateMemory, ulfreeprivatememory)

void put(const CK_TOKEN_INFO& from, pkcs11::CK_TOKEN_INFO* to) {
  to->set_label(text(from, from.label));
  to->set_manufacturerid(text(from, from.manufacturerID));
  to->set_model(text(from, from.model));
  to->set_serialnumber(text(from, from.serialNumber));
#define QOR_PUT_COUNTER(member, field) to->set_##field(wire(from.member));
  QOR_TOKEN_COUNTERS(QOR_PUT_COUNTER)
#undef QOR_PUT_COUNTER
  put(from.hardwareVersion, to->mutable_hardwareversion());
  put(from.firmwareVersion, to->mutable_firmwareversion());
  to->set_utctime(text(from, from.utcTime));
}

void take(const pkcs11::CK_TOKEN_INFO& from, CK_TOKEN_INFO* to) {
  takeBlock(from.label(), to->label);
  takeBlock(from.manufacturerid(), to->manufacturerID);
  takeBlock(from.model(), to->model);
  takeBlock(from.serialnumber(), to->serialNumber);
#define QOR_TAKE_COUNTER(member, field) to->member = ul(from.field());
  QOR_TOKEN_COUNTERS(QOR_TAKE_COUNTER)
#undef QOR_TAKE_COUNTER
  take(from.hardwareversion(), &to->hardwareVersion);
  take(from.firmwareversion(), &to->firmwareVersion);
  takeBlock(from.utctime(), to->utcTime);
}

void put(const CK_MECHANISM_INFO& from, pkcs11::CK_MECHANISM_INFO* to) {
  to->set_ulminkeysize(wire(from.ulMinKeySize));
  to->set_ulmaxkeysize(wire(from.ulMaxKeySize));
  to->set_flags(wire(from.flags));
}

void take(const pkcs11::CK_MECHANISM_INFO& from, CK_MECHANISM_INFO* to) {
  to->ulMinKeySize = ul(from.ulminkeysize());
  to->ulMaxKeySize = ul(from.ulmaxkeysize());
  to->flags = ul(from.flags());
}

void put(const CK_SESSION_INFO& from, pkcs11::CK_SESSION_INFO* to) {
  to->set_slotid(wire(from.slotID));
  to->set_state(wire(from.state));
  to->set_flags(wire(from.flags));
  to->set_uldeviceerror(wire(from.ulDeviceError));
}

void take(const pkcs11::CK_SESSION_INFO& from, CK_SESSION_INFO* to) {
  to->slotID = ul(from.slotid());
  to->state = ul(from.state());
  to->flags = ul(from.flags());
  to->ulDeviceError = ul(from.uldeviceerror());
}

}  // namespace qor::protocol
