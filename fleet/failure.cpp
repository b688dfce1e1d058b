#include "failure.h"

#include <mosquitto.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace yusb::fleet {

namespace {

thread_local std::string _logged;

}  // namespace

void keep_logged(mosquitto*, void*, int level, const char* text) {
  if (level != MOSQ_LOG_ERR || !_logged.empty()) return;
  _logged = text;
  // "OpenSSL Error[0]: error:0A000086:SSL routines::certificate verify failed"
  if (_logged.find("OpenSSL Error") == 0) _logged.erase(0, _logged.rfind(':') + 1);
  if (_logged.find("Error: ") == 0) _logged.erase(0, 7);
}

void forget_logged() { _logged.clear(); }

std::string reason_of(int result) {
  const std::string logged = std::exchange(_logged, {});
  if (!logged.empty()) return "TLS: " + logged;
  if (result == MOSQ_ERR_ERRNO && errno == 0) result = MOSQ_ERR_CONN_LOST;  // within a message
  return result == MOSQ_ERR_ERRNO ? std::strerror(errno) : mosquitto_strerror(result);
}

std::string first_reason_of(int result, bool tls) {
  // Every fault of a certificate is logged, so the handshake could not even be sent.
  if (result == MOSQ_ERR_TLS && _logged.empty()) return std::strerror(ECONNREFUSED);
  const bool reset = _logged == "Connection reset by peer";
  const bool closed = result == MOSQ_ERR_CONN_LOST || (result == MOSQ_ERR_ERRNO && errno == EPROTO);
  if (!reset && (!closed || !_logged.empty())) return reason_of(result);
  forget_logged();
  return std::string("the broker closed the connection without an answer; does it expect ") +
         (tls ? "another client certificate?" : "mqtts://?");
}

}  // namespace yusb::fleet
