#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Certificates.h"
#include "Collector/Fault.h"
#include "Collector/RequestReport.h"
#include "Collector/Service.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace kite::tool {

class HTTPSServer;

/// Seconds since 1970 by the system's clock.
double systemTime();

struct CollectorOptions {
  std::string listenHost = "127.0.0.1";
  std::uint16_t port = 0;  ///< 0 picks one
  std::string key;         ///< the secret that clients sign with
  std::string database;    ///< SQLite file, made when it is not there
  CertificateSource certificate;
  std::vector<Fault> faults = {};
  /// Called on the collector's thread before each answer, when the events are stored already.
  std::function<void(const RequestReport&)> onRequest = nullptr;
  std::function<double()> clock = systemTime;
};

/// Where a running collector is found.
struct CollectorAddress {
  std::string url;  ///< of the events endpoint
  std::string ca;   ///< PEM file that clients must trust; empty when it is not known
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
  /// Ends all connections and waits for the thread. A request that is being answered is stored or
  /// not, as ever; a delayed one is not.
  void stop();

  /// Adds a fault behind those that are still to come.
  void addFault(Fault fault);
  CollectorStatistics statistics() const;

 private:
  CollectorOptions _options;
  std::shared_ptr<Service> _service;
  std::unique_ptr<HTTPSServer> _server;
  std::thread _thread;
};

}  // namespace kite::tool
