// A host that loads the library late and unloads it again. Not linked to any of ours.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <chrono>

TEST(Unloading, LeavesNoThreadInCodeThatIsGone) {
  for (int i = 0; i < 1000; ++i) {
    void* const library = dlopen(YUSB_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << dlerror();
    for (const char* mangled : {"_ZN4yusb17global_initializeEv", "_ZN4yusb14global_releaseEv"}) {
      void* const found = dlsym(library, mangled);
      ASSERT_NE(found, nullptr) << mangled;
      reinterpret_cast<void (*)()>(found)();
    }
    ASSERT_EQ(dlclose(library), 0);
  }
  // The loader keeps the library for as long as its thread is ending.
  const auto is_loaded = [] {
    void* const library = dlopen(YUSB_LIBRARY, RTLD_NOW | RTLD_NOLOAD);
    return library != nullptr && dlclose(library) == 0;
  };
  const auto limit = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (is_loaded() && std::chrono::steady_clock::now() < limit) {
  }
  EXPECT_FALSE(is_loaded());
}
