#include "Collector/Collector.h"

#include "Collector/QuietThread.h"
#include "Collector/Store/PostgresAddress.h"
#include "Inspector/Inspector.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <ctime>

namespace kite::tool {
namespace {

/// As many as there are uploads that are stored at a time. The error is one line.
Result<std::vector<std::unique_ptr<EventStore>>, std::string> openStores(const std::string& place,
                                                                         std::size_t count) {
  std::vector<std::unique_ptr<EventStore>> stores;
  while (stores.size() < count) {
    auto store = openStore(place);
    if (!store) return Failure{store.error()};
    stores.push_back(*std::move(store));
  }
  return {std::move(stores)};
}

/// Readers do not take the processor from the intake. On Linux each thread has its own niceness.
void standBack() {
  const auto thread = static_cast<id_t>(::gettid());
  ::setpriority(PRIO_PROCESS, thread, ::getpriority(PRIO_PROCESS, thread) + 10);
}

/// Ends a server that was started, and its thread.
template <class Server>
void endServer(std::unique_ptr<Server>& server, std::thread& thread) {
  if (!thread.joinable()) return;
  server->stop();
  thread.join();
}

std::optional<std::string> unreadableFile(const std::vector<Fault>& faults) {
  for (const Fault& fault : faults) {
    const auto* file = std::get_if<faults::AnswerFile>(&fault.kind);
    if (file && ::access(file->path.c_str(), R_OK) != 0)
      return "cannot read " + file->path + ": " + std::strerror(errno);
  }
  return std::nullopt;
}

}  // namespace

double systemTime() {
  timespec now{};
  ::clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

Collector::Collector(CollectorOptions options) : _options(std::move(options)) {}

Collector::~Collector() { stop(); }

Result<CollectorAddress, std::string> Collector::start() {
  if (auto error = unreadableFile(_options.faults)) return Failure{*std::move(error)};
  auto certificate = provideCertificate(_options.certificate);
  if (!certificate) return Failure{certificate.error()};
  if (auto error = makeService()) return Failure{*std::move(error)};
  auto server = HTTPServer::listen(
      {.host = _options.listenHost,
       .port = _options.port,
       .certificate = certificate->files,
       .handle = [service = _service](ReceivedRequest request, Exchange& exchange) {
         service->handle(std::move(request), exchange);
       }});
  if (!server) return Failure{server.error()};
  _server = *std::move(server);
  _server->onWake([service = _service.get()] { service->finish(); });
  CollectorAddress address{.url = fmt::format("https://{}:{}{}", shownHost(_options.listenHost),
                                              _server->port(), eventsPath),
                           .ca = certificate->ca};
  if (_options.inspect) {
    if (auto error = startInspector(address)) return Failure{*std::move(error)};
    address.inspector = _inspector->url();
  }
  if (_options.metrics) {
    if (auto error = startMetrics()) return Failure{*std::move(error)};
    address.metrics = fmt::format("http://{}:{}{}", shownHost(_options.metrics->host),
                                  _metrics->port(), metricsPath);
  }
  _thread = quietThread([running = _server.get()] { running->run(); });
  return address;
}

std::optional<std::string> Collector::makeService() {
  ServiceOptions options{.key = _options.key,
                         .clock = _options.clock,
                         .report = _options.onRequest,
                         .changed =
                             [this](std::vector<RepeatedEvent> repeated) {
                               if (_inspector) _inspector->changed(std::move(repeated));
                             },
                         .wake = [this] { _server->wake(); }};
  const bool isShared = isPostgresAddress(_options.database);
  auto opened = openStores(_options.database, isShared ? _options.databaseConnections : 1);
  if (!opened) return opened.error();
  auto stores = *std::move(opened);
  // A file is written by one at a time, and soon: its only store needs no thread of its own.
  if (isShared) {
    options.pool = std::move(stores);
  } else {
    options.store = std::move(stores.front());
  }
  _service = std::make_shared<Service>(std::move(options));
  for (const Fault& fault : _options.faults) _service->faults().add(fault);
  return std::nullopt;
}

std::optional<std::string> Collector::startInspector(const CollectorAddress& address) {
  const auto& file = _options.inspect->tokenFile;
  const auto token =
      file.empty() ? Result<std::string, std::string>(makeToken()) : tokenOfFile(file);
  if (!token) return token.error();
  auto inspector = Inspector::listen({.host = _options.inspect->host,
                                      .port = _options.inspect->port,
                                      .token = *token,
                                      .inspected = {.database = _options.database,
                                                    .endpoint = address.url,
                                                    .ca = address.ca,
                                                    .key = _options.key,
                                                    .faults = &_service->faults(),
                                                    .clock = _options.clock}});
  if (!inspector) return inspector.error();
  _inspector = *std::move(inspector);
  _inspectorThread = quietThread([running = _inspector.get()] {
    standBack();
    running->run();
  });
  return std::nullopt;
}

std::optional<std::string> Collector::startMetrics() {
  auto server =
      listenForMetrics(*_options.metrics, [service = _service] { return service->metricsText(); });
  if (!server) return server.error();
  _metrics = *std::move(server);
  _metricsThread = quietThread([running = _metrics.get()] { running->run(); });
  return std::nullopt;
}

void Collector::stop() {
  if (_service) _service->stop();
  endServer(_server, _thread);
  endServer(_inspector, _inspectorThread);
  endServer(_metrics, _metricsThread);
  _server.reset();
  _inspector.reset();
  _metrics.reset();
}

void Collector::addFault(Fault fault) {
  if (_service) _service->faults().add(std::move(fault));
}

CollectorStatistics Collector::statistics() const {
  return _service ? _service->metrics().statistics() : CollectorStatistics{};
}

}  // namespace kite::tool
