#pragma once

#include <pthread.h>

#include <cstddef>
#include <functional>
#include <stdexcept>

namespace kite::test {

/// Runs the body on a thread with a stack of 512 kB, which recursion over a deep value overflows.
inline void onSmallStack(std::function<void()> body) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  constexpr std::size_t stackSize =
      4 * 512 * 1024;  // a sanitizer makes every frame several times as large
#else
  constexpr std::size_t stackSize = 512 * 1024;
#endif
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, stackSize);
  pthread_t thread;
  const auto run = [](void* argument) -> void* {
    (*static_cast<std::function<void()>*>(argument))();
    return nullptr;
  };
  if (pthread_create(&thread, &attributes, run, &body) != 0) throw std::runtime_error("no thread");
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

}  // namespace kite::test
