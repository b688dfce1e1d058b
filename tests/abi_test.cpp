// What a compiled client relies on and the description of the libraries' binary interface cannot show.
#include <gtest/gtest.h>
#include <yusb.h>

#include <cstdint>
#include <cstring>

namespace {

// The place of a virtual function in its class's table, from a pointer to member as the Itanium C++ ABI has
// it.
template <typename Pointer>
std::uintptr_t slot_of(Pointer function) {
  std::uintptr_t words[2];
  static_assert(sizeof words == sizeof function, "not the Itanium C++ ABI");
  std::memcpy(words, &function, sizeof words);
  return (words[0] & ~std::uintptr_t{1}) / sizeof(void*);
}

TEST(BinaryInterface, AClientsHandlerStandsFirstInItsTable) {
  EXPECT_EQ(slot_of(&yusb_device_event_interface::on_device_event), 0u);
  EXPECT_EQ(sizeof(yusb_device_event_interface), sizeof(void*));
  EXPECT_EQ(sizeof(_yusb_device_event), 4u);
  EXPECT_EQ(YUSB_DEVICE_EVENT_APPEND, 0);
  EXPECT_EQ(YUSB_DEVICE_EVENT_REMOVE, 1);
}

}  // namespace
