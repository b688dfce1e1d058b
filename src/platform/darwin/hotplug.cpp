// The IOKit backend: it reads devices, turns notifications into changes of the device list, and runs the
// monitor thread.
#include <csignal>
#include <cstdio>
#include <exception>
#include <new>
#include <thread>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/IOKitLib.h>
#include <IOKit/usb/IOUSBLib.h>
#include <YorvanCore/Yorvan.h>
#include <mach/port.h>

#include "common/log.h"
#include "common/reentry.h"
#include "platform/darwin/context.h"
#include "platform/platform.h"

namespace {

using yusb::callback_scope;
using yusb::log_error;

// ---- Reading a device ----

constexpr UInt8 kDeviceToHostStandardDevice = 0x80;  // bmRequestType, USB 2.0 section 9.3
constexpr UInt8 kGetDescriptor = 6;                  // bRequest, USB 2.0 table 9-4
constexpr UInt16 kStringDescriptor = 0x0300;         // wValue's high byte, USB 2.0 table 9-5
constexpr UInt16 kEnglishUnitedStates = 0x0409;      // wIndex, a USB language ID
constexpr UInt32 kStringHeader = 2;                  // bLength and bDescriptorType

YString darwin_device_request_string_descriptor(IOUSBDeviceStruct500** device, UInt8 index) {
  if (index == 0) return {};
  UInt8 reply[255] = {};
  IOUSBDevRequest request = {};
  request.bmRequestType = kDeviceToHostStandardDevice;
  request.bRequest = kGetDescriptor;
  request.wValue = static_cast<UInt16>(kStringDescriptor | index);
  request.wIndex = kEnglishUnitedStates;
  request.wLength = sizeof reply;
  request.pData = reply;
  if ((*device)->DeviceRequest(device, &request) != 0) return {};

  // The low byte of each UTF-16LE code unit. The string ends before the first byte that is 0.
  const UInt32 end = request.wLenDone < sizeof reply ? request.wLenDone : UInt32{sizeof reply};
  char text[sizeof reply / 2 + 1] = {};
  std::size_t length = 0;
  for (UInt32 at = kStringHeader; at < end; at += 2) text[length++] = static_cast<char>(reply[at]);
  return text;
}

void darwin_device_from_IOUSBDeviceInterface(IOUSBDeviceStruct500** device, YUsbInfoDevice& record) {
  UInt16 vendor = 0;
  UInt16 product = 0;
  UInt16 release = 0;
  UInt32 location = 0;
  UInt8 manufacturerIndex = 0;
  UInt8 productIndex = 0;
  UInt8 serialNumberIndex = 0;
  // A query that fails leaves its value 0.
  (*device)->GetDeviceVendor(device, &vendor);
  (*device)->GetDeviceProduct(device, &product);
  (*device)->GetDeviceReleaseNumber(device, &release);
  (*device)->GetLocationID(device, &location);
  (*device)->USBGetManufacturerStringIndex(device, &manufacturerIndex);
  (*device)->USBGetProductStringIndex(device, &productIndex);
  (*device)->USBGetSerialNumberStringIndex(device, &serialNumberIndex);

  const YString manufacturerText = darwin_device_request_string_descriptor(device, manufacturerIndex);
  const YString productText = darwin_device_request_string_descriptor(device, productIndex);
  const YString serialNumberText = darwin_device_request_string_descriptor(device, serialNumberIndex);
  const YString locationText = YString::format("0x%X", location);

  record.setVendorID(vendor);
  record.setProductID(product);
  record.setRevisedID(release);
  record.setFactory(manufacturerText);
  record.setSerialNumber(serialNumberText);
  record.setLocation(locationText);
  record.setInstancePath(locationText);
  record.setDescribe(productText);
}

// ---- The handlers: each reads its iterator to the end, which arms the notification again ----
//
// They are noexcept because IOKit's C code calls them: an exception must not unwind through its frames.

// Numbers in two log lines. Unlike in other lines they are constant, because log readers match on them.
constexpr int kNoPlugIn = 119;
constexpr int kNoDeviceInterface = 128;

void darwin_handle_device_append(void* /*context*/, io_iterator_t iterator) noexcept {
  static const CFUUIDRef deviceType = kIOUSBDeviceUserClientTypeID;
  static const CFUUIDRef plugInInterface = kIOCFPlugInInterfaceID;
  static const CFUUIDBytes deviceInterface = CFUUIDGetUUIDBytes(kIOUSBDeviceInterfaceID500);
  IOCFPlugInInterface** plugin = nullptr;
  IOUSBDeviceStruct500** device = nullptr;
  SInt32 score = 0;
  while (const io_service_t service = IOIteratorNext(iterator)) {
    plugin = nullptr;  // else a success without a result would leave the previous device's
    device = nullptr;
    const kern_return_t status =
        IOCreatePlugInInterfaceForService(service, deviceType, plugInInterface, &plugin, &score);
    if (status != 0 || plugin == nullptr) {
      const callback_scope sink;
      YLog::output(log_error, "[ %s : %d ] Unable to create a plug-in (%08x)", "darwin_handle_device_append",
                   kNoPlugIn, static_cast<unsigned>(status));
      IOObjectRelease(service);
      continue;
    }
    const HRESULT answer =
        (*plugin)->QueryInterface(plugin, deviceInterface, reinterpret_cast<LPVOID*>(&device));
    (*plugin)->Release(plugin);
    if (answer != 0 || device == nullptr) {
      const callback_scope sink;
      YLog::output(log_error, "[ %s : %d ] Couldn't create a device interface (%08x)",
                   "darwin_handle_device_append", kNoDeviceInterface, static_cast<unsigned>(answer));
      IOObjectRelease(service);
      continue;
    }
    YUsbInfoDevice record;
    darwin_device_from_IOUSBDeviceInterface(device, record);
    if (record.vendorID() != 0 && record.productID() != 0) yusb::common_device_append(record);
    (*device)->Release(device);
    IOObjectRelease(service);
  }
}

void darwin_handle_device_remove(void* /*context*/, io_iterator_t iterator) noexcept {
  char text[64] = {};
  while (const io_service_t service = IOIteratorNext(iterator)) {
    SInt32 location = 0;
    const CFTypeRef property =
        IORegistryEntryCreateCFProperty(service, CFSTR(kUSBDevicePropertyLocationID), kCFAllocatorDefault, 0);
    if (property != nullptr) {
      CFNumberGetValue(static_cast<CFNumberRef>(property), kCFNumberSInt32Type, &location);
      CFRelease(property);
    }
    IOObjectRelease(service);
    if (location == 0) continue;
    std::snprintf(text, sizeof text, "0x%X", static_cast<UInt32>(location));
    yusb::common_device_remove_from_location(text);
  }
}

// ---- The monitor thread ----

// Not kIOUSBDeviceClassName: newer SDKs define that as another class.
constexpr const char* kDeviceClass = "IOUSBDevice";

void report_failure(const char* what, kern_return_t status, int line = __builtin_LINE()) {
  const callback_scope sink;
  YLog::output(log_error, "[ %s : %d ] Unable to %s (%08x)", "darwin_create_device_notify_thread", line, what,
               static_cast<unsigned>(status));
}

// Registers one handler and drains its iterator. Null if it could not be registered.
io_iterator_t watch(IONotificationPortRef port, const char* type, CFDictionaryRef matching,
                    IOServiceMatchingCallback handler, _yusb_platform_context* context) {
  io_iterator_t iterator = IO_OBJECT_NULL;
  const kern_return_t status =
      IOServiceAddMatchingNotification(port, type, matching, handler, context, &iterator);
  if (status != KERN_SUCCESS) {
    report_failure("register for USB notifications", status);
    return IO_OBJECT_NULL;
  }
  handler(context, iterator);
  return iterator;
}

void darwin_create_device_notify_thread(_yusb_platform_context* context) {
  const IONotificationPortRef port = IONotificationPortCreate(MACH_PORT_NULL);
  if (port == nullptr) {
    report_failure("create a notification port", 0);
    return;
  }
  const CFRunLoopSourceRef source = IONotificationPortGetRunLoopSource(port);
  if (source == nullptr) {
    report_failure("get the source of a notification port", 0);
    IONotificationPortDestroy(port);
    return;
  }
  const CFMutableDictionaryRef arrivals = IOServiceMatching(kDeviceClass);
  const CFMutableDictionaryRef removals = IOServiceMatching(kDeviceClass);
  context->running = true;
  const CFRunLoopRef runLoop = CFRunLoopGetCurrent();
  CFRetain(runLoop);
  context->runLoop = runLoop;
  CFRunLoopAddSource(runLoop, source, kCFRunLoopDefaultMode);

  const io_iterator_t arrived =
      watch(port, kIOFirstMatchNotification, arrivals, darwin_handle_device_append, context);
  const io_iterator_t removed =
      watch(port, kIOTerminatedNotification, removals, darwin_handle_device_remove, context);
  CFRunLoopRun();

  if (const CFRunLoopRef kept = context->runLoop.exchange(nullptr)) CFRelease(kept);
  if (arrived != IO_OBJECT_NULL) IOObjectRelease(arrived);
  if (removed != IO_OBJECT_NULL) IOObjectRelease(removed);
  IONotificationPortDestroy(port);
  context->running = false;
}

// Its destructor is the thread's last step in this library: it reports that the thread has ended. The
// thread's function cannot do that, because a host may unload the library as soon as the stop has returned,
// and only a pending thread_local destructor makes glibc keep the library mapped. (Apple's loader never
// unmaps a library that has a thread_local.)
struct monitor_exit {
  _yusb_platform_context* context = nullptr;
  ~monitor_exit() {
    if (context != nullptr) context->monitor = yusb_monitor::none;
  }
};
thread_local monitor_exit _monitor_exit;
// Separate from _monitor_exit: reading that would register its destructor on every calling thread.
thread_local bool _is_monitor_thread = false;

void darwin_thread_system_monitor(_yusb_platform_context* context) {
  _monitor_exit.context = context;
  _is_monitor_thread = true;
  if (context->monitor == yusb_monitor::wanted) darwin_create_device_notify_thread(context);
}

// Blocks all signals except synchronous faults, so that a thread created in this scope inherits the mask.
class host_signals_blocked {
 public:
  host_signals_blocked() {
    sigset_t blocked;
    sigfillset(&blocked);
    for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
      sigdelset(&blocked, fault);
    pthread_sigmask(SIG_BLOCK, &blocked, &_before);
  }
  ~host_signals_blocked() { pthread_sigmask(SIG_SETMASK, &_before, nullptr); }
  host_signals_blocked(const host_signals_blocked&) = delete;
  host_signals_blocked& operator=(const host_signals_blocked&) = delete;

