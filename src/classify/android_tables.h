// By what device_is_android knows an Android phone. A new vendor or brand is a line in
// tests/classify_test.cpp too.
#ifndef YUSB_CLASSIFY_ANDROID_TABLES_H_
#define YUSB_CLASSIFY_ANDROID_TABLES_H_

#include <cstdint>

namespace yusb {

constexpr std::uint16_t android_vendors[] = {0x2717, 0x12D1, 0x339B, 0x04E8, 0x2D95, 0x22D9, 0x18D1};

// Anywhere in the manufacturer or product string, in any case.
constexpr const char* android_brands[] = {"xiaomi", "huawei", "honor", "vivo", "oppo", "samsung", "iqoo"};

}  // namespace yusb

#endif  // YUSB_CLASSIFY_ANDROID_TABLES_H_
