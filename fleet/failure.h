// Why a connection failed, in words. The results of the MQTT library's functions do not name the file that
// cannot be read, or the fault of a certificate; its log does.
#ifndef YUSB_FLEET_FAILURE_H_
#define YUSB_FLEET_FAILURE_H_

#include <string>

struct mosquitto;

namespace yusb::fleet {

// For mosquitto_log_callback_set(). Keeps the first error that was logged on this thread since
// forget_logged() or reason_of().
void keep_logged(mosquitto*, void*, int level, const char* text);
void forget_logged();

// `result` is of one of the library's functions, which was called last on this thread.
std::string reason_of(int result);

// The same for a failure before the broker has answered. Most brokers send no reason if they refuse a
// certificate, or if only one side uses TLS.
std::string first_reason_of(int result, bool tls);

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_FAILURE_H_
