#pragma once

typedef unsigned int mach_port_t;
#define MACH_PORT_NULL 0
