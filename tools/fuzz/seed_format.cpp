#include "seed_format.h"

#include <cstdio>

#include "qorpkcs11/server/server.h"

namespace qor::fuzz {
namespace {

constexpr uint8_t kRaw = 0xFF;

std::string varint(uint64_t v) {
  std::string out;
  do {
    uint8_t b = v & 0x7F;
    v >>= 7;
    if (v) b |= 0x80;
    out.push_back(static_cast<char>(b));
  } while (v);
  return out;
}

std::string tag(int field, int wireType) { return varint(static_cast<uint64_t>(field) << 3 | wireType); }

std::string name_field(const std::string& name) { return tag(1, 2) + varint(name.size()) + name; }

// One dictionary entry per line, every byte escaped.
class Dictionary {
 public:
  void add(const std::string& bytes) {
    text_ += "\"";
    for (unsigned char c : bytes) {
      char hex[5];
      std::snprintf(hex, sizeof(hex), "\\x%02X", c);
      text_ += hex;
    }
    text_ += "\"\n";
  }
  // Tags of fields 1..n, as length-delimited and as varint fields.
  void tags(int n) {
    for (int field = 1; field <= n; ++field) {
      add(tag(field, 2));
      add(tag(field, 0));
    }
  }
  // int32 values that matter to lengths and counts: 0x7FFFFFFF, -1, 2^31, 256.
  void extremes() {
    for (int64_t v : {int64_t{0x7FFFFFFF}, int64_t{-1}, int64_t{INT32_MIN}, int64_t{256}})
      add(varint(static_cast<uint64_t>(v)));
  }
  const std::string& text() const { return text_; }

 private:
  std::string text_;
};

}  // namespace

const std::string kDefaultShape("\x08\x10\x00\x04\x02\x08\x08\x08\x08", 9);

const std::vector<std::string>& wireNames() {
  static const std::vector<std::string> names = {
#define QOR_NAME(function, sent, routed, answered) #routed,
      QOR_REMOTED_CALLS(QOR_NAME)
#undef QOR_NAME
  };
  return names;
}

std::string processor_operation(const uint8_t* data, size_t size) {
  if (size == 0) return {};
  const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const auto& names = wireNames();
  return data[0] < names.size() ? name_field(names[data[0]]) + rest : rest;
}

std::string processor_named(size_t nameIndex, const std::string& fields) {
  return std::string(1, static_cast<char>(nameIndex)) + fields;
}

std::string processor_raw(const std::string& operation) {
  return std::string(1, static_cast<char>(kRaw)) + operation;
}

std::string without_name(const std::string& operation) {
  // Proxies write the name first, and every name is shorter than 128 bytes.
  if (operation.size() < 2 || operation[0] != '\x0a') return operation;
  const size_t length = static_cast<uint8_t>(operation[1]);
  return operation.size() < 2 + length ? std::string() : operation.substr(2 + length);
}

std::string processor_dictionary() {
  Dictionary d;
  for (const std::string& name : wireNames()) {
    d.add(name);
    d.add(name_field(name));
  }
  for (const char* other : {"C_InitPIN", "C_SetPIN", "C_UnwrapKey", "C_GetFunctionList", ""})
    d.add(name_field(other));
  d.tags(66);  // the request submessages, and the fields inside them
  d.extremes();
  return d.text();
}

std::string replies_dictionary() {
  Dictionary d;
  d.tags(44);  // the response submessages, and the fields inside them
  d.extremes();
  // Attribute types as a CK_ATTRIBUTE message's first field: nested
  // templates, mechanism lists, dates and a vendor type change the value's form.
  for (uint32_t type : {0x40000211u, 0x40000212u, 0x40000600u, 0x80000001u, 0x110u, 0x3u, 0x1u, 0x0u})
    d.add(tag(1, 0) + varint(type));
  return d.text();
}

}  // namespace qor::fuzz
