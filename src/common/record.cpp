#include <yusb.h>

YUsbInfoDevice::YUsbInfoDevice() = default;
YUsbInfoDevice::YUsbInfoDevice(const YUsbInfoDevice& other) = default;
YUsbInfoDevice& YUsbInfoDevice::operator=(const YUsbInfoDevice& other) = default;
YUsbInfoDevice::~YUsbInfoDevice() = default;

bool YUsbInfoDevice::operator==(const YUsbInfoDevice& other) const { return _location == other._location; }
bool YUsbInfoDevice::operator!=(const YUsbInfoDevice& other) const { return _location != other._location; }

bool YUsbInfoDevice::empty() const { return _vendorID == 0 && _productID == 0 && _revisedID == 0; }
bool YUsbInfoDevice::exist() const { return !empty(); }

void YUsbInfoDevice::setVendorID(unsigned short value) { _vendorID = value; }
void YUsbInfoDevice::setProductID(unsigned short value) { _productID = value; }
void YUsbInfoDevice::setRevisedID(unsigned short value) { _revisedID = value; }
void YUsbInfoDevice::setFactory(const YString& value) { _factory = value; }
void YUsbInfoDevice::setSerialNumber(const YString& value) { _serialNumber = value; }
void YUsbInfoDevice::setLocation(const YString& value) { _location = value; }
void YUsbInfoDevice::setInstancePath(const YString& value) { _instancePath = value; }
void YUsbInfoDevice::setDescribe(const YString& value) { _describe = value; }

unsigned short YUsbInfoDevice::vendorID() const { return _vendorID; }
unsigned short YUsbInfoDevice::productID() const { return _productID; }
unsigned short YUsbInfoDevice::revisedID() const { return _revisedID; }
const YString& YUsbInfoDevice::factory() const { return _factory; }
const YString& YUsbInfoDevice::serialNumber() const { return _serialNumber; }
const YString& YUsbInfoDevice::location() const { return _location; }
const YString& YUsbInfoDevice::instancePath() const { return _instancePath; }
const YString& YUsbInfoDevice::describe() const { return _describe; }
