#ifndef YUSB_FLEET_COMMANDS_H_
#define YUSB_FLEET_COMMANDS_H_

#include <string>

#include "options.h"

namespace yusb::fleet {

// Each runs one command to its end and returns the exit status.
int run_agent(const options& chosen);
int run_list(const options& chosen);
int run_watch(const options& chosen);
int run_wait(const options& chosen);
int run_forget(const options& chosen);
int run_metrics(const options& chosen);

// Writes "yusb-fleet: MESSAGE" and a line end to standard error.
void complain(const std::string& message);

}  // namespace yusb::fleet

#endif  // YUSB_FLEET_COMMANDS_H_
