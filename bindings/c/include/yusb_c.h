// libYorvanUsbC: the library for C, and for languages that can call C. It needs C11. Link YorvanUsb::C, or
// YorvanUsbC for pkg-config.
//
//   yusb_start();
//   yusb_queue* queue = NULL;
//   yusb_event* event = NULL;
//   yusb_queue_open(NULL, &queue);
//   while (yusb_queue_next(queue, 60000, &event) == YUSB_OK) {  // until nothing happens for a minute
//     if (event->kind == YUSB_ARRIVAL) printf("+ %s\n", event->device->location);
//     yusb_event_free(event);
//   }
//   yusb_queue_free(queue);
//   yusb_stop();
//
// Status. Every function except yusb_status_text returns a yusb_status. Its comment names the statuses that
// it returns, except YUSB_OK, YUSB_INVALID_ARGUMENT for a null pointer, and YUSB_FORKED. If the status is not
// YUSB_OK, output arguments are set to null or 0. No function calls back into the program.
//
// Memory. The caller frees what a function returns, with the function that the comment names; that function
// ignores null. Strings are UTF-8 with a terminating zero. Strings from the library are never null, and valid
// until their structure is freed.
//
// Sizes. Each structure begins with its size. In a structure that it passes to the library, the caller sets
// the size, and sets unused members to 0, as in
// `yusb_filter phones = {.size = sizeof phones, .tags = YUSB_ANDROID};`. If a later version of the library
// adds members, they are 0 for callers that do not have them. If a member that this version of the library
// does not have is not 0, the function returns YUSB_UNSUPPORTED. In a structure from the library, `size` says
// which members it has: test YUSB_HAS before you read a member that was added after version 5.1.0. Arrays
// from the library are arrays of pointers; arrays of the caller are arrays of structures of one size.
//
// Threads. Every function may be called on any thread, but an object must not be freed while another thread
// uses it. A function that waits for the library is refused (YUSB_REFUSED) under the library's locks, that
// is, in handlers and watchers of C++ code in the same process.
//
// Forks. In a child that was forked without exec, while the library was started, a simulator existed or a
// call was running, every function returns YUSB_FORKED immediately, except those that free structures. If
// only C++ code used the library, the child must not call it at all.
//
// Out of memory. Functions return YUSB_OUT_OF_MEMORY. But a failed allocation terminates the process while an
// event is stored, while the device list is copied (in yusb_devices, in yusb_queue_open, and in the first
// yusb_start of a process whose C++ code has started the library), and while tables are built (for the first
// device that is returned).
//
// Time limits are in milliseconds: 0 does not wait, a negative limit waits forever. Signals do not interrupt
// a wait; for interruptible waits use yusb_queue_descriptor.
#ifndef YUSB_C_H_
#define YUSB_C_H_

#include "yusb_c_devices.h"
#include "yusb_c_events.h"

#endif  // YUSB_C_H_
