// A failed allocation by new throws std::bad_alloc, as it does in
// production; AddressSanitizer's own operator new would end the process
// instead, and the paths that handle the failure would never run. Heap
// checking is unchanged: these go through the sanitizer's malloc. (Memory
// that libraries obtain from the sanitizer's new may come back here, so the
// fuzzers turn its new/free pairing check off.)
#include <cstdlib>
#include <new>

void* operator new(std::size_t size) {
  if (void* p = std::malloc(size != 0 ? size : 1)) return p;
  throw std::bad_alloc();
}
void* operator new[](std::size_t size) { return operator new(size); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
