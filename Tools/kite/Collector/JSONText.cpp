#include "Collector/JSONText.h"

#include "JSON/JSONWriter.h"

namespace kite::tool {

std::string quotedJSON(std::string_view text) {
  std::string json;
  JSONWriter(json).string(text);
  return json;
}

std::string realJSON(double number) {
  std::string json;
  JSONWriter(json).number(number);
  return json;
}

std::string clipped(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xC0) == 0x80) --limit;
  return std::string(text.substr(0, limit)) + "…";
}

}  // namespace kite::tool
