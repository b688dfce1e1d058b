// The bus library for macOS, on the substitutes of port/apple. Its functions are renamed, because the program
// also contains those of the host's own bus library.
#include <IOKit/IOKitLib.h>

extern "C" kern_return_t IOServiceGetMatchingServices(mach_port_t, CFDictionaryRef, io_iterator_t*);
CFTypeRef registry_property(io_registry_entry_t, CFStringRef, CFAllocatorRef, IOOptionBits);
#define IORegistryEntryCreateCFProperty registry_property
#define bus_present mac_bus_present
#define bus_settle mac_bus_settle
#include "macos/bus.cpp"
#undef IORegistryEntryCreateCFProperty
#undef bus_present
#undef bus_settle

#include <future>

#include "apple/core_foundation.h"
#include "support.h"

using namespace yusb;
using namespace std::chrono_literals;

// The devices that a registration for arrivals finds immediately. Its port's run loop ends with the thread.
kern_return_t IOServiceGetMatchingServices(mach_port_t main_port, CFDictionaryRef matching,
                                           io_iterator_t* existing) {
  kern_return_t status = KERN_SUCCESS;
  std::thread([&] {
    const IONotificationPortRef port = IONotificationPortCreate(main_port);
    const auto unused = [](void*, io_iterator_t) {};
    status = IOServiceAddMatchingNotification(port, kIOFirstMatchNotification, matching, unused, nullptr,
                                              existing);
    IONotificationPortDestroy(port);
  }).join();
  return status;
}

// The names of Apple's on Linux have the location alone. 0x14F00000 stands for a device whose vendor ID is 0.
CFTypeRef registry_property(io_registry_entry_t entry, CFStringRef key, CFAllocatorRef allocator,
                            IOOptionBits options) {
  if (key != CFSTR("idVendor")) return IORegistryEntryCreateCFProperty(entry, key, allocator, options);
  return new __CFNumber(port::location_of(entry) == 0x14F00000 ? 0 : 1);
}

struct MacosBus : testing::Test {
  void TearDown() override {
    global_release();
    EXPECT_EQ(simulator::leaks(), strings());
  }

  // bus_settle does not wait for root hubs, so that of this bus may refuse.
  MacosBus() { plug_unreadable(0x14000000); }
  int plug_unreadable(std::uint32_t location) {
    simulated_device device = make_device(1, 2, location);
    device.plugin_status = static_cast<std::int32_t>(0xE00002BE);
    return bus.plug(device);
  }

  log_capture log;
  simulator bus;
};

TEST_F(MacosBus, SettlesWhenEachDeviceIsListedHoweverSlowlyItAnswers) {
  EXPECT_TRUE(mac_bus_present());
  EXPECT_FALSE(mac_bus_settle()) << "not initialised";
  for (std::uint32_t port = 1; port <= 3; ++port) {
    simulated_device slow = make_device(1, 2, 0x14000000 + 0x100000 * port);
    slow.serial_number = "slow";
    slow.replies[3].delay = 50ms;
    bus.plug(slow);
  }
  bus.plug(make_device(0, 1, 0x14F00000));  // is never listed, so nothing waits for it
  global_initialize();
  EXPECT_TRUE(mac_bus_settle());
  EXPECT_EQ(listed(), "0x14100000 0x14200000 0x14300000");
}

TEST_F(MacosBus, DoesNotSettleWhileADeviceCannotBeRead) {
  const int unreadable = plug_unreadable(0x14100000);
  global_initialize();
  ASSERT_TRUE(bus.settle()) << "otherwise the library may miss the device, and there is no event";
  EXPECT_FALSE(mac_bus_settle(50ms));
  std::promise<void> compared;  // the device was found, and it is not listed
  bus.before_calls([&, calls = 0](const std::string& call) mutable {
    if (call == "IORegistryEntryCreateCFProperty" && ++calls == 2) compared.set_value();
    return true;
  });
  std::thread unplugging([&] {
    compared.get_future().wait();
    bus.unplug(unreadable);
  });
  EXPECT_TRUE(mac_bus_settle(std::chrono::milliseconds::max())) << "it is gone";
  unplugging.join();
  bus.before_calls([](const std::string& call) { return call != "IOServiceMatching"; });
  EXPECT_FALSE(mac_bus_present());
  EXPECT_FALSE(mac_bus_settle(1ms));
}
