// A host that loads the library late and unloads it again. Not linked to any of ours.
#include <dlfcn.h>
#include <gtest/gtest.h>
#include <yusb.h>

#include <chrono>
#include <string>

namespace {

class listener : public yusb_device_event_interface {
 public:
  void on_device_event(const YUsbInfoDevice&, _yusb_device_event) override {}
};

template <typename Function>
Function* find(void* library, const char* mangled) {
  void* const found = dlsym(library, mangled);
  EXPECT_NE(found, nullptr) << mangled;
  return reinterpret_cast<Function*>(found);
}

bool is_loaded() {
  void* const library = dlopen(YUSB_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
  if (library != nullptr) dlclose(library);
  return library != nullptr;
}

}  // namespace

TEST(Unloading, LeavesNoThreadInCodeThatIsGone) {
  for (int i = 0; i < 1000; ++i) {
    void* const library = dlopen(YUSB_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    _yusb_context* context = nullptr;
    listener client;
    find<void()>(library, "_ZN4yusb17global_initializeEv")();
    EXPECT_TRUE(find<bool(_yusb_context**)>(library, "_ZN4yusb14context_createEPP13_yusb_context")(&context));
    EXPECT_TRUE(find<bool(_yusb_context*, yusb_device_event_interface*)>(
        library, "_ZN4yusb28context_notify_object_appendEP13_yusb_contextP27yusb_device_event_interface")(
        context, &client));
    find<void()>(library, "_ZN4yusb14global_releaseEv")();
    ASSERT_EQ(dlclose(library), 0);
  }
  // The loader keeps the library for as long as its thread is ending.
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (is_loaded() && std::chrono::steady_clock::now() < limit) {
  }
  EXPECT_FALSE(is_loaded());
}
