// The extended protocol: what a client of this library may ask a server of
// this library for, on top of the wire deployed peers speak. Both ends read
// these bits; the fields that carry them are numbered from 1000 on.
#pragma once

#include <cstdint>

namespace qor::protocol {

// Operation.qor_extensions and OperationResult.qor_extensions: the request
// asks for, and the result confirms, the calls served as the caller meant
// them (signatures verified, PINs routed, session and slot carried, length
// queries and absent parameters passed on as null, inputs at their own
// length).
inline constexpr uint32_t kExtendedCalls = 1u;

// What each end keeps doing for deployed peers that an extended pair does
// not, one row each: X(difference, the end that keeps it). Each row says, in
// its comment, what deployed peers rely on. The end named asks
// keeps<Kept::k...>() where it does so: true unless the call is extended.
#define QOR_KEPT_DIFFERENCES(X)                                                       \
  /* PINs, labels, seeds and signatures go out cut at their first zero byte, */      \
  /* never past their length: deployed servers read them as text. */                  \
  X(TextInputs, kClient)                                                              \
  /* A caller's output buffer goes out as its text, which deployed servers */         \
  /* start the module's output from; a null one as an empty field. */                 \
  X(OutputBufferText, kClient)                                                        \
  /* C_GetSessionInfo goes without its handle: deployed servers answer for 0. */      \
  X(SessionInfoWithoutHandle, kClient)                                                \
  /* Names only a client sends (C_InitPIN, C_SetPIN) find no handler: deployed */     \
  /* servers route C_InitPin and C_SetPin, and deployed clients expect the code. */   \
  X(SentNamesNotRouted, kServer)                                                      \
  /* Multi-part and recover inputs reach the module in a buffer of the output's */    \
  /* length (the in-out table's sizing column says which). */                         \
  X(InputsSizedByOutput, kServer)                                                     \
  /* C_Verify checks the data against a zeroed buffer of the signature's length. */   \
  X(VerifyAgainstZeros, kServer)                                                      \
  /* C_WaitForSlotEvent answers without the slot; deployed clients read 0. */         \
  X(SlotEventNotAnswered, kServer)                                                    \
  /* An empty mechanism parameter reaches the module as a buffer, not as null. */     \
  X(EmptyParameterNotNull, kServer)

enum class End { kClient, kServer };

enum class Kept {
#define QOR_KEPT_NAME(difference, end) k##difference,
  QOR_KEPT_DIFFERENCES(QOR_KEPT_NAME)
#undef QOR_KEPT_NAME
};

constexpr End keptBy(Kept difference) {
  constexpr End ends[] = {
#define QOR_KEPT_END(difference, end) End::end,
      QOR_KEPT_DIFFERENCES(QOR_KEPT_END)
#undef QOR_KEPT_END
  };
  return ends[static_cast<int>(difference)];
}

}  // namespace qor::protocol
