// Apple's names on a host without them: no kinder than the original, so that a mistake shows here first.
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/usb/IOUSBLib.h>

#include <thread>

#include "support.h"

struct notified {
  int calls = 0;
  io_iterator_t iterator = IO_OBJECT_NULL;

  int drain() const {
    int devices = 0;
    for (; const io_service_t service = IOIteratorNext(iterator); ++devices) IOObjectRelease(service);
    return devices;
  }
};

TEST(Apple, ANotificationIsArmedOnceByReadingItsIteratorToTheEndAndAnEarlyStopIsLost) {
  yusb::simulator bus;
  std::thread([&bus] {  // a run loop ends with its thread
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    const IONotificationPortRef port = IONotificationPortCreate(kIOMasterPortDefault);
    CFRunLoopAddSource(loop, IONotificationPortGetRunLoopSource(port), kCFRunLoopDefaultMode);
    const auto watch = [port](notified& client, IOServiceMatchingCallback callback) {
      EXPECT_EQ(IOServiceAddMatchingNotification(port, kIOFirstMatchNotification,
                                                 IOServiceMatching(kIOUSBDeviceClassName), callback, &client,
                                                 &client.iterator),
                KERN_SUCCESS);
    };
    notified client, last;  // the last to be called stops the loop
    bus.plug(make_device(1, 1, 1));
    watch(client, [](void* self, io_iterator_t) { ++static_cast<notified*>(self)->calls; });
    watch(last, [](void* self, io_iterator_t) {
      static_cast<notified*>(self)->drain();
      CFRunLoopStop(CFRunLoopGetCurrent());
    });
    last.drain();
    const auto calls_after_another_device = [&] {
      bus.plug(make_device(1, 1, 1));
      CFRunLoopStop(loop);
      CFRunLoopRun();
      return client.calls;
    };
    EXPECT_EQ(calls_after_another_device(), 0) << "never read";
    IOObjectRelease(IOIteratorNext(client.iterator));
    EXPECT_EQ(calls_after_another_device(), 0) << "not read to the end";
    EXPECT_EQ(client.drain(), 2);
    EXPECT_EQ(calls_after_another_device(), 1);
    EXPECT_EQ(calls_after_another_device(), 1) << "not read since";
    EXPECT_EQ(client.drain(), 2);
    for (const notified& each : {client, last}) IOObjectRelease(each.iterator);
    IONotificationPortDestroy(port);
  })
      .join();
  EXPECT_EQ(yusb::simulator::leaks(), strings());
}
