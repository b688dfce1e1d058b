// A host with a synthetic tree of USB devices, and a kernel that announces them.
//
// The process enters a mount and network namespace of its own, and sees what it writes there where sysfs
// would be. Its uevents are the kernel's own: the kernel passes on what a privileged process hands it, to the
// listeners of the same network namespace, from port 0.
#ifndef YUSB_BENCH_HOST_H_
#define YUSB_BENCH_HOST_H_

#include "measure.h"

namespace bench {

// Makes this process's host, with no device. Before any other thread starts. Where namespaces are not
// permitted, says so and starts the program anew on umockdev, whose preloaded library adds to every time and
// count. Ends the process, with a line that says why, where neither is to be had.
void enter_host(char** arguments);

// True if the program runs on umockdev, where announcing waits for the listeners.
bool on_umockdev();

// Makes the host have devices 0 to count-1, without announcing any. Device 0 is a root hub.
void attach_until(int count);

// Shows a device in the tree, or hides it, without announcing it.
void show(int device);
void hide(int device);

// Announces a device to who listens to the kernel, or to who listens to udev. Returns when that was sent.
enum class announcer { kernel, udev };
clock::time_point announce(announcer from, int device, bool arrived);

}  // namespace bench

#endif  // YUSB_BENCH_HOST_H_
