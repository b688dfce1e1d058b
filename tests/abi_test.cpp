// Properties that compiled clients rely on and the description of the binary interface does not contain.
#include <gtest/gtest.h>
#include <yusb.h>

#include <cstdint>
#include <cstring>

// From a pointer to member in the Itanium C++ ABI: the offset in the virtual table, in bytes, and a 1 that
// marks a virtual function, in the first or the second word depending on the processor.
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
