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

// What the initial user namespace's inode is in every kernel: PROC_USER_INIT_INO of the kernel's proc_ns.h.
constexpr ino_t initial_user_namespace = 0xEFFFFFFD;

// Keeps out every action but "add" and "remove", so that nothing else wakes us or takes room in the queue. By
// what they are not: the pretended bus of the tests sends no kernel header.
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
  // Without it we wake more often, no worse.
  setsockopt(socket, SOL_SOCKET, SO_ATTACH_FILTER, &loaded, sizeof loaded);
}

// More than ten thousand uevents; without privilege net.core.rmem_max cuts it to some three hundred.
void enlarge_queue(int socket) {
  const int size = 16 << 20;
  if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size) != 0) {
    setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &size, sizeof size);
  }
}

// A process can send to our socket as well, but not from port 0, and its credentials are its own.
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
  // Since Linux 4.18 only the network namespaces that the initial user namespace owns are told of devices.
  const unique_fd network(::open("/proc/thread-self/ns/net", O_RDONLY | O_CLOEXEC));
  if (!network) return netns_hears::unknown;
  const unique_fd owner(ioctl(network.get(), NS_GET_USERNS));
  struct stat found;
  if (!owner || fstat(owner.get(), &found) != 0) return netns_hears::unknown;  // one above ours is hidden
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
    char datagram[8192];  // the kernel's are below 4500: a header, and 2048 of fields
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
