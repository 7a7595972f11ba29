#include "front.h"

extern "C" __attribute__((visibility("default"))) unsigned long C_GetFunctionList(
    host::CK_FUNCTION_LIST** ppFunctionList) {
  return qor::front::getFunctionList(ppFunctionList);
}
