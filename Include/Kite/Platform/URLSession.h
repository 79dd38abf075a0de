#pragma once

#include <Kite/Base/Data.h>
#include <Kite/Base/URL.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>

namespace kite {

using HeaderFields = std::map<std::string, std::string, std::less<>>;

struct URLRequest {
  URL url;
  double timeoutSeconds = 60;
  std::string method = "GET";
  HeaderFields headerFields;
  std::shared_ptr<const Data> body;  ///< null for none
};

struct URLResponse {
  std::optional<URL> url;         ///< where the answer came from, after redirects
  std::optional<int> statusCode;  ///< absent when the response is not an HTTP one
};

/// Why a request has no response.
struct TransportError {
  std::string description;  ///< names the endpoint, and nothing of its URL that may be secret

  friend bool operator==(const TransportError&, const TransportError&) = default;
};

/// A request that has been prepared.
class URLSessionDataTask {
 public:
  virtual ~URLSessionDataTask() = default;
  /// Sends it. Returns at once; later calls do nothing. May throw `std::bad_alloc`, and then sends
  /// nothing.
  virtual void resume() = 0;
};

/// Sends requests over HTTPS. Any thread may call it.
class URLSession {
 public:
  /// Gets a response and its body, or an error. A body that is too large to be taken gives the
  /// response alone: its status still counts. A success counts only once the whole request was
  /// sent, a refusal before that too.
  using Completion =
      std::function<void(std::optional<Data> body, std::optional<URLResponse> response,
                         std::optional<TransportError> error)>;

  virtual ~URLSession() = default;

  /// `completion` runs exactly once after `resume`, on a thread of the session's; it must not
  /// throw.
  virtual std::shared_ptr<URLSessionDataTask> dataTask(URLRequest request,
                                                       Completion completion) = 0;
};

}  // namespace kite
