// The commands of the program. Each returns the exit status, and needs an initialised library. `scenario` is
// null unless a scenario plays on a simulated bus.
#ifndef YUSB_TOOLS_COMMANDS_H_
#define YUSB_TOOLS_COMMANDS_H_

#include "options.h"
#include "player.h"

namespace yusb::tool {

int list(const options& chosen);
int show(const options& chosen);
int watch(const options& chosen, player* scenario);
int wait(const options& chosen, player* scenario);

// Initialises the library, runs the chosen command, and releases the library.
int run(const options& chosen, player* scenario);

}  // namespace yusb::tool

#endif  // YUSB_TOOLS_COMMANDS_H_
