#pragma once

#include <Kite/Platform/Larder.h>

#include "Events/EventText.h"
#include "Events/StoredEvent.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite {

/// Text that several events hold together.
using SharedText = std::shared_ptr<const std::string>;

/// An event on its way to the server, encoded once; the stored form and the wire form are joined
/// from the same pieces.
///
/// Holds the event's own text and, shared with its neighbours, the text about application and user.
/// An event that does not encode is held as it came, with the reason; of one that the disk has lost
/// only the identifier is known. Never changes.
class EncodedEvent final : public Larder::ElementText {
 public:
  /// `ownText` is the head, then the data; `userText` belongs between them, and is null when
  /// `ownText` is all of the text.
  EncodedEvent(std::string ownText, EventText::HeadLayout head, SharedText userText);
  EncodedEvent(StoredEvent event, EncodingError error);
  /// An event whose text is damaged.
  static std::shared_ptr<const EncodedEvent> lost(const UUID& id);

  std::string id() const;
  /// The identifier, when it is a UUID's canonical text and the stored form reads back as an event:
  /// what a list may know of the event without its text. Else zero.
  UUID tag() const;

  /// Why the event has no stored form, or null.
  const EncodingError* encodingError() const { return _failed ? &_failed->error : nullptr; }
  bool isLost() const { return !_failed && _ownText.empty(); }

  /// The stored form; nothing when the event does not encode.
  std::size_t size() const override {
    return _ownText.size() + (_userText ? _userText->size() : 0);
  }
  void appendTo(std::string& text) const override;

  /// Appends the event with this request timestamp in place of any of its own. On an error `out`
  /// keeps what was written before it.
  [[nodiscard]] std::optional<EncodingError> appendStamped(std::string& out,
                                                           double requestTimestamp) const;

  /// Whether the two hold one and the same text about application and user.
  bool sharesUserTextWith(const EncodedEvent& other) const { return _userText == other._userText; }

  /// The record again, decoded from the text.
  StoredEvent event() const;

 private:
  struct Failed {
    StoredEvent event;
    EncodingError error;
  };

  /// The identifier where it stands, unless it is written with escapes.
  std::optional<std::string_view> plainId() const;

  std::string _ownText;
  SharedText _userText;
  EventText::HeadLayout _head{};
  std::unique_ptr<const Failed> _failed;
  UUID _lostId;
};

using EventHandle = std::shared_ptr<const EncodedEvent>;

/// Events that travel together, oldest first.
using EventBatch = std::vector<EventHandle>;

}  // namespace kite
