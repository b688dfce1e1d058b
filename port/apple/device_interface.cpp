// The plug-in and the device interface of a device, each with its own reference count.
#include <IOKit/IOCFPlugIn.h>
#include <IOKit/usb/IOUSBLib.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <utility>

#include "apple/call_hook.h"
#include "apple/service.h"

using namespace yusb::port;

namespace {

// The object behind an interface pointer: the table of functions, then our members.
template <typename Table>
struct interface_object {
  interface_object(const Table& functions, object_kind kind, std::shared_ptr<device> of)
      : table(&functions), attached(std::move(of)), counter(kind) {}

  // The first member: a pointer to the object is a pointer to the table's pointer.
  const Table* const table;
  std::atomic<ULONG> references{1};
  const std::shared_ptr<device> attached;
  instance_counter counter;

  static interface_object& of(void* self) { return *static_cast<interface_object*>(self); }

  static ULONG add_reference(void* self) { return ++of(self).references; }

  static ULONG release(void* self) {
    const ULONG left = --of(self).references;
    if (left == 0) delete &of(self);
    return left;
  }
};

using plugin_object = interface_object<IOCFPlugInInterface>;
using device_object = interface_object<IOUSBDeviceInterface500>;

bool equal(const CFUUIDBytes& a, const CFUUIDBytes& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

template <typename T>
IOReturn query(void* self, device_field field, T* value) {
  std::uint32_t wide = *value;
  const status result = device_object::of(self).attached->read(field, &wide);
  if (result == status_ok) *value = static_cast<T>(wide);
  return result;
}

template <typename T, device_field field>
IOReturn get(void* self, T* value) {
  return query(self, field, value);
}

IOReturn device_request(void* self, IOUSBDevRequest* request) {
  if (request == nullptr) return status_bad_argument;
  control_request transfer = {request->bmRequestType,
                              request->bRequest,
                              request->wValue,
                              request->wIndex,
                              request->wLength,
                              request->pData,
                              0};
  const status result = device_object::of(self).attached->control(transfer);
  request->wLenDone = transfer.transferred;
  return result;
}

HRESULT no_interface(void* /*self*/, REFIID /*iid*/, LPVOID* /*ppv*/) { return E_NOINTERFACE; }

const IOUSBDeviceInterface500& device_table() {
  static const IOUSBDeviceInterface500 table = [] {
    IOUSBDeviceInterface500 t = {};
    t.QueryInterface = no_interface;
    t.AddRef = device_object::add_reference;
    t.Release = device_object::release;
    t.GetDeviceVendor = get<UInt16, device_field::vendor>;
    t.GetDeviceProduct = get<UInt16, device_field::product>;
    t.GetDeviceReleaseNumber = get<UInt16, device_field::release>;
    t.GetLocationID = get<UInt32, device_field::location>;
    t.DeviceRequest = device_request;
    t.USBGetManufacturerStringIndex = get<UInt8, device_field::manufacturer_index>;
    t.USBGetProductStringIndex = get<UInt8, device_field::product_index>;
    t.USBGetSerialNumberStringIndex = get<UInt8, device_field::serial_number_index>;
    return t;
  }();
  return table;
}

HRESULT query_plugin(void* self, REFIID iid, LPVOID* ppv) {
  static const CFUUIDBytes known = CFUUIDGetUUIDBytes(kIOUSBDeviceInterfaceID500);
  if (!equal(iid, known)) return E_NOINTERFACE;
  const plugin_object& plugin = plugin_object::of(self);
  const interface_result granted = plugin.attached->device_interface();
  if (granted.status != status_ok) return granted.status;
  if (granted.present)
    *ppv = new device_object(device_table(), object_kind::device_interface, plugin.attached);
  return S_OK;
}

const IOCFPlugInInterface& plugin_table() {
  static const IOCFPlugInInterface table = [] {
    IOCFPlugInInterface t = {};
    t.QueryInterface = query_plugin;
    t.AddRef = plugin_object::add_reference;
    t.Release = plugin_object::release;
    return t;
  }();
  return table;
}

}  // namespace

kern_return_t IOCreatePlugInInterfaceForService(io_service_t handle, CFUUIDRef pluginType,
                                                CFUUIDRef interfaceType, IOCFPlugInInterface*** theInterface,
                                                SInt32* theScore) {
  before_call("IOCreatePlugInInterfaceForService");
  const auto found = find<service>(handle);
  if (found == nullptr) return status_bad_argument;
  static const CFUUIDRef knownPlugin = kIOUSBDeviceUserClientTypeID;  // equal UUIDs are one object
  static const CFUUIDRef knownInterface = kIOCFPlugInInterfaceID;
  if (pluginType != knownPlugin || interfaceType != knownInterface) {
    return status_unsupported;
  }
  const interface_result granted = found->attached->plugin();
  if (granted.status != status_ok) return granted.status;
  if (granted.present) {
    auto* const made = new plugin_object(plugin_table(), object_kind::plugin, found->attached);
    *theInterface = reinterpret_cast<IOCFPlugInInterface**>(made);
  }
  *theScore = 0;
  return KERN_SUCCESS;
}
