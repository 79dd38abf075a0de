#include "Collector/Collector.h"

#include "Collector/HTTPSServer.h"

#include <fmt/format.h>
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

std::string urlOf(const std::string& host, std::uint16_t port) {
  const bool isAnyAddress = host == "0.0.0.0" || host == "::";
  const bool isIPv6 = host.find(':') != std::string::npos;
  const std::string shown = isAnyAddress ? "localhost" : isIPv6 ? "[" + host + "]" : host;
  return fmt::format("https://{}:{}{}", shown, port, eventsPath);
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
  auto database = EventDatabase::open(_options.database);
  if (!database) return Failure{database.error()};
  auto service = std::make_shared<Service>(ServiceOptions{.key = _options.key,
                                                          .database = *std::move(database),
                                                          .clock = _options.clock,
                                                          .report = _options.onRequest});
  for (const Fault& fault : _options.faults) service->addFault(fault);

  auto server =
      HTTPSServer::listen({.host = _options.listenHost,
                           .port = _options.port,
                           .certificate = certificate->files,
                           .handle = [service](ReceivedRequest request, Exchange& exchange) {
                             service->handle(std::move(request), exchange);
                           }});
  if (!server) return Failure{server.error()};
  _service = std::move(service);
  _server = *std::move(server);
  _thread = threadWithoutSignals([running = _server.get()] { running->run(); });
  return CollectorAddress{.url = urlOf(_options.listenHost, _server->port()),
                          .ca = certificate->ca};
}

void Collector::stop() {
  if (!_thread.joinable()) return;
  _server->stop();
  _thread.join();
  _server.reset();
}

void Collector::addFault(Fault fault) {
  if (_service) _service->addFault(std::move(fault));
}

CollectorStatistics Collector::statistics() const {
  return _service ? _service->statistics() : CollectorStatistics{};
}

}  // namespace kite::tool
