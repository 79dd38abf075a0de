#include "Collector/Collector.h"

#include "Inspector/Inspector.h"

#include <fmt/format.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <ctime>

namespace kite::tool {
namespace {

/// Signals are the process's business; and a client that is gone must not end the process.
std::thread threadWithoutSignals(std::function<void()> body) {
  sigset_t all{};
  sigset_t before{};
  ::sigfillset(&all);
  ::pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread(std::move(body));
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
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
    if (file && ::access(file->path.c_str(), R_OK) != 0) return "cannot read " + file->path;
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
  auto store = openStore(_options.database);
  if (!store) return Failure{store.error()};
  _service = std::make_shared<Service>(
      ServiceOptions{.key = _options.key,
                     .store = *std::move(store),
                     .clock = _options.clock,
                     .report = _options.onRequest,
                     .changed = [this](std::vector<RepeatedEvent> repeated) {
                       if (_inspector) _inspector->changed(std::move(repeated));
                     }});
  for (const Fault& fault : _options.faults) _service->faults().add(fault);

  auto server = HTTPServer::listen(
      {.host = _options.listenHost,
       .port = _options.port,
       .certificate = certificate->files,
       .handle = [service = _service](ReceivedRequest request, Exchange& exchange) {
         service->handle(std::move(request), exchange);
       }});
  if (!server) return Failure{server.error()};
  _server = *std::move(server);
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
  _thread = threadWithoutSignals([running = _server.get()] { running->run(); });
  return address;
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
  _inspectorThread = threadWithoutSignals([running = _inspector.get()] {
    standBack();
    running->run();
  });
  return std::nullopt;
}

std::optional<std::string> Collector::startMetrics() {
  auto server = listenForMetrics(*_options.metrics,
                                 [service = _service] { return service->metrics().text(); });
  if (!server) return server.error();
  _metrics = *std::move(server);
  _metricsThread = threadWithoutSignals([running = _metrics.get()] { running->run(); });
  return std::nullopt;
}

void Collector::stop() {
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
