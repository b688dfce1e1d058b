// A host that loads the library late and unloads it. It is not linked to the project's libraries.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include <yusb.h>

struct listener : yusb_device_event_interface {
  void on_device_event(const YUsbInfoDevice&, _yusb_device_event) override {}
};

TEST(Unload, LeavesNoThreadInCodeThatIsGone) {
  for (int i = 0; i < 300; ++i) {
    void* const library = dlopen(YUSB_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    const auto call = [library](const char* mangled, auto... arguments) {
      void* const found = dlsym(library, mangled);
      ASSERT_NE(found, nullptr) << mangled;
      reinterpret_cast<void (*)(decltype(arguments)...)>(found)(arguments...);
    };
    listener client;
    _yusb_context* context = nullptr;
    call("_ZN4yusb17global_initializeEv");
    call("_ZN4yusb14context_createEPP13_yusb_context", &context);
    call("_ZN4yusb28context_notify_object_appendEP13_yusb_contextP27yusb_device_event_interface", context,
         static_cast<yusb_device_event_interface*>(&client));
    call("_ZN4yusb14global_releaseEv");
    ASSERT_EQ(dlclose(library), 0);
  }
  // The loader keeps the library mapped while its thread ends.
  const auto is_loaded = [] {
    void* const library = dlopen(YUSB_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
  };
  const auto limit = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (is_loaded() && std::chrono::steady_clock::now() < limit)
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  EXPECT_FALSE(is_loaded());
}
