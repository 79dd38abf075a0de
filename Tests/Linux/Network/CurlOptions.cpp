#include "Linux/Network/CurlOptions.h"

#include <atomic>
#include <cstdarg>

namespace {

constexpr int none = -1;
std::atomic<int> watchedOption = none;
std::atomic<long> latestValue = -1;

}  // namespace

// The linker sends every call of `curl_easy_setopt` here.
CURLcode setOption(CURL* handle, int option, ...) asm("__real_curl_easy_setopt");
CURLcode watchedSetOption(CURL* handle, int option, ...) asm("__wrap_curl_easy_setopt");

CURLcode watchedSetOption(CURL* handle, int option, ...) {
  va_list arguments;
  va_start(arguments, option);
  // Numbers and pointers alike: on the platforms of the tests all are as large as a pointer.
  void* const value = va_arg(arguments, void*);
  va_end(arguments);
  if (option == watchedOption) latestValue = reinterpret_cast<long>(value);
  return setOption(handle, option, value);
}

kite::test::WatchedCurlOption::WatchedCurlOption(CURLoption option) {
  latestValue = -1;
  watchedOption = option;
}
kite::test::WatchedCurlOption::~WatchedCurlOption() { watchedOption = none; }

long kite::test::WatchedCurlOption::value() const { return latestValue; }
