// The substitutes for Apple's names: no more forgiving than the originals, so that a mistake shows here
// first.
#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/usb/IOUSBLib.h>

#include "support.h"

TEST(Apple, ANotificationIsArmedOnceByReadingItsIteratorToTheEnd) {
  yusb::simulator bus;
  std::thread([&bus] {  // a run loop ends with its thread
    const CFRunLoopRef loop = CFRunLoopGetCurrent();
    const IONotificationPortRef port = IONotificationPortCreate(MACH_PORT_NULL);
    CFRunLoopAddSource(loop, IONotificationPortGetRunLoopSource(port), kCFRunLoopDefaultMode);
    int calls = 0;
    io_iterator_t iterator = IO_OBJECT_NULL;
    const auto count = [](void* counted, io_iterator_t) { ++*static_cast<int*>(counted); };
    EXPECT_EQ(IOServiceAddMatchingNotification(port, kIOFirstMatchNotification,
                                               IOServiceMatching("IOUSBDevice"), count, &calls, &iterator),
              KERN_SUCCESS);
    const auto calls_after_another_device = [&] {
      bus.plug(make_device(1, 1, 1));
      CFRunLoopStop(loop);  // too early, so it is lost
      std::thread stopping([&] {
        EXPECT_TRUE(bus.settle());
        CFRunLoopStop(loop);
      });
      CFRunLoopRun();
      stopping.join();
      return calls;
    };
    EXPECT_EQ(calls_after_another_device(), 0) << "never read";
    while (const io_service_t service = IOIteratorNext(iterator)) IOObjectRelease(service);
    EXPECT_EQ(calls_after_another_device(), 1);
    EXPECT_EQ(calls_after_another_device(), 1) << "not read since";
    IOObjectRelease(iterator);
    IONotificationPortDestroy(port);
    CFRunLoopRun();  // returns at once: no source is left
  })
      .join();
  EXPECT_EQ(yusb::simulator::leaks(), strings());
}