 private:
  sigset_t _before;
};

// In milliseconds: between the attempts of a stop. A stop is rare, so this need not be shorter.
constexpr int kStopInterval = 1;

}  // namespace

namespace yusb {

_yusb_platform_context* platform_context_create() noexcept {
  return new (std::nothrow) _yusb_platform_context();
}

void platform_context_destroy(_yusb_platform_context* context) noexcept { delete context; }

bool platform_is_monitor_thread() noexcept { return _is_monitor_thread; }

bool platform_hotplug_start(_yusb_platform_context* context) noexcept {
  if (context == nullptr || context->runLoop != nullptr) return false;
  yusb_monitor none = yusb_monitor::none;
  if (!context->monitor.compare_exchange_strong(none, yusb_monitor::wanted)) return false;
  try {
    const host_signals_blocked blocked;
    std::thread(darwin_thread_system_monitor, context).detach();
  } catch (const std::exception& error) {
    context->monitor = yusb_monitor::none;
    const callback_scope sink;
    YLog::output(log_error, "[ %s : %d ] Unable to create the monitor thread (%s)", __func__, __LINE__,
                 error.what());
    return false;
  }
  return true;
}

bool platform_hotplug_stop(_yusb_platform_context* context) noexcept {
  if (context == nullptr || reject_reentry()) return true;
  if (platform_is_monitor_thread()) {
    report_reentry(__func__, __LINE__);
    return true;
  }
  context->stopRequested = true;
  yusb_monitor wanted = yusb_monitor::wanted;
  context->monitor.compare_exchange_strong(wanted, yusb_monitor::unwanted);

  // A stop is lost if the loop does not run yet, so it is repeated until the thread has ended.
  CFRunLoopRef runLoop = nullptr;
  while (context->monitor != yusb_monitor::none) {
    if (runLoop == nullptr) runLoop = context->runLoop.exchange(nullptr);
    if (runLoop != nullptr) CFRunLoopStop(runLoop);
    Yorvan::msleep(kStopInterval);
  }
  if (runLoop != nullptr) CFRelease(runLoop);
  return true;
}

bool platform_reset_apple() noexcept { return false; }

}  // namespace yusb
