#include <YorvanCore/Yorvan.h>

#include <chrono>
#include <thread>

void Yorvan::msleep(unsigned milliseconds) noexcept {
  std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}
