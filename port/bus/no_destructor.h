#ifndef YORVAN_PORT_BUS_NO_DESTRUCTOR_H_
#define YORVAN_PORT_BUS_NO_DESTRUCTOR_H_

namespace yusb::port {

// A static variable that is never destroyed, because a host may exit while the monitor thread runs. An empty
// value must own no heap memory, because a host may also load and unload the library repeatedly.
template <typename T>
union no_destructor {
  no_destructor() : value() {}
  ~no_destructor() {}
  T value;
};

}  // namespace yusb::port

#endif  // YORVAN_PORT_BUS_NO_DESTRUCTOR_H_
