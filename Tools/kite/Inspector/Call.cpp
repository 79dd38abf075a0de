#include "Inspector/Call.h"

#include "Inspector/Access.h"

#include <fmt/format.h>

namespace kite::tool {

std::int64_t Call::number(const std::string& name, std::int64_t otherwise, std::int64_t least,
                          std::int64_t most) const {
  if (!target.members.contains(name)) return otherwise;
  const auto number = wholeNumber(target.member(name));
  if (!number || *number < least || *number > most) {
    throw APIError(400, fmt::format("{} is a whole number from {} to {}", name, least, most));
  }
  return *number;
}

Query Call::query() const {
  auto query = Query::parse(target.member("query"), now);
  if (!query) throw APIError(400, query.error());
  return *std::move(query);
}

void answerJSON(Exchange& exchange, std::string body) {
  Reply reply{
      .status = 200, .headers = {{"Content-Type", "application/json"}}, .body = std::move(body)};
  addSecurityHeaders(reply);
  exchange.answer(reply);
}

void answerError(Exchange& exchange, const std::exception& error) {
  const auto* refused = dynamic_cast<const APIError*>(&error);
  Reply reply = errorReply(refused ? refused->status() : 500, error.what());
  addSecurityHeaders(reply);
  exchange.answer(reply);
}

void runInSlices(Exchange& exchange, Step step) {
  try {
    const auto pause = step(exchange);
    if (!pause) return;
    exchange.later(*pause,
                   [step = std::move(step)](Exchange& waiting) { runInSlices(waiting, step); });
  } catch (const std::exception& error) {
    answerError(exchange, error);
  }
}

}  // namespace kite::tool
