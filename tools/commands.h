#ifndef YUSB_TOOLS_COMMANDS_H_
#define YUSB_TOOLS_COMMANDS_H_

#include "options.h"
#include "player.h"

namespace yusb::tool {

// Runs the chosen command and returns the exit status. Initialises and releases the library. `scenario` is
// null unless a scenario plays on a simulated bus.
int run(const options& chosen, player* scenario);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_COMMANDS_H_
