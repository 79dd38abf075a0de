#pragma once

#include "EndToEnd/Events.h"
#include "EndToEnd/Folder.h"
#include "EndToEnd/Processes.h"

#include <string>
#include <vector>

namespace kite::test {

/// A collection service with certificates of its own, for clients that sign with "secret".
class Collector {
 public:
  struct Options {
    Arguments faults = {};
    std::string certificates = {};  ///< folder of certificates to share, else its own
    std::string listen = "127.0.0.1:0";
  };

  Collector() : Collector(Options{}) {}
  explicit Collector(const Options& options);

  const std::string& url() const { return _url; }
  std::string ca() const { return _certificates + "/ca.pem"; }
  const std::string& certificates() const { return _certificates; }
  const std::string& database() const { return _database; }
  /// What it has accepted, in its order.
  std::vector<Event> events() const { return collected(_database); }
  std::vector<Request> requests() const;

 private:
  Folder _folder;
  std::string _certificates;
  std::string _database = _folder / "events.db";
  std::string _log = _folder / "requests";
  Process _process;
  std::string _url;
};

/// A loopback port that refuses connections for as long as the object lives.
class ClosedPort {
 public:
  ClosedPort();
  ~ClosedPort();
  ClosedPort(const ClosedPort&) = delete;
  ClosedPort& operator=(const ClosedPort&) = delete;

  std::string address() const;
  std::string url() const { return "https://" + address() + "/v4/events"; }

 protected:
  int _socket;
};

/// A loopback port that counts who connects, without TLS and without answers.
class SilentPort : public ClosedPort {
 public:
  SilentPort();
  bool sawConnection() const;
  std::string plainURL() const { return "http://" + address() + "/v4/events"; }
};

}  // namespace kite::test
