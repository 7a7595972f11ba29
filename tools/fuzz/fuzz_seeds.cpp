// Writes the fuzzers' seed corpora and dictionaries, taken from real
// exchanges: every client proxy is called once over the real transport
// against the real processor serving the test module, whose answers are
// scripted to succeed with outputs, and the bytes that crossed the socket are
// recorded.
//
//   fuzz_seeds <output dir>
//     → <dir>/{frames,processor,replies,conversions}/*.bin, <dir>/*.dict
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "caller.h"
#include "fuzz_common.h"
#include "qorpkcs11/client/proxy.h"
#include "qorpkcs11/comm/frame.h"
#include "qorpkcs11/comm/server.h"
#include "qorpkcs11/server/server.h"
#include "seed_format.h"
#include "served_module.h"

namespace {

using namespace qor::fuzz;
using qor::test::ServedModule;
using qor::TestModule;
using Bytes = std::string;

struct Exchange {
  std::string wire;
  Bytes request;
  Bytes reply;
};

Bytes gRequest;
Bytes gReply;

int capture(const void* data, int32_t len, void** out, uint32_t* out_len) {
  gRequest.assign(static_cast<const char*>(data), static_cast<size_t>(len));
  Generate_Operation_Result_Server(data, len, out, out_len);
  gReply.assign(static_cast<const char*>(*out), *out_len);
  return 0;
}

// What the module is told to answer: success, and something in every output.
void script(const TestModule& module, const std::string& wire) {
  const std::string function = wire == "C_UnWrapKey" ? "C_UnwrapKey" : wire;
  Bytes pattern;
  for (int i = 0; i < 160; ++i) pattern.push_back(static_cast<char>('A' + i % 26));
  module.script(function.c_str(), CKR_OK, TestModule::Bytes(pattern.begin(), pattern.end()), 8, 2,
                {11, 12, 13, 14});
}

// A nested template asked for with room for one record, which the module
// fills as a conforming one does: a type and a length, no value pointer.
Exchange record_wrap_template(const TestModule& module, CK_FUNCTION_LIST& f) {
  CK_ATTRIBUTE nested = {CKA_VALUE, nullptr, 4};
  const auto* bytes = reinterpret_cast<const char*>(&nested);
  module.script("C_GetAttributeValue", CKR_OK, TestModule::Bytes(bytes, bytes + sizeof(nested)),
                sizeof(nested));
  CK_ATTRIBUTE room[1] = {};
  CK_ATTRIBUTE wrap = {CKA_WRAP_TEMPLATE, room, sizeof(room)};
  f.C_GetAttributeValue(2, 3, &wrap, 1);
  return {"wrap template", gRequest, gReply};
}

std::vector<Exchange> record_proxy_calls(const TestModule& module, CK_FUNCTION_LIST& f) {
  std::vector<Exchange> exchanges;
  for (const ProxyCall& call : proxyCalls()) {
    script(module, call.name);
    const Bytes shape = kDefaultShape;
    Input in(reinterpret_cast<const uint8_t*>(shape.data()), shape.size());
    Caller caller(in);
    gRequest.clear();
    gReply.clear();
    call.invoke(f, caller);
    exchanges.push_back({call.name, gRequest, gReply});
  }
  return exchanges;
}

// Mechanism parameters that travel in depth between extended ends: points,
// IVs and AAD beside the structure, key material coming back.
std::vector<Exchange> record_in_depth(const TestModule& module, CK_FUNCTION_LIST& f) {
  std::vector<Exchange> exchanges;
  auto derive = [&](const char* what, CK_MECHANISM m) {
    script(module, "C_DeriveKey");
    CK_OBJECT_HANDLE key = 0;
    f.C_DeriveKey(2, &m, 3, nullptr, 0, &key);
    exchanges.push_back({what, gRequest, gReply});
  };
  CK_BYTE point[65] = {4, 1, 2, 3}, random[32] = {7}, iv[12] = {9}, aad[5] = {'a'}, ivs[2][16];
  CK_ECDH1_DERIVE_PARAMS ecdh{CKD_NULL, 0, nullptr, sizeof point, point};
  derive("ecdh1", {CKM_ECDH1_DERIVE, &ecdh, sizeof ecdh});
  CK_SSL3_KEY_MAT_OUT out{0, 0, 0, 0, ivs[0], ivs[1]};
  CK_SSL3_KEY_MAT_PARAMS keyMat{64, 128, 128, CK_FALSE, {random, 32, random, 32}, &out};
  derive("tls_key_mat", {CKM_TLS_KEY_AND_MAC_DERIVE, &keyMat, sizeof keyMat});
  CK_AES_GCM_PARAMS gcm{iv, sizeof iv, 96, aad, sizeof aad, 128};
  CK_MECHANISM m{CKM_AES_GCM, &gcm, sizeof gcm};
  script(module, "C_EncryptInit");
  f.C_EncryptInit(2, &m, 3);
  exchanges.push_back({"gcm", gRequest, gReply});
  return exchanges;
}

struct Recorded {
  std::vector<Exchange> plain;     // one per proxy call, the legacy wire
  Exchange wrap;                   // the nested template, kept apart
  std::vector<Exchange> extended;  // the same calls with the extensions on, and more
};

Recorded record_every_call(const TestModule& module) {
  const std::string id = server_id("seeds");
  if (qorpkcs11_comm_server_init(id.c_str(), capture) != 0) std::abort();
  ::close(connect_to(id));
  if (qorpkcs11_client_init(id.c_str()) != 0) std::abort();
  CK_FUNCTION_LIST_PTR functions = nullptr;
  C_GetFunctionList(&functions);

  Recorded r;
  r.plain = record_proxy_calls(module, *functions);
  r.wrap = record_wrap_template(module, *functions);
  // The first extended call confirms the peer; the rest go out extended.
  qorpkcs11_client_set_extensions(1);
  CK_INFO info;
  functions->C_GetInfo(&info);
  if (!qorpkcs11_client_extended_peer()) std::abort();
  r.extended = record_proxy_calls(module, *functions);
  for (Exchange& e : record_in_depth(module, *functions)) r.extended.push_back(std::move(e));
  qorpkcs11_client_set_extensions(0);
  qorpkcs11_client_deinit();
  return r;
}

void write_file(const std::string& path, const Bytes& bytes) {
  std::ofstream(path, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

Bytes frame(uint32_t id, const Bytes& payload, int32_t declared = -1) {
  qor::comm::FrameHeader hdr{id, qor::comm::kTypeRequest, 0,
                             declared >= 0 ? declared : static_cast<int32_t>(payload.size())};
  return Bytes(reinterpret_cast<const char*>(&hdr), sizeof(hdr)) + payload;
}

Bytes version_request(int32_t word = 1) {
  return frame(qor::comm::kIdVersion, Bytes(reinterpret_cast<const char*>(&word), sizeof(word)));
}

void write_frames(const std::string& dir, const std::vector<Exchange>& exchanges) {
  const Bytes hello = version_request();
  Bytes session = hello;
  for (size_t i = 0; i < exchanges.size(); i += 9) session += frame(101, exchanges[i].request);
  const Bytes info = frame(101, exchanges[2].request);
  const std::vector<std::pair<const char*, Bytes>> seeds = {
      {"handshake", hello},
      {"session", session},
      {"no_reply_kept", hello + frame(101, "f") + info},
      {"no_reply_dropped", hello + frame(101, "d") + info},
      {"closed_code", hello + frame(101, "c") + info},
      {"send_error_code", hello + frame(101, "s") + info},
      {"empty_reply", hello + frame(101, "e") + info},
      {"garbage_then_handshake", Bytes("\x13\x37garbage", 9) + hello + info},
      {"wrong_version", version_request(2) + hello + info},
      {"version_len_5", frame(100, Bytes(5, '\1')) + hello},
      {"unknown_id", frame(102, "xyz") + hello + info},
      {"zero_length_command", frame(101, "", 0) + hello + info},
      {"response_type", Bytes(hello).replace(4, 1, "\x68", 1) + hello},
      {"header_then_stall", frame(101, "ab", 1000)},
  };
  for (const auto& [name, bytes] : seeds) write_file(dir + "/" + name + ".bin", bytes);
}

void write_processor(const std::string& dir, const std::vector<Exchange>& exchanges,
                     const std::vector<Exchange>& extended) {
  for (const Exchange& e : extended) write_file(dir + "/extended_" + e.wire + ".bin", processor_raw(e.request));
  const auto& names = wireNames();
  for (const Exchange& e : exchanges) {
    // The proxies spell two names differently; the processor's spellings
    // reach those handlers.
    std::string wire = e.wire == "C_InitPIN" ? "C_InitPin" : e.wire == "C_SetPIN" ? "C_SetPin" : e.wire;
    size_t index = 0;
    while (index < names.size() && names[index] != wire) ++index;
    write_file(dir + "/named_" + wire + ".bin", processor_named(index, without_name(e.request)));
    write_file(dir + "/raw_" + e.wire + ".bin", processor_raw(e.request));
  }
}

void write_replies(const std::string& dir, const std::vector<Exchange>& exchanges) {
  for (size_t i = 0; i < exchanges.size(); ++i)
    write_file(dir + "/" + exchanges[i].wire + ".bin",
               Bytes(1, static_cast<char>(i)) + kDefaultShape + exchanges[i].reply);
}

// Conversion seeds: the native, its arguments, then the replies in turn,
// each behind a 2-byte length (see fuzz_conversions.cpp).
void write_conversions(const std::string& dir, const std::vector<Exchange>& exchanges,
                       const Exchange& wrap) {
  auto reply = [&](const char* wire) {
    const Exchange* found = wrap.wire == wire ? &wrap : nullptr;
    for (const Exchange& e : exchanges)
      if (e.wire == wire) found = &e;
    if (found == nullptr) std::abort();
    const auto n = static_cast<uint16_t>(found->reply.size());
    return Bytes{static_cast<char>(n & 0xFF), static_cast<char>(n >> 8)} + found->reply;
  };
  const std::vector<std::pair<const char*, Bytes>> seeds = {
      // Two attributes of the default shape: CKA_VALUE, CKA_LABEL.
      {"attributes", Bytes("\x00\x02\x07\x02", 4) + reply("C_GetAttributeValue") + reply("C_GetAttributeValue")},
      {"template", Bytes("\x00\x01\x04", 3) + reply("wrap template") + reply("wrap template")},
      {"info", Bytes(1, 1) + reply("C_GetInfo")},
      {"slot_info", Bytes(1, 2) + reply("C_GetSlotInfo")},
      {"token_info", Bytes(1, 3) + reply("C_GetTokenInfo")},
      {"mechanism_info", Bytes(1, 4) + reply("C_GetMechanismInfo")},
      {"session_info", Bytes(1, 5) + reply("C_GetSessionInfo")},
      {"slot_list", Bytes(1, 6) + reply("C_GetSlotList") + reply("C_GetSlotList")},
      {"mechanism_list", Bytes(1, 7) + reply("C_GetMechanismList") + reply("C_GetMechanismList")},
      {"find", Bytes("\x08\x04", 2) + reply("C_FindObjects")},
      {"operation_state", Bytes(1, 9) + reply("C_GetOperationState") + reply("C_GetOperationState")},
  };
  for (const auto& [name, bytes] : seeds) write_file(dir + "/" + name + ".bin", bytes);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <output dir>\n", argv[0]);
    return 2;
  }
  discard_logs();
  const std::string out = argv[1];
  for (const char* sub : {"", "/frames", "/processor", "/replies", "/conversions"})
    ::mkdir((out + sub).c_str(), 0755);

  ServedModule served("@qorfuzz-seeds-module");
  const Recorded recorded = record_every_call(served.module());
  const std::vector<Exchange>& exchanges = recorded.plain;
  const Exchange& wrap = recorded.wrap;
  size_t answered = 0;
  for (const Exchange& e : exchanges) answered += !e.reply.empty();
  if (answered < exchanges.size() - 2) {  // only C_InitPIN and C_SetPIN go unanswered
    std::fprintf(stderr, "only %zu of %zu calls were answered\n", answered, exchanges.size());
    return 1;
  }
  write_frames(out + "/frames", exchanges);
  write_processor(out + "/processor", exchanges, recorded.extended);
  write_replies(out + "/replies", exchanges);
  write_conversions(out + "/conversions", exchanges, wrap);
  write_file(out + "/processor.dict", processor_dictionary());
  write_file(out + "/replies.dict", replies_dictionary());
  std::printf("fuzz seeds: %zu exchanges recorded in %s, %zu extended\n", exchanges.size(), out.c_str(),
              recorded.extended.size());
  return 0;
}
