#include "Sessions/Session.h"

namespace kite {

JSONValue JSONCoding<Session>::encode(const Session& session) {
  JSONValue::Object members{{"id", session.id.text()},
                            {"start_date", session.startDate},
                            {"session_data", session.sessionData},
                            {"is_crashed", session.isCrashed},
                            {"duration", session.duration}};
  if (session.endDate) members.insertOrAssign("end_date", *session.endDate);
  return members;
}

std::optional<Session> JSONCoding<Session>::decode(const JSONValue& json) {
  RecordReader reader(json);
  return reader.whole(Session{.id = reader.required<UUID>("id"),
                              .startDate = reader.required<Date>("start_date"),
                              .sessionData = reader.required<JSONValue::Object>("session_data"),
                              .isCrashed = reader.required<bool>("is_crashed"),
                              .endDate = reader.optional<Date>("end_date"),
                              .duration = reader.required<double>("duration")});
}

}  // namespace kite
