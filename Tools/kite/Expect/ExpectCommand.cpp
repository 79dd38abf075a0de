#include "Expect/ExpectCommand.h"

#include "Common/CommandFailure.h"
#include "Common/ReadFile.h"
#include "Common/WriteJSON.h"
#include "Expect/InspectorClient.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

namespace kite::tool {
namespace {

constexpr double lookingThrough = 30;  // seconds for the inspector to look through what it has

struct ExpectOptions {
  std::string url;
  std::string tokenFile;
  std::string match;
  std::int64_t count = 1;
  double within = 10;
};

std::string tokenOf(const ExpectOptions& options) {
  if (options.tokenFile.empty()) return "";
  std::string token = readFile(options.tokenFile);
  token.erase(token.find_last_not_of(" \r\n") + 1);
  if (token.empty()) throw CommandFailure(options.tokenFile + " holds no token");
  return token;
}

const JSONValue& member(const JSONValue& value, std::string_view key) {
  static const JSONValue nothing;
  const auto* members = value.object();
  const auto* found = members ? members->at(key) : nullptr;
  return found ? *found : nothing;
}

std::string textIn(const JSONValue& value, std::string_view key) {
  const auto* text = member(value, key).string();
  return text ? *text : "";
}

/// One line: the event, and what is otherwise about it than was looked for.
void printMiss(const JSONValue& miss) {
  const JSONValue& event = member(miss, "event");
  const std::string name = textIn(event, "name");
  std::string line = fmt::format("  {}{} {}:", textIn(event, "type"),
                                 name.empty() ? "" : " " + toJSON(name), textIn(event, "id"));
  const auto* differences = member(miss, "differs").array();
  if (!differences) return;
  for (const JSONValue& each : *differences) {
    if (const auto* text = each.string()) line += (line.back() == ':' ? " " : "; ") + *text;
  }
  fmt::print("{}\n", line);
}

void runExpect(const ExpectOptions& options) {
  const auto address = readInspectorAddress(options.url, tokenOf(options));
  const std::string question = toJSON(JSONValue::Object{
      {"match", options.match}, {"count", options.count}, {"within", options.within}});
  const auto answer = postJSON(address, "/api/expect", question, options.within + lookingThrough);
  const auto* isMet = member(answer, "ok").boolean();
  const auto* matched = member(answer, "matched").integer();
  const auto* waited = member(answer, "waited").real();
  if (!isMet || !matched || !waited) throw CommandFailure("this is no inspector's answer");
  fmt::print("{} of {} events match after {:.2f} s\n", *matched, options.count, *waited);
  if (*isMet) return;
  const auto* nearest = member(answer, "nearest").array();
  if (nearest && !nearest->empty()) fmt::print("nearest:\n");
  for (std::size_t at = 0; nearest && at < nearest->size(); ++at) printMiss((*nearest)[at]);
  std::fflush(stdout);
  throw CLI::RuntimeError(1);
}

}  // namespace

CLI::App* addExpectCommand(CLI::App& parent) {
  const auto options = std::make_shared<ExpectOptions>();
  CLI::App* command = parent.add_subcommand(
      "expect", "Wait until a collector with an inspector has stored these events");
  command->add_option("--url", options->url, "The inspector's address, as the collector prints it")
      ->type_name("URL")
      ->required();
  command
      ->add_option("--token-file", options->tokenFile,
                   "File with the token, for an address that does not carry it")
      ->type_name("FILE");
  command->add_option("--match", options->match, "What to look for, as in the inspector's search")
      ->type_name("QUERY")
      ->required();
  command->add_option("--count", options->count, "How many events must match")
      ->type_name("N")
      ->check(CLI::Range(std::int64_t{1}, std::int64_t{1'000'000'000}).description(""))
      ->capture_default_str();
  command->add_option("--within", options->within, "How long to wait")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 3600.0).description(""))
      ->capture_default_str();
  command->callback([options] { runExpect(*options); });
  return command;
}

}  // namespace kite::tool
