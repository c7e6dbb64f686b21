// The position of a virtual function in its class's vtable. Hosts built earlier call by that
// position.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_
#define TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_

#include <cstddef>
#include <cstring>

namespace tarsio_test {

// Both rely on the C++ ABI of GCC and Clang, in which a pointer to a virtual member function starts
// with the slot's offset in bytes plus 1, and others with an even address.

// Counted from 0; a virtual destructor takes two slots.
template <typename Member>
ptrdiff_t VirtualSlot(Member member) {
  ptrdiff_t offset = 0;
  std::memcpy(&offset, &member, sizeof offset);
  return (offset - 1) / static_cast<ptrdiff_t>(sizeof(void*));
}

template <typename Member>
bool IsVirtual(Member member) {
  ptrdiff_t start = 0;
  std::memcpy(&start, &member, sizeof start);
  return start % 2 != 0;
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_
