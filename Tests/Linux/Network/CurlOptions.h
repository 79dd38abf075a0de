#pragma once

#include <curl/curl.h>

namespace kite::test {

/// Notes what libcurl is told under one option that takes a `long`, on any thread, since it was
/// named. One at a time.
class WatchedCurlOption {
 public:
  explicit WatchedCurlOption(CURLoption option);
  ~WatchedCurlOption();
  WatchedCurlOption(const WatchedCurlOption&) = delete;
  WatchedCurlOption& operator=(const WatchedCurlOption&) = delete;

  /// The latest value, or -1.
  long value() const;
};

}  // namespace kite::test
