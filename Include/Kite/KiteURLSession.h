#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Platform/URLSession.h>

#include <functional>
#include <memory>

namespace kite {

/// The one network operation that the library needs, replaceable by the host.
struct KITE_EXPORT KiteURLSession {
  std::function<std::shared_ptr<URLSessionDataTask>(URLRequest, URLSession::Completion)> dataTask;

  static KiteURLSession live(std::shared_ptr<URLSession> urlSession);
};

}  // namespace kite
