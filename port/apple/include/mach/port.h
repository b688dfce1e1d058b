#ifndef YORVAN_MACH_PORT_H_
#define YORVAN_MACH_PORT_H_

typedef unsigned int mach_port_t;

#define MACH_PORT_NULL 0

#endif  // YORVAN_MACH_PORT_H_
