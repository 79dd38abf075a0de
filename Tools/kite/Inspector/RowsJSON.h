#pragma once

#include "Collector/Fault.h"
#include "Collector/Store/Records.h"

#include <string>
#include <vector>

/// The inspector's records as JSON text.
namespace kite::tool {

std::string rowJSON(const EventRecord& event);
/// With all that the event holds, in one line.
std::string recordJSON(const EventRecord& event);
/// The same, and the user info of that client's event before it.
std::string detailJSON(const EventRecord& event, const std::optional<EventRecord>& before);
/// The line that makes `kite host` record the event, if one can.
std::optional<std::string> hostLine(const EventRecord& event);

std::string requestJSON(const RequestRecord& request);
std::string sessionJSON(const SessionRecord& session, const std::optional<SessionRecord>& before,
                        bool isOpen);
std::string clientJSON(const ClientRecord& client);
std::string repeatedJSON(const std::vector<RepeatedEvent>& repeated);
std::string faultsJSON(const std::vector<Fault>& faults);

}  // namespace kite::tool
