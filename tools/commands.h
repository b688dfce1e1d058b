#ifndef YUSB_TOOLS_COMMANDS_H_
#define YUSB_TOOLS_COMMANDS_H_

#include "options.h"
#include "player.h"

namespace yusb::tool {

// Runs the chosen command on the library, which it initialises and releases, and returns the exit status.
// `scenario` is what plays on a simulated bus, or null.
int run(const options& chosen, player* scenario);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_COMMANDS_H_
