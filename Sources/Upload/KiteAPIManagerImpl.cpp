#include "Upload/KiteAPIManagerImpl.h"

#include "Base/CatchingBadAlloc.h"
#include "Events/WhiskerEvents.h"
#include "Profile/TypedStorage.h"
#include "Upload/Headers.h"

#include <algorithm>
#include <string>
#include <utility>
#include <variant>

namespace kite {
namespace {

constexpr double timeoutSeconds = 60;
constexpr SourceLocation bodyPreparation{"Sources/Core/APIManager/KiteAPIManagerImpl",
                                         "prepareBody(events:now:delta:lastEventTimestamp:)", 0};

bool isAccepted(int statusCode) { return statusCode >= 200 && statusCode <= 299; }

bool isSuccess(const KiteAPIManagerImpl::Reply& reply) {
  return !reply.error && reply.response && reply.response->statusCode &&
         isAccepted(*reply.response->statusCode);
}

ServerError serverError(const std::optional<Data>& responseData, int statusCode) {
  const auto body = responseData ? decodeServerErrorBody(responseData->bytes) : std::nullopt;
  const auto known = body ? ServerError::from(*body, statusCode) : std::nullopt;
  return known.value_or(ServerError{ServerError::Unknown{statusCode}});
}

Whisker::DebugEvent gzipFailure(const GzipError& error) {
  return {.severity = Whisker::Severity::warning,
          .categories = {"gzip_error"},
          .description = "Could not gzip the JSON encoded data",
          .errorCode = std::nullopt,
          .info = {{"error_message", error.message}}};
}

struct DescribeUpload {
  std::string operator()(const ServerError& error) const { return error.debugDescription(); }
  std::string operator()(const TransportError& error) const { return error.description; }
};

}  // namespace

std::string describe(const UploadError& error) { return std::visit(DescribeUpload{}, error); }

KiteAPIManagerImpl::KiteAPIManagerImpl(System system, Compress compress)
    : _system(std::move(system)), _compress(std::move(compress)) {}

void KiteAPIManagerImpl::start(APIManagerDependencies dependencies) {
  URL baseURL = dependencies.baseURL;
  for (const auto& endpoint : endpoints(dependencies)) tellIfInsecure(endpoint);
  _dependencies.set(std::move(dependencies));
  _currentEndpoint.set(std::move(baseURL));
}

KiteAPIManagerImpl::Endpoints KiteAPIManagerImpl::endpoints(
    const APIManagerDependencies& dependencies) {
  Endpoints all(dependencies.secondaryURLs.begin(), dependencies.secondaryURLs.end());
  all.insert(dependencies.baseURL);
  return all;
}

/// The others may be sound, so that the library works on.
void KiteAPIManagerImpl::tellIfInsecure(const URL& endpoint) const {
  if (endpoint.scheme() == "https") return;
  _system.print("[KITE] Nothing is sent to " + endpoint.origin() + ": an endpoint must be HTTPS");
}

void KiteAPIManagerImpl::send(EventBatch events, Callback callback) {
  const auto dependencies = _dependencies.get();
  auto availableEndpoints = endpoints(*dependencies);
  URL url = currentEndpoint().value_or(dependencies->baseURL);
  availableEndpoints.erase(url);
  send({std::make_shared<const Upload>(Upload{std::move(events), std::move(callback)}),
        std::move(availableEndpoints)},
       std::move(url));
}

void KiteAPIManagerImpl::send(Attempts attempts, URL url) {
  const auto upload = attempts.upload;
  auto body = prepareBody(
      {.delta = delta(), .lastEventTimestamp = lastEventTimestamp(), .events = upload->events},
      _system.now().secondsSince1970);
  // What cannot be encoded now never will be: it is dropped rather than tried for ever.
  if (!body) {
    const UploadReport report{.time = _system.now(),
                              .endpoint = {},
                              .error = "none of the events could be put into a request",
                              .events = upload->events.size()};
    return upload->callback(upload->events, true, std::nullopt, report);
  }
  auto completion = [self = shared_from_this(), attempts = std::move(attempts),
                     endpoint = url.origin()](auto data, auto response, auto error) {
    // For want of memory the batch stays where it is.
    catchingBadAlloc([&] {
      self->complete(attempts, {std::move(data), std::move(response), std::move(error), endpoint});
    });
  };
  const auto task = _dependencies->urlSession.dataTask(request(std::move(url), std::move(body)),
                                                       std::move(completion));
  task->resume();
}

URLRequest KiteAPIManagerImpl::request(URL url, std::shared_ptr<const Data> body) const {
  const auto dependencies = _dependencies.get();
  URLRequest request{.url = std::move(url),
                     .timeoutSeconds = timeoutSeconds,
                     .method = "POST",
                     .headerFields = {},
                     .body = std::move(body)};
  request.headerFields = computeHeaders({.from = request.headerFields,
                                         .clientId = dependencies->clientId,
                                         .isTestEnvironment = dependencies->isTestEnvironment,
                                         .lumoID = dependencies->lumoID,
                                         .version = dependencies->kiteVersion,
                                         .url = request.url,
                                         .body = request.body,
                                         .secret = dependencies->wicketKey,
                                         .wicketUUID = _system.randomUUID(),
                                         .now = _system.now()});
  return request;
}

void KiteAPIManagerImpl::complete(Attempts attempts, Reply reply) {
  attempts.wereAnswered |= !reply.error;
  if (!isSuccess(reply) && !attempts.left.empty()) {
    auto next = attempts.left.extract(attempts.left.begin());
    return send(std::move(attempts), std::move(next.value()));
  }
  reply.wasAnswered = attempts.wereAnswered;
  const auto& upload = *attempts.upload;
  const auto response = dataTaskCompletion(upload.events, reply, upload.callback);
  setDelta(response ? std::optional(response->delta) : std::nullopt);
  setLastEventTimestamp(response ? std::optional(response->lastEventTimestamp) : std::nullopt);
}

std::shared_ptr<const Data> KiteAPIManagerImpl::prepareBody(ServerBody body, double now) const {
  const auto lost = std::erase_if(body.events, [](const auto& event) { return event->isLost(); });
  if (body.events.empty() && lost > 0) return nullptr;
  auto text = body.text(now);
  if (!text) {
    body.events = encodable(std::move(body.events), now);
    if (body.events.empty()) return nullptr;
    text = body.text(now);
    if (!text) return nullptr;
  }
  auto compressed = _compress(*std::move(text), defaultGzipLevel);
  if (compressed) return std::make_shared<const Data>(*std::move(compressed));
  report(gzipFailure(compressed.error()));
  return nullptr;
}

EventBatch KiteAPIManagerImpl::encodable(EventBatch events, double now) const {
  std::string text;
  std::erase_if(events, [&](const auto& event) {
    text.clear();
    const auto error = event->appendStamped(text, now);
    if (error) report(WhiskerEvents::jsonEncodingError(event->event(), *error));
    return error.has_value();
  });
  return events;
}

void KiteAPIManagerImpl::report(const Whisker::DebugEvent& event) const {
  _dependencies->whisker->report(event, bodyPreparation);
}

std::optional<ServerResponse> KiteAPIManagerImpl::dataTaskCompletion(const EventBatch& events,
                                                                     const Reply& reply,
                                                                     const Callback& callback) {
  if (reply.error) {
    callback(events, false, *reply.error, reportOf(events, reply, *reply.error));
    _system.print("[KITE] Error detected: " + reply.error->description);
    return std::nullopt;
  }
  const auto statusCode = reply.response ? reply.response->statusCode : std::nullopt;
  if (statusCode && !isAccepted(*statusCode)) {
    const ServerError error = serverError(reply.responseData, *statusCode);
    _system.print("[KITE] Server Error: " + error.debugDescription());
    callback(events, false, error, reportOf(events, reply, error));
    return std::nullopt;
  }
  _system.print("[KITE] Events sent successfully to kite");
  _currentEndpoint.set(reply.response ? reply.response->url : std::nullopt);
  callback(events, true, std::nullopt, reportOf(events, reply, std::nullopt));
  return reply.responseData ? decodeServerResponse(reply.responseData->bytes) : std::nullopt;
}

std::uint64_t KiteAPIManagerImpl::sentAmong(const EventBatch& events) {
  return static_cast<std::uint64_t>(std::ranges::count_if(
      events, [](const auto& event) { return !event->isLost() && !event->encodingError(); }));
}

UploadReport KiteAPIManagerImpl::reportOf(const EventBatch& events, const Reply& reply,
                                          const std::optional<UploadError>& error) const {
  return {.time = _system.now(),
          .endpoint = reply.endpoint,
          .statusCode = reply.response ? reply.response->statusCode : std::nullopt,
          .error = error ? std::optional(describe(*error)) : std::nullopt,
          .isUnreachable = error && !reply.wasAnswered,
          .events = sentAmong(events)};
}

std::optional<double> KiteAPIManagerImpl::number(Larder::Key<double> key) const {
  const auto stored = load(*_dependencies->kvStorage, key);
  return stored ? std::optional(*stored) : std::nullopt;
}

void KiteAPIManagerImpl::setNumber(Larder::Key<double> key, std::optional<double> value) {
  const auto store = _dependencies->kvStorage;
  value ? save(*store, key, *value) : store->remove(key.name);
}

}  // namespace kite
