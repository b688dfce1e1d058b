// The hook that runs before the library's calls to the system; see simulator::before_calls.
#ifndef YORVAN_PORT_APPLE_CALL_HOOK_H_
#define YORVAN_PORT_APPLE_CALL_HOOK_H_

namespace yusb::port {

// Runs the hook, if there is one. False if the call must fail.
bool before_call(const char* call);

}  // namespace yusb::port

#endif  // YORVAN_PORT_APPLE_CALL_HOOK_H_
