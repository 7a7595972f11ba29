// Call recording and scripting: every entry point turns its arguments into
// Args, which give both the call's text and the places a script may write to.
#ifndef QOR_TESTMODULE_RECORD_H
#define QOR_TESTMODULE_RECORD_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qorpkcs11/pkcs11.h"

namespace qor::tm {

using Bytes = std::vector<uint8_t>;

// One argument as the entry point received it; the kind follows its type.
struct Arg {
  enum Kind { Ulong, Buffer, UlongPtr, Template, Mechanism, Pointer, Struct };
  Kind kind;
  CK_ULONG value = 0;
  const void* ptr = nullptr;
  size_t size = 0;  // Struct: sizeof the structure
};

inline Arg toArg(CK_ULONG v) { return {Arg::Ulong, v}; }
inline Arg toArg(CK_BYTE v) { return {Arg::Ulong, v}; }
inline Arg toArg(CK_BYTE_PTR p) { return {Arg::Buffer, 0, p}; }
inline Arg toArg(CK_ULONG_PTR p) { return {Arg::UlongPtr, 0, p}; }
inline Arg toArg(CK_ATTRIBUTE_PTR p) { return {Arg::Template, 0, p}; }
inline Arg toArg(CK_MECHANISM_PTR p) { return {Arg::Mechanism, 0, p}; }
inline Arg toArg(CK_VOID_PTR p) { return {Arg::Pointer, 0, p}; }
inline Arg toArg(CK_FUNCTION_LIST_PTR_PTR p) { return {Arg::Pointer, 0, p}; }
inline Arg toArg(CK_NOTIFY f) { return {Arg::Pointer, 0, reinterpret_cast<const void*>(f)}; }
template <class S>
Arg structArg(S* p) {
  return {Arg::Struct, 0, p, sizeof(S)};
}
inline Arg toArg(CK_INFO_PTR p) { return structArg(p); }
inline Arg toArg(CK_SLOT_INFO_PTR p) { return structArg(p); }
inline Arg toArg(CK_TOKEN_INFO_PTR p) { return structArg(p); }
inline Arg toArg(CK_SESSION_INFO_PTR p) { return structArg(p); }
inline Arg toArg(CK_MECHANISM_INFO_PTR p) { return structArg(p); }

template <class... T>
std::vector<Arg> makeArgs(T... a) {
  return {toArg(a)...};
}

// Parameter names from the stringified argument list "(hSession, pData)".
struct ArgNames {
  explicit ArgNames(const char* list);
  std::vector<std::string> names;
};

// The queued answer of one call (see testmodule_control.h).
struct Script {
  CK_RV rv = CKR_OK;
  std::optional<Bytes> output;
  int64_t len = -1;
  int64_t count = -1;
  std::vector<CK_ULONG> values;
};

// Where a scripted answer may write, with the capacity the caller declared.
struct Target {
  enum Kind { Output, Length, Count, Values, Attributes };
  Kind kind;
  void* ptr;
  size_t cap;
};

// One call in flight: records it on construction, takes any queued script.
class Call {
 public:
  Call(const char* function, const ArgNames& names, const std::vector<Arg>& args);
  bool scripted() const { return script_.has_value(); }
  CK_RV answerFromScript() const;
  void finish(CK_RV rv) const;

 private:
  uint64_t id_ = 0;
  std::optional<Script> script_;
  std::vector<Target> targets_;
};

// Control side; the caller holds the module mutex.
void resetLog();
void clearCalls();
bool isFunctionName(const std::string& name);
void queueScript(const std::string& name, Script script);
void setRecording(bool on);
int callCount();
// nullptr when out of range.
const std::string* callText(int index);
const std::string* callName(int index);
const std::string* callArg(int index, const std::string& arg);
int64_t callRv(int index);
int lastCall(const std::string& name);

// Text forms shared with the mechanism parameter decoder. Caller memory is
// read with peek, so a bad pointer shows as "<unreadable>".
std::string numberText(CK_ULONG v, bool hex);
std::string bytesText(const void* p, size_t n);  // [hex] or null
std::string pointerText(const void* p);           // nonnull or null
std::string mechanismText(const CK_MECHANISM* m);

// Reads or writes memory that a caller reached through a parameter structure;
// false instead of a fault when the address is not mapped.
bool peek(const void* from, void* to, size_t n);
bool poke(void* to, const void* from, size_t n);

}  // namespace qor::tm

#endif  // QOR_TESTMODULE_RECORD_H
