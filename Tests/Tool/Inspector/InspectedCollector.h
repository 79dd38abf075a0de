#pragma once

#include "Collector/Collector.h"
#include "Common/ParseJSON.h"
#include "Support/TemporaryFolder.h"
#include "Tool/CollectorClient.h"
#include "Tool/Inspector/PlainHTTP.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace kite::test {

/// A value that may be missing; what is looked for in it may be, too.
class Looked {
 public:
  explicit Looked(JSONValue value) : _value(std::move(value)) {}

  Looked operator[](std::string_view name) const {
    const auto* members = _value.object();
    const auto* found = members ? members->at(name) : nullptr;
    EXPECT_TRUE(found) << name << " is missing";
    return Looked(found ? *found : JSONValue());
  }
  Looked operator[](std::size_t index) const {
    const auto* elements = _value.array();
    const bool isThere = elements && index < elements->size();
    EXPECT_TRUE(isThere) << "there is no element " << index;
    return Looked(isThere ? (*elements)[index] : JSONValue());
  }
  std::size_t size() const { return _value.array() ? _value.array()->size() : 0; }
  const JSONValue& value() const { return _value; }
  std::string text() const { return _value.string() ? *_value.string() : "(no text)"; }
  std::int64_t integer() const { return _value.integer() ? *_value.integer() : -1; }

 private:
  JSONValue _value;
};

/// A collector with an inspector, whose clock stands at `now`.
class InspectedCollector : public ::testing::Test {
 protected:
  explicit InspectedCollector(const std::string& host = "127.0.0.1") {
    auto started = start(host);
    EXPECT_TRUE(started) << started.error();
    address = *started;
    client = std::make_unique<Client>(address);
    const auto& page = address.inspector;
    port = static_cast<std::uint16_t>(std::stoi(page.substr(page.rfind(':') + 1)));
    token = page.substr(page.rfind('=') + 1);
  }

  Fetched upload(const std::vector<std::string>& events) {
    return client->post(aRequest(aBody(events), nextRequestID()));
  }

  std::string nextRequestID() { return numbered(aRequestID, ++uploads); }

  PlainHeaders ownHeaders() const {
    return {"Host: 127.0.0.1:" + std::to_string(port), "Authorization: Bearer " + token,
            "Connection: close"};
  }

  Answer ask(const std::string& method, const std::string& target, const std::string& body = "") {
    return ask(method, target, ownHeaders(), body);
  }

  Answer ask(const std::string& method, const std::string& target, const PlainHeaders& headers,
             const std::string& body = "") const {
    PlainConnection connection(port);
    connection.send(requestText(method, target, headers, body));
    return parseAnswer(connection.receiveAll());
  }

  /// The JSON of an answer that is to be a success.
  Looked get(const std::string& target) { return json(ask("GET", target)); }

  static Looked json(const Answer& answer, int status = 200) {
    EXPECT_EQ(answer.status, status) << answer.body;
    EXPECT_EQ(answer.headers.at("content-type"), "application/json");
    const auto parsed = tool::parseJSON(answer.body);
    EXPECT_TRUE(parsed) << parsed.error() << ": " << answer.body;
    return Looked(parsed ? *parsed : JSONValue());
  }

  static std::string errorOf(const Answer& answer, int status) {
    return json(answer, status)["error"].text();
  }

  TemporaryFolder folder;
  tool::CollectorAddress address;
  std::uint16_t port = 0;
  std::string token;
  int uploads = 0;
  std::unique_ptr<Client> client;
  std::unique_ptr<tool::Collector> collector;

 private:
  Result<tool::CollectorAddress, std::string> start(const std::string& host) {
    collector = std::make_unique<tool::Collector>(
        tool::CollectorOptions{.key = key,
                               .database = folder.path() / "events.db",
                               .certificate = tool::SelfSignedFolder{certificates()},
                               .clock = [] { return now; },
                               .inspect = tool::InspectAt{.host = host}});
    return collector->start();
  }

  /// Made once for all tests of the process.
  static std::string certificates() {
    static const TemporaryFolder shared;
    return shared.path() / "tls";
  }
};

/// An action of that name; `number` makes its id.
inline std::string anAction(const std::string& name, int number,
                            const std::string& info = R"({"price":9.5})",
                            const std::string& session = "null") {
  return anEvent("UserAction",
                 R"({"action_kind":")" + name + R"(","action_info":)" + info +
                     R"(,"seconds_from_session_start":null,"session_id":)" + session +
                     R"(,"process_id":")" + anID +
                     R"(","last_foreground_session_id":null,"is_background_event":false})",
                 numbered(anID, number));
}

}  // namespace kite::test
