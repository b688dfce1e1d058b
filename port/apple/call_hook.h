// The hook that runs before the library's calls to the system; see simulator::before_calls.
#ifndef YORVAN_PORT_APPLE_CALL_HOOK_H_
#define YORVAN_PORT_APPLE_CALL_HOOK_H_

#include <functional>

namespace yusb::port {

using call_hook = std::function<bool(const char* call)>;

// Runs the hook, if there is one. False if the call must fail.
bool before_call(const char* call);
void set_call_hook(call_hook hook);

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_CALL_HOOK_H_
