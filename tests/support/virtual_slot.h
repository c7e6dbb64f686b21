// The position of a virtual function in its class's vtable. Hosts built earlier call by that
// position.

#ifndef TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_
#define TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_

#include <cstddef>
#include <cstring>

namespace tarsio_test {

// Counted from 0; a virtual destructor takes two slots. Relies on the C++ ABI of GCC and Clang, in
// which a pointer to a virtual member function starts with the slot's offset in bytes plus 1.
template <typename Member>
ptrdiff_t VirtualSlot(Member member) {
  ptrdiff_t offset = 0;
  std::memcpy(&offset, &member, sizeof offset);
  return (offset - 1) / static_cast<ptrdiff_t>(sizeof(void*));
}

}  // namespace tarsio_test

#endif  // TARSIO_COMMON_TESTS_SUPPORT_VIRTUAL_SLOT_H_
