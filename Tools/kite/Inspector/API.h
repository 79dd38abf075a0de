#pragma once

#include "Inspector/Call.h"

#include "Collector/Fault.h"
#include "Collector/Store/EventStore.h"

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

class Live;

/// What the inspector shows of.
struct Inspected {
  std::string database;  ///< the store's place
  std::string endpoint;  ///< where the collector is
  std::string ca;        ///< PEM file that clients must trust; empty when it is not known
  std::string key;       ///< that clients sign with; never shown
  FaultQueue* faults;    ///< those still to come
  std::function<double()> clock;
};

/// The operations, on the server's thread.
struct API {
  const Inspected& inspected;
  EventReader& reader;
  Live& live;
};

struct Route {
  std::string_view method;
  std::string_view path;  ///< "{id}" stands for one part of it
  void (*handle)(API& api, const Call& call);
};
const std::vector<Route>& apiRoutes();

/// Finds the route and calls it. What it throws is for the caller to answer.
void callAPI(API& api, const Call& call);

void listEvents(API& api, const Call& call);
void showEvent(API& api, const Call& call);
void clearEvents(API& api, const Call& call);
void exportEvents(API& api, const Call& call);
void listRequests(API& api, const Call& call);
void showRequest(API& api, const Call& call);
void showBody(API& api, const Call& call);
void listSessions(API& api, const Call& call);
void listClients(API& api, const Call& call);
void summarize(API& api, const Call& call);
void listFaults(API& api, const Call& call);
void addFault(API& api, const Call& call);
void clearFaults(API& api, const Call& call);
void streamChanges(API& api, const Call& call);
void expectEvents(API& api, const Call& call);

}  // namespace kite::tool
