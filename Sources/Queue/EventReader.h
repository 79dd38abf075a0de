#pragma once

#include "Events/EventEncoder.h"

#include <string_view>

namespace kite {

/// Makes events of their stored text, one after the other. Not for two threads at a time.
class EventReader {
 public:
  /// Of a text that was checked when it was written, and since by its checksum: it is kept as it
  /// is, and only its head is looked at.
  EventHandle readSaved(std::string_view text);
  /// Of any text; null when it is not an event. What is no part of an event is left out.
  EventHandle read(std::string_view text);
  EventHandle read(const JSONValue& json);

 private:
  EventEncoder _encoder;
};

}  // namespace kite
