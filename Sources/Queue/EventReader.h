#pragma once

#include "Events/EncodedEvent.h"
#include "Events/EventEncoder.h"

#include <memory>
#include <string>
#include <string_view>

namespace kite {

/// Reads stored events back, one after the other.
///
/// Text in the form in which events are stored is checked and kept; other text is decoded and
/// encoded anew. Neighbours with the same user block share its text. Not for two threads at a time.
class EventReader {
 public:
  EventReader();
  ~EventReader();
  EventReader(const EventReader&) = delete;
  EventReader& operator=(const EventReader&) = delete;

  /// Null when the text is not an event.
  EventHandle read(std::string_view text);

 private:
  class Checker;

  EventHandle keepText(std::string_view text);
  EventHandle decode(std::string_view text);

  std::unique_ptr<Checker> _checker;
  SharedText _userText;
  EventEncoder _encoder;
};

}  // namespace kite
