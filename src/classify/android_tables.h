// The vendor IDs and brands by which device_is_android recognises a phone. Add a new one to
// tests/classify_test.cpp too.
#ifndef YUSB_CLASSIFY_ANDROID_TABLES_H_
#define YUSB_CLASSIFY_ANDROID_TABLES_H_

#include <cstdint>

namespace yusb {

constexpr std::uint16_t android_vendors[] = {0x2717, 0x12D1, 0x339B, 0x04E8, 0x2D95, 0x22D9, 0x18D1};

// Searched for in the manufacturer and product strings, in any case.
constexpr const char* android_brands[] = {"xiaomi", "huawei", "honor", "vivo", "oppo", "samsung", "iqoo"};

}  // namespace yusb

#endif  // YUSB_CLASSIFY_ANDROID_TABLES_H_
