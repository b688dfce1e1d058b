// A host with a synthetic tree of USB devices, which the kernel announces.
//
// The process enters new mount and network namespaces, where its synthetic tree replaces sysfs. Uevents are
// sent by the kernel: it forwards messages of a privileged process to the listeners in the same network
// namespace, from port 0.
#ifndef YUSB_BENCH_HOST_H_
#define YUSB_BENCH_HOST_H_

#include "measure.h"

namespace bench {

// Creates the host of this process, without devices. Call it before any other thread starts. If namespaces
// are not permitted, it prints a message and restarts the program on umockdev, whose preloaded library adds
// to every time and count. If neither is available, it exits with a message.
void enter_host(char** arguments);

// True if the program runs on umockdev, where an announcement waits for the listeners.
bool on_umockdev();

// Adds the devices 0 to count-1 to the host, without announcing them. Device 0 is a root hub.
void attach_until(int count);

// Adds a device to the tree, or removes it, without announcing it.
void show(int device);
void hide(int device);

// Announces a device to the listeners of the kernel or of udev. Returns the time of sending.
enum class announcer { kernel, udev };
clock::time_point announce(announcer from, int device, bool arrived);

}  // namespace bench

#endif  // YUSB_BENCH_HOST_H_
