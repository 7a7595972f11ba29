// Asks the installed library for its PKCS#11 function list, as any Cryptoki
// caller does first, and prints the interface version it implements.
#include <qorpkcs11/pkcs11.h>

#include <cstdio>

int main() {
  CK_FUNCTION_LIST_PTR functions = nullptr;
  const CK_RV rv = C_GetFunctionList(&functions);
  if (rv != CKR_OK || functions == nullptr) {
    std::fprintf(stderr, "C_GetFunctionList failed: 0x%lx\n", static_cast<unsigned long>(rv));
    return 1;
  }
  // The table reaches the same entry point the linker resolved.
  CK_FUNCTION_LIST_PTR again = nullptr;
  if (functions->C_GetFunctionList(&again) != CKR_OK || again != functions) {
    std::fprintf(stderr, "the function list does not lead back to itself\n");
    return 1;
  }
  std::printf("libKorvanePkcs11Wrapper: Cryptoki %u.%u\n",
              static_cast<unsigned>(functions->version.major),
              static_cast<unsigned>(functions->version.minor));
  return 0;
}
