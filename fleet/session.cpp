#include "session.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "commands.h"
#include "format/utf8.h"
#include "service.h"

namespace yusb::fleet {

void complain(const std::string& message) {
  const std::string line = "yusb-fleet: " + format::visible(message) + "\n";
  std::fwrite(line.data(), 1, line.size(), stderr);
}

void complain_incomplete(const std::string& host) {
  complain("the picture of host " + host + " is incomplete: the broker did not send all of it");
}

session::session(loop& loop, const options& chosen) : _loop(loop), _chosen(chosen) {
  on_termination(_loop, [this] { end(exit_ok); });
}

int session::run(reader::handlers handlers, const std::string& only) {
  handlers.log = complain;
  if (!handlers.incomplete) handlers.incomplete = complain_incomplete;
  if (!handlers.lost) handlers.lost = [this](const std::string& reason) { complain_lost(reason); };
  _reader =
      std::make_unique<fleet::reader>(_loop, _chosen.connection, _chosen.prefix, only, std::move(handlers));
  _reader->start();
  _loop.run();
  return _status;
}

void session::end(int status) {
  _status = status;
  _loop.stop();
}

void session::complain_lost(const std::string& reason) {
  const std::string line = "not connected to " + _chosen.connection.broker.host + ": " + reason;
  if (line != _last_loss) complain(line);
  _last_loss = line;
}

void session::print(const std::string& text) {
  if (_unwritable) return;
  if (std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0) return;
  _unwritable = true;
  if (errno != EPIPE) complain(std::string("cannot write to standard output: ") + std::strerror(errno));
  end(errno == EPIPE ? exit_ok : exit_failure);
}

}  // namespace yusb::fleet
