#include "Common/ReadFile.h"
#include "Inspector/API.h"
#include "Tool/Inspector/InspectedCollector.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cctype>
#include <set>

namespace kite::test {
namespace {

const JSONValue& theFile() {
  static const JSONValue file =
      *tool::parseJSON(tool::readFile(KITE_SOURCE "/Docs/inspector.openapi.json"));
  return file;
}

const JSONValue* at(const JSONValue* value, const std::vector<std::string>& path) {
  for (const std::string& name : path) {
    const auto* members = value ? value->object() : nullptr;
    value = members ? members->at(name) : nullptr;
  }
  return value;
}

std::string upperCased(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

/// "GET /api/events" and so on, with what the file says of each.
std::map<std::string, const JSONValue*> describedOperations() {
  std::map<std::string, const JSONValue*> found;
  for (const auto& [path, methods] : *at(&theFile(), {"paths"})->object()) {
    for (const auto& [method, operation] : *methods.object()) {
      found[upperCased(method) + " " + path] = &operation;
    }
  }
  return found;
}

bool isOfType(const JSONValue& value, const std::string& type) {
  if (type == "object") return value.object() != nullptr;
  if (type == "array") return value.array() != nullptr;
  if (type == "string") return value.string() != nullptr;
  if (type == "integer") return value.integer() != nullptr;
  if (type == "number") return value.real() != nullptr || value.integer() != nullptr;
  if (type == "boolean") return value.boolean() != nullptr;
  return type == "null" && value.isNull();
}

bool isOfTypes(const JSONValue& value, const JSONValue& type) {
  if (const auto* one = type.string()) return isOfType(value, *one);
  return std::ranges::any_of(
      *type.array(), [&value](const JSONValue& each) { return isOfType(value, *each.string()); });
}

/// What of the value is otherwise than the schema says, by its path; members that the schema does
/// not name among it.
void compare(const JSONValue& value, const JSONValue& schema, const std::string& path,
             std::vector<std::string>& differences) {
  if (const auto* reference = at(&schema, {"$ref"})) {
    const std::string& name = *reference->string();
    const auto* target =
        at(&theFile(), {"components", "schemas", name.substr(name.rfind('/') + 1)});
    if (!target) return differences.push_back(path + ": there is no schema " + name);
    return compare(value, *target, path, differences);
  }
  if (!isOfTypes(value, *at(&schema, {"type"}))) return differences.push_back(path + ": its type");
  const auto* properties = at(&schema, {"properties"});
  if (const auto* members = value.object(); members && properties) {
    for (const auto& [name, property] : *properties->object()) {
      const auto* member = members->at(name);
      if (member) compare(*member, property, path + "." + name, differences);
      if (!member) differences.push_back(path + "." + name + ": it is missing");
    }
    for (const auto& [name, member] : *members) {
      if (!properties->object()->at(name)) differences.push_back(path + "." + name + ": unknown");
    }
  }
  const auto* items = at(&schema, {"items"});
  if (const auto* elements = value.array(); elements && items) {
    for (const JSONValue& each : *elements) compare(each, *items, path + "[]", differences);
  }
}

class OpenAPI : public InspectedCollector {
 protected:
  OpenAPI() {
    upload({anAction("buy", 1), anAction("look", 2)});
    auto request = aRequest("[1]", nextRequestID());
    client->post(request);
    request = aRequest(aBody({aCustomEvent()}), nextRequestID());
    header(request, "Wicket-Signature").value = "00";
    client->post(request, Sign::no);
    upload({anEvent("Session", R"({"subtype":"session_start"})", anotherID)});
    collector->addFault(*tool::parseFault("status:503"));
  }

  Answer call(const std::string& operation) {
    const auto blank = operation.find(' ');
    const std::string method = operation.substr(0, blank);
    std::string path = operation.substr(blank + 1);
    if (path.starts_with("/api/events/")) path = "/api/events/" + numbered(anID, 1);
    if (path.starts_with("/api/requests/{id}")) path = replaced(path, "{id}", "2");
    if (path == "/api/expect") return ask(method, path, R"({"match":"name:bought"})");
    if (method == "POST") return ask(method, path, R"({"fault":"reset"})");
    return ask(method, path);
  }
};

TEST(OpenAPIFile, describesEveryRouteAndNoOther) {
  std::set<std::string> routes;
  for (const tool::Route& route : tool::apiRoutes()) {
    routes.insert(std::string(route.method) + " " + std::string(route.path));
  }
  std::set<std::string> described;
  for (const auto& [operation, description] : describedOperations()) described.insert(operation);
  EXPECT_EQ(described, routes);
}

TEST_F(OpenAPI, saysWhatTheServerAnswers) {
  for (const auto& [operation, description] : describedOperations()) {
    if (operation == "GET /api/stream" || operation == "DELETE /api/events") continue;
    const Answer answer = call(operation);
    EXPECT_EQ(answer.status, 200) << operation << ": " << answer.body;
    const auto* content = at(description, {"responses", "200", "content"});
    std::string type = answer.headers.at("content-type");
    type = type.substr(0, type.find(';'));
    ASSERT_TRUE(content && content->object()->at(type)) << operation << ": " << type;
    const auto* schema = at(content, {type, "schema"});
    if (!schema) continue;
    const auto parsed = tool::parseJSON(answer.body);
    ASSERT_TRUE(parsed) << operation;
    std::vector<std::string> differences;
    compare(*parsed, *schema, operation, differences);
    EXPECT_THAT(differences, ::testing::IsEmpty());
  }
}

TEST_F(OpenAPI, saysWhatAClearingAnswers) {
  std::vector<std::string> differences;
  compare(json(call("DELETE /api/events")).value(),
          *at(&theFile(), {"components", "schemas", "Deleted"}), "", differences);
  EXPECT_THAT(differences, ::testing::IsEmpty());
}

TEST_F(OpenAPI, saysWhatAStreamIs) {
  PlainConnection stream(port);
  stream.send(requestText("GET", "/api/stream", ownHeaders()));
  const auto* content = at(describedOperations().at("GET /api/stream"),
                           {"responses", "200", "content", "text/event-stream"});
  EXPECT_TRUE(content);
  EXPECT_THAT(stream.receiveUntil("\r\n\r\n"), ::testing::HasSubstr("text/event-stream"));
}

TEST_F(OpenAPI, saysHowStrangersAndErrorsAreAnswered) {
  const auto* schema = at(&theFile(), {"components", "schemas", "Error"});
  for (const auto& [operation, description] : describedOperations()) {
    const auto blank = operation.find(' ');
    const auto answer = ask(operation.substr(0, blank), operation.substr(blank + 1),
                            {"Host: 127.0.0.1:" + std::to_string(port), "Connection: close"}, " ");
    EXPECT_EQ(answer.status, 401) << operation;
    EXPECT_TRUE(at(description, {"responses", "401"})) << operation;
    std::vector<std::string> differences;
    compare(json(answer, 401).value(), *schema, operation, differences);
    EXPECT_THAT(differences, ::testing::IsEmpty());
  }
}

TEST_F(OpenAPI, namesTheMembersThatAreTaken) {
  for (const auto& [operation, description] : describedOperations()) {
    const auto* parameters = at(description, {"parameters"});
    ASSERT_TRUE(parameters) << operation;
    for (const JSONValue& each : *parameters->array()) {
      if (*at(&each, {"name"})->string() != "limit") continue;
      const std::string path = operation.substr(operation.find(' ') + 1);
      EXPECT_EQ(ask("GET", path + "?limit=0").status, 400) << operation;
      EXPECT_TRUE(at(description, {"responses", "400"})) << operation;
    }
  }
}

}  // namespace
}  // namespace kite::test
