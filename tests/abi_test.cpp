// What a compiled client relies on and the description of the libraries' binary interface cannot show.
#include <gtest/gtest.h>
#include <yusb.h>

#include <cstdint>
#include <cstring>

// By a pointer to member as the Itanium C++ ABI has it: the place in the table, in bytes, and 1 in the word
// that the processor has for it, the first or the second.
TEST(Abi, AClientsHandlerStandsFirstInItsTable) {
  const auto handler = &yusb_device_event_interface::on_device_event;
  std::uintptr_t words[2];
  static_assert(sizeof words == sizeof handler, "not the Itanium C++ ABI");
  std::memcpy(words, &handler, sizeof words);
  EXPECT_LT(words[0], sizeof(void*));
  EXPECT_EQ(sizeof(yusb_device_event_interface), sizeof(void*));
  EXPECT_EQ(sizeof(_yusb_device_event), 4u);
  EXPECT_EQ(YUSB_DEVICE_EVENT_APPEND, 0);
  EXPECT_EQ(YUSB_DEVICE_EVENT_REMOVE, 1);
}
