#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Fault.h"
#include "Collector/MetricsServer.h"
#include "Collector/RequestReport.h"
#include "Collector/Server/Certificates.h"
#include "Collector/Service.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace kite::tool {

class Inspector;

/// Seconds since 1970 by the system's clock.
double systemTime();

/// Where the inspector listens; port 0 picks one.
struct InspectAt {
  std::string host = "127.0.0.1";
  std::uint16_t port = 0;
  std::string tokenFile = "";  ///< file of its token, made when it is not there; else a new token
};

struct CollectorOptions {
  std::string listenHost = "127.0.0.1";
  std::uint16_t port = 0;  ///< 0 picks one
  std::string key;         ///< the secret that clients sign with
  std::string database;    ///< SQLite file, made when it is not there, or address of PostgreSQL
  CertificateSource certificate;
  std::vector<Fault> faults = {};
  /// Called on the collector's thread before each answer, when the events are stored already.
  std::function<void(const RequestReport&)> onRequest = nullptr;
  std::function<double()> clock = systemTime;  ///< called from any thread
  std::optional<InspectAt> inspect = std::nullopt;
  std::optional<MetricsAt> metrics = std::nullopt;
  std::size_t databaseConnections = 4;  ///< uploads that are stored at a time; a file takes one
};

/// Where a running collector is found.
struct CollectorAddress {
  std::string url;             ///< of the events endpoint
  std::string ca;              ///< PEM file that clients must trust; empty when it is not known
  std::string inspector = "";  ///< address of the page, with its token; empty without an inspector
  std::string metrics = "";    ///< address of the metrics; empty when they are not served
};

/// A collection service on a thread of its own. Its operations are for one thread at a time, but
/// `addFault` and `statistics`, which any thread may call while it runs.
class Collector {
 public:
  explicit Collector(CollectorOptions options);
  /// Stops.
  ~Collector();

  /// Listens once this returns; the error is one line. Call once.
  Result<CollectorAddress, std::string> start();
  /// Ends all connections and waits for the threads. A request that is being stored is answered;
  /// one that waits or is delayed is not stored.
  void stop();

  /// Adds a fault behind those that are still to come.
  void addFault(Fault fault);
  CollectorStatistics statistics() const;

 private:
  std::optional<std::string> makeService();
  std::optional<std::string> startInspector(const CollectorAddress& address);
  std::optional<std::string> startMetrics();

  CollectorOptions _options;
  std::shared_ptr<Service> _service;
  std::unique_ptr<HTTPServer> _server;
  std::unique_ptr<Inspector> _inspector;
  std::unique_ptr<HTTPServer> _metrics;
  std::thread _thread;
  std::thread _inspectorThread;
  std::thread _metricsThread;
};

}  // namespace kite::tool
