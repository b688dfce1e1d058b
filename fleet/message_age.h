// The age of a retained message, by the broker's clock.
#ifndef YUSB_FLEET_MESSAGE_AGE_H_
#define YUSB_FLEET_MESSAGE_AGE_H_

#include <mosquitto.h>
#include <mqtt_protocol.h>

#include <algorithm>
#include <chrono>
#include <cstdint>

#include "connection.h"

namespace yusb::fleet {

// The expiry interval of retained messages. From it a receiver computes a message's age, because the broker
// reduces the interval by the time for which it has stored the message. Five years are long enough for every
// device topic.
constexpr std::uint32_t lifetime = 5U * 365 * 24 * 3600;

// What a message is published with.
struct properties {
  explicit properties(const message& sent) {
    if (sent.retained && !sent.payload.empty())
      mosquitto_property_add_int32(&list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, lifetime);
  }
  ~properties() { mosquitto_property_free_all(&list); }
  properties(const properties&) = delete;
  properties& operator=(const properties&) = delete;
  mosquitto_property* list = nullptr;
};

// 0 if the message does not expire.
inline std::chrono::seconds age_of(const mosquitto_property* list) {
  std::uint32_t left = lifetime;
  mosquitto_property_read_int32(list, MQTT_PROP_MESSAGE_EXPIRY_INTERVAL, &left, false);
  return std::chrono::seconds(lifetime - std::min(left, lifetime));
}

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_MESSAGE_AGE_H_
