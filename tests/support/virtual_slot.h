// Where a virtual operation stands in its class's table. Hosts that were compiled before call by
// that.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_
#define TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_

#include <cstddef>
#include <cstring>

namespace tarsio_test {

// Counted from 0; a destructor has the two slots that it stands at. By the C++ ABI of GCC and
// Clang, in which a pointer to a virtual member begins with its slot's offset in bytes plus 1.
template <typename Member>
ptrdiff_t VirtualSlot(Member member) {
  ptrdiff_t offset = 0;
  std::memcpy(&offset, &member, sizeof offset);
  return (offset - 1) / static_cast<ptrdiff_t>(sizeof(void*));
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_
