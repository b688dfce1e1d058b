#include "session.h"

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>
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

int complain_unwritable(int error) {
  if (error == EPIPE) return exit_ok;
  complain(std::string("cannot write to standard output: ") + std::strerror(error));
  return exit_failure;
}

session::session(loop& loop, const options& chosen) : _loop(loop), _chosen(chosen) {
  const auto succeed = [this] { end(exit_ok); };
  const bool watching = chosen.chosen == command::watch;
  if (watching || (chosen.chosen == command::metrics && !chosen.once))
    _signals = on_termination(_loop, succeed);
  // A write notices that nothing reads a pipe any more, but the next one may be hours away.
  struct stat output {};
  if (watching && fstat(STDOUT_FILENO, &output) == 0 && S_ISFIFO(output.st_mode))
    _loop.watch(STDOUT_FILENO, 0, [succeed](std::uint32_t) { succeed(); });  // EPOLLERR
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

bool session::may_write() const {
  pollfd watched[] = {{STDOUT_FILENO, POLLOUT, 0}, {_signals, POLLIN, 0}};
  while (poll(watched, 2, -1) < 0) continue;
  return watched[0].revents != 0;
}

void session::print(const std::string& text) {
  std::string_view rest = text;
  while (!rest.empty() && !_unwritable) {
    _unwritable = !may_write();
    if (_unwritable) return;  // the loop handles the signal
    // A pipe that is ready takes PIPE_BUF bytes without blocking.
    const ssize_t written = write(STDOUT_FILENO, rest.data(), std::min<std::size_t>(rest.size(), PIPE_BUF));
    if (written >= 0) {
      rest.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      _unwritable = true;
      end(complain_unwritable(errno));
    }
  }
}

}  // namespace yusb::fleet
