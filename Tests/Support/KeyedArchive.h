#pragma once

#include <Kite/Base/Data.h>

#include <string>
#include <utility>
#include <vector>

namespace kite::test {

/// One entry of a dictionary that is kept: its key as text, its value as a property-list element.
using ArchivedEntry = std::pair<std::string, std::string>;

/// A property list, as XML, whose root is a dictionary of these entries in this order.
inline Data propertyList(const std::vector<ArchivedEntry>& entries) {
  std::string document = "<plist version=\"1.0\"><dict>";
  for (const auto& [key, value] : entries) document += "<key>" + key + "</key>" + value;
  return {document + "</dict></plist>\n"};
}

/// A keyed archive, as XML, whose root object is a dictionary of these entries in this order.
inline std::string keyedArchive(const std::vector<ArchivedEntry>& entries) {
  const auto reference = [](std::size_t index) {
    return "<dict><key>CF$UID</key><integer>" + std::to_string(index) + "</integer></dict>";
  };
  constexpr std::size_t firstEntry = 3;
  std::string keys, values, objects;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    keys += reference(firstEntry + 2 * i);
    values += reference(firstEntry + 2 * i + 1);
    objects += "<string>" + entries[i].first + "</string>" + entries[i].second;
  }
  return R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
<key>$archiver</key><string>NSKeyedArchiver</string>
<key>$version</key><integer>100000</integer>
<key>$top</key><dict><key>root</key>)" +
         reference(1) + R"(</dict>
<key>$objects</key><array>
<string>$null</string>
<dict><key>$class</key>)" +
         reference(2) + "<key>NS.keys</key><array>" + keys +
         "</array><key>NS.objects</key><array>" + values + R"(</array></dict>
<dict><key>$classname</key><string>NSDictionary</string>
<key>$classes</key><array><string>NSDictionary</string><string>NSObject</string></array></dict>
)" + objects +
         "</array></dict></plist>\n";
}

}  // namespace kite::test
