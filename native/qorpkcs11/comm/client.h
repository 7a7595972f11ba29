// Client end of the command transport: one process-wide connection, opened
// with a server id and used for strictly serialised request/reply exchanges.
#pragma once

#include <sys/time.h>
#include <sys/uio.h>

#include <cstdint>

extern "C" {

// Connects to the server's socket and passes the version handshake.
// 0, or 1 (already connected), 3 (handshake failed), 6, 7.
int qorpkcs11_comm_client_init(const char* server_id);

// Sends one command payload and waits for its reply. On 0 with a reply,
// *out holds a malloc'ed buffer of *out_len bytes that the caller frees.
// A reply header with a nonzero status also yields 0 but leaves *out and
// *out_len untouched: callers preset them and treat null as failure.
int qorpkcs11_comm_client_execute_command(const uint8_t* data, int32_t len, uint8_t** out,
                                          uint32_t* out_len);

// Closes the connection. 0, or 2 when not connected.
int qorpkcs11_comm_client_deinit(void);

}  // extern "C"

namespace qor::comm {

// As qorpkcs11_comm_client_execute_command with the payload in up to
// kMaxParts buffers, sent in turn as one payload: a large input goes from
// the caller's buffer to the socket with the few bytes around it built
// apart. The payload's length is their sum, 1 to INT32_MAX.
inline constexpr int kMaxParts = 8;
int client_execute_parts(const iovec* parts, int count, uint8_t** out, uint32_t* out_len);

// Internal loops; 5 on bad arguments, 13 when the peer closed, 11 (send) or
// 10 (receive) on a socket error.
int client_send_data(int sock, const void* buf, int32_t len);
int client_recv_data(int sock, void* buf, int32_t len);

// Lets tests wait less than the shipped 30 s for a reply; applies to the
// next init. Not exported from the shared library.
void comm_set_receive_timeout_for_tests(timeval timeout);

}  // namespace qor::comm
