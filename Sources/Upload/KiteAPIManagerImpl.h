#pragma once

#include <Kite/Platform/Gzip.h>
#include <Kite/Platform/Larder.h>
#include <Kite/Platform/System.h>

#include "Base/Guarded.h"
#include "Base/Started.h"
#include "Upload/KiteAPIManager.h"
#include "Upload/ServerBody.h"
#include "Upload/ServerResponse.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <type_traits>

namespace kite {

/// Tries each endpoint at most once for a batch, beginning with the one that answered last.
///
/// A request holds its manager until it has completed, so that every callback runs.
class KiteAPIManagerImpl final : public KiteAPIManager,
                                 public std::enable_shared_from_this<KiteAPIManagerImpl> {
 public:
  static constexpr Larder::Key<double> deltaKey{"delta"};
  static constexpr Larder::Key<double> lastEventTimestampKey{"last_event_timestamp"};

  /// What a request ended with.
  struct Reply {
    std::optional<Data> responseData;
    std::optional<URLResponse> response;
    std::optional<TransportError> error;
    std::string endpoint = {};  ///< that was asked last
    bool wasAnswered = false;   ///< by this endpoint, or by one that was asked before
  };

  using Compress = std::function<Result<Data, GzipError>(std::string_view bytes, int level)>;
  explicit KiteAPIManagerImpl(System system = System::live(), Compress compress = gzipped);

  void start(APIManagerDependencies dependencies) override;
  void send(EventBatch events, Callback callback) override;

  /// The compressed body, stamped with `now` (seconds since 1970); null when nothing can be encoded
  /// or it cannot be compressed. Events that do not encode are left out and reported.
  std::shared_ptr<const Data> prepareBody(ServerBody body, double now) const;

  /// Reports the end of the last attempt. The server's reply when the batch was taken and the reply
  /// can be read.
  std::optional<ServerResponse> dataTaskCompletion(const EventBatch& events, const Reply& reply,
                                                   const Callback& callback);

  /// The endpoint that answered last; nothing before `start`, or when the answer did not tell.
  std::optional<URL> currentEndpoint() const { return _currentEndpoint.copy(); }

  /// Numbers of the server's, kept in the store for the next request.
  std::optional<double> delta() const { return number(deltaKey); }
  void setDelta(std::optional<double> value) { setNumber(deltaKey, value); }
  std::optional<double> lastEventTimestamp() const { return number(lastEventTimestampKey); }
  void setLastEventTimestamp(std::optional<double> value) {
    setNumber(lastEventTimestampKey, value);
  }

 private:
  struct Upload {
    EventBatch events;
    Callback callback;
  };
  using Endpoints = std::set<URL>;
  /// What the attempts at one endpoint after the other share.
  struct Attempts {
    std::shared_ptr<const Upload> upload;
    Endpoints left;
    bool wereAnswered = false;
  };

  static Endpoints endpoints(const APIManagerDependencies& dependencies);
  void tellIfInsecure(const URL& endpoint) const;
  void send(Attempts attempts, URL url);
  void complete(Attempts attempts, Reply reply);
  static std::uint64_t sentAmong(const EventBatch& events);
  UploadReport reportOf(const EventBatch& events, const Reply& reply,
                        const std::optional<UploadError>& error) const;
  URLRequest request(URL url, std::shared_ptr<const Data> body) const;
  EventBatch encodable(EventBatch events, double now) const;
  void report(const Whisker::DebugEvent& event) const;
  std::optional<double> number(Larder::Key<double> key) const;
  void setNumber(Larder::Key<double> key, std::optional<double> value);

  System _system;
  Compress _compress;
  Started<APIManagerDependencies> _dependencies{"Call start before using the APIManager",
                                                {"KiteAPIManagerImpl", "", 0}};
  Guarded<std::optional<URL>> _currentEndpoint;
};

static_assert(std::is_default_constructible_v<KiteAPIManagerImpl>);

}  // namespace kite
