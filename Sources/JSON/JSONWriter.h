#pragma once

#include <Kite/JSONValue.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite {

class KiteData;

/// Why a value has no JSON text.
struct EncodingError {
  std::vector<std::string>
      codingPath;  ///< keys, and positions as text, from the outermost down to the bad value
  std::string debugDescription;

  friend bool operator==(const EncodingError&, const EncodingError&) = default;
};

/// Containers may nest this deep in one encoded document.
inline constexpr int maximumEncodedDepth = 512;

/// Appends compact JSON text (RFC 8259) to a string, one value after the other, and puts the
/// commas.
///
/// A real always has a fraction or an exponent, and the shortest digits that read back as the same
/// number. A date is written as seconds since 2001-01-01T00:00:00Z. Text that is not UTF-8 is
/// repaired. Reals that are not finite have no text, nor has nesting deeper than
/// `maximumEncodedDepth`. After the first error nothing more is written. While a writer writes,
/// the string is longer than its text; nobody else may touch it until the writer is finished.
class JSONWriter {
 public:
  explicit JSONWriter(std::string& out) : _out(out), _place(out.data() + out.size()) {
    _open.reserve(8);
  }
  JSONWriter(const JSONWriter&) = delete;
  JSONWriter& operator=(const JSONWriter&) = delete;
  ~JSONWriter() { finish(); }

  void beginObject() { begin(/*isObject=*/true); }
  void endObject() { end(); }
  void beginArray() { begin(/*isObject=*/false); }
  void endArray() { end(); }
  /// Goes on within an object whose first members are written already, in this text or another.
  void resumeObject() { _open.push_back({.isObject = true, .count = 1, .key = {}}); }

  /// The name of the next member. It must not change until the member's value is written.
  void key(std::string_view name);

  void string(std::string_view text);
  void number(double number);
  void number(std::int64_t number);
  void boolean(bool flag);
  void null();
  /// Text that is JSON already.
  void raw(std::string_view json);
  void value(const JSONValue& json);
  void value(const JSONValue::Object& members);
  void value(const JSONValue::Array& elements);
  /// Its members by name; of equal names the last one counts.
  void value(const KiteData& data);

  /// How long the text is by now.
  std::size_t position() const { return static_cast<std::size_t>(_place - _out.data()); }
  /// The first error, or nothing.
  const std::optional<EncodingError>& error() const { return _error; }
  /// Ends the writing: cuts the string to the length of its text. The destructor does it where
  /// nobody did.
  const std::optional<EncodingError>& finish();

 private:
  struct Container {
    bool isObject;
    std::size_t count;     // of members or elements that have begun
    std::string_view key;  // of the last member
  };

  void begin(bool isObject);
  void end();
  bool beginValue();
  void putString(std::string_view text);
  void put(std::string_view text);
  void put(char character);
  char* room(std::size_t size);
  char* moreRoom(std::size_t size);
  void fail(const char* description);

  std::string& _out;  // longer than the text, so that room is made for many values at once
  char* _place;       // the end of the text
  std::vector<Container> _open;  // from the outermost to the innermost
  std::optional<EncodingError> _error;
};

/// Appends the text of one value. On an error `out` keeps what was written before it.
template <class Value>
[[nodiscard]] std::optional<EncodingError> appendJSON(std::string& out, const Value& value) {
  JSONWriter writer(out);
  writer.value(value);
  return writer.finish();
}

}  // namespace kite
