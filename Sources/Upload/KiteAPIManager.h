#pragma once

#include <Kite/KiteURLSession.h>
#include <Kite/Platform/Larder.h>
#include <Kite/Platform/Whisker.h>
#include <Kite/Status.h>

#include "Queue/EventList.h"
#include "Upload/ServerError.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace kite {

struct APIManagerDependencies {
  URL baseURL;
  std::vector<URL> secondaryURLs;
  KiteURLSession urlSession;
  std::shared_ptr<Larder::KVStorage> kvStorage;
  bool isTestEnvironment;
  std::string lumoID;
  std::string kiteVersion;
  std::string wicketKey;
  std::string clientId;
  std::shared_ptr<Whisker> whisker;
};

/// Why a batch was not taken.
using UploadError = std::variant<TransportError, ServerError>;

/// For a person.
std::string describe(const UploadError& error);

/// Uploads one batch and says what became of it.
class KiteAPIManager {
 public:
  /// `success`: the batch is finished and may be removed; the report has an error all the same when
  /// nobody took it. Otherwise every endpoint failed and `error` is the last reason.
  using Callback =
      std::function<void(const EventBatch& events, bool success,
                         const std::optional<UploadError>& error, const UploadReport& report)>;

  virtual ~KiteAPIManager() = default;
  virtual void start(APIManagerDependencies dependencies) = 0;

  /// Returns at once. The callback runs exactly once, on a thread of the URL session's or on this
  /// one.
  virtual void send(EventBatch events, Callback callback) = 0;
};

}  // namespace kite
