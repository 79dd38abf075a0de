#pragma once

#include <string>

namespace kite::tool {

/// A loopback port that refuses connections, held so that nobody else begins to listen on it.
class ClosedPort {
 public:
  ClosedPort();
  ~ClosedPort();
  ClosedPort(const ClosedPort&) = delete;
  ClosedPort& operator=(const ClosedPort&) = delete;

  std::string url() const;

 private:
  int _socket;
};

}  // namespace kite::tool
