#ifndef YORVAN_PORT_BUS_NO_DESTRUCTOR_H_
#define YORVAN_PORT_BUS_NO_DESTRUCTOR_H_

namespace yusb::port {

// Static memory that is never destroyed, for a host may exit while the monitor thread runs. What it holds
// must own no heap memory once it is empty, for a host may also unload the library, again and again.
template <typename T>
union no_destructor {
  no_destructor() : value() {}
  ~no_destructor() {}
  T value;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_NO_DESTRUCTOR_H_
