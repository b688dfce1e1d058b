#include "linux/uevent_socket.h"

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <linux/nsfs.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>

namespace yusb::port {

namespace {

constexpr unsigned kernel_group = 1;  // 2 is udev's

// The inode of the initial user namespace in every kernel: PROC_USER_INIT_INO of its proc_ns.h.
constexpr ino_t initial_user_namespace = 0xEFFFFFFD;

// Drops every action except "add" and "remove", so that no other uevent wakes the thread or fills the receive
// buffer. It is a deny-list because umockdev's datagrams lack the kernel's "action@path" header.
void filter(int socket) {
  sock_filter program[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, 0),                  // big-endian
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x62696E64, 6, 0),  // "bind"
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x756E6269, 5, 0),  // "unbi"
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x6368616E, 4, 0),  // "chan"
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x6D6F7665, 3, 0),  // "move"
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x6F6E6C69, 2, 0),  // "onli"
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0x6F66666C, 1, 0),  // "offl"
      BPF_STMT(BPF_RET | BPF_K, 0xFFFFFFFF),
      BPF_STMT(BPF_RET | BPF_K, 0),
  };
  const sock_fprog loaded = {sizeof program / sizeof *program, program};
  // Best effort: without the filter the thread only wakes more often.
  setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &loaded, sizeof loaded);
}

// Holds more than ten thousand uevents. Without privileges, net.core.rmem_max limits it; Debian's default
// holds about three hundred.
void enlarge_queue(int socket) {
  const int size = 16 << 20;
  if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0) {
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  }
}

// Other processes can send to this socket too. But only the kernel sends from port 0, and the credentials of
// a message are those of its sender.
bool from_kernel(msghdr& message, const sockaddr_nl& sender) {
  if (sender.nl_family != AF_NETLINK || sender.nl_pid != 0) return false;
  for (cmsghdr* item = CMSG_FIRSTHDR(&message); item != nullptr; item = CMSG_NXTHDR(&message, item)) {
    if (item->cmsg_level != SOL_SOCKET || item->cmsg_type != SCM_CREDENTIALS) continue;
    ucred credentials;
    if (item->cmsg_len < CMSG_LEN(sizeof credentials)) continue;
    std::memcpy(&credentials, CMSG_DATA(item), sizeof credentials);
    return credentials.uid == 0;
  }
  return false;
}

}  // namespace

netns_hears netns_hears_uevents() {
  // Since Linux 4.18, uevents of devices reach only network namespaces that the initial user namespace owns.
  const unique_fd network(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
  if (!network) return netns_hears::unknown;
  const unique_fd owner(ioctl(network.get(), NS_GET_USERNS));
  struct stat found;
  // The owner cannot be opened if it is an ancestor of this process's user namespace.
  if (!owner || fstat(owner.get(), &found) != 0) return netns_hears::unknown;
  return found.st_ino == initial_user_namespace ? netns_hears::yes : netns_hears::no;
}

bool uevent_socket::open() {
  unique_fd made(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_KOBJECT_UEVENT));
  if (!made) return false;
  const int on = 1;
  if (setsockopt(made.get(), SOL_SOCKET, SO_PASSCRED, &on, sizeof on) != 0) return false;
  enlarge_queue(made.get());
  filter(made.get());
  sockaddr_nl address = {};
  address.nl_family = AF_NETLINK;
  address.nl_groups = kernel_group;
  if (bind(made.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) return false;
  _socket = std::move(made);
  return true;
}

uevent_socket::received uevent_socket::receive(uevent* event) {
  for (;;) {
    char datagram[8192];  // the kernel's have less than 4500 bytes: a header and 2048 bytes of fields
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(ucred))];
    sockaddr_nl sender = {};
    iovec part = {datagram, sizeof datagram};
    msghdr message = {};
    message.msg_name = &sender;
    message.msg_namelen = sizeof sender;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(_socket.get(), &message, MSG_DONTWAIT);
    if (size < 0 && errno == EINTR) continue;
    if (size < 0) return errno == ENOBUFS ? received::lost : received::nothing;
    if ((message.msg_flags & MSG_TRUNC) != 0 || !from_kernel(message, sender)) continue;
    std::optional<uevent> parsed = parse_uevent({datagram, static_cast<std::size_t>(size)});
    if (!parsed.has_value()) return received::other;
    *event = std::move(*parsed);
    return received::device;
  }
}

}  // namespace yusb::port
