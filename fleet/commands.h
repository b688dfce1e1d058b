#ifndef YUSB_FLEET_COMMANDS_H_
#define YUSB_FLEET_COMMANDS_H_

#include <string>

#include "loop.h"
#include "options.h"

namespace yusb::fleet {

// Each runs one command to its end and returns the exit status.
int run_agent(loop& loop, const options& chosen);
int run_list(loop& loop, const options& chosen);
int run_watch(loop& loop, const options& chosen);
int run_wait(loop& loop, const options& chosen);
int run_forget(loop& loop, const options& chosen);
int run_metrics(loop& loop, const options& chosen);

// Writes "yusb-fleet: MESSAGE" and a line end to standard error.
void complain(const std::string& message);

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_COMMANDS_H_
