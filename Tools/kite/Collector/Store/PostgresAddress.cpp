#include "Collector/Store/PostgresAddress.h"

#include "Collector/Store/EventStore.h"

#include <fmt/format.h>
#include <poll.h>

#include <algorithm>
#include <map>

namespace kite::tool {
namespace {

using Clock = std::chrono::steady_clock;

std::vector<std::string> splitAtCommas(const std::string& text) {
  std::vector<std::string> parts{""};
  for (const char letter : text) {
    if (letter == ',')
      parts.emplace_back();
    else
      parts.back() += letter;
  }
  return parts;
}

/// The part of that host; there may be one for all.
std::string partFor(std::size_t host, const std::vector<std::string>& parts) {
  return parts.size() == 1 ? parts[0] : host < parts.size() ? parts[host] : "";
}

std::map<std::string, std::string> settingsOf(const std::string& url) {
  char* error = nullptr;
  PQconninfoOption* options = PQconninfoParse(url.c_str(), &error);
  if (!options) {
    const std::string message = oneLine(error ? error : "out of memory");
    PQfreemem(error);
    throw StoreError(message);
  }
  std::map<std::string, std::string> settings;
  for (const auto* option = options; option->keyword; ++option) {
    if (option->val) settings[option->keyword] = option->val;
  }
  PQconninfoFree(options);
  return settings;
}

/// One of the connections that are being made.
struct Attempt {
  PostgresSession session;
  PostgresPollingStatusType wants = PGRES_POLLING_WRITING;
};

Attempt begin(const std::vector<std::pair<std::string, std::string>>& settings) {
  std::vector<const char*> keywords;
  std::vector<const char*> values;
  for (const auto& [keyword, value] : settings) {
    keywords.push_back(keyword.c_str());
    values.push_back(value.c_str());
  }
  keywords.push_back(nullptr);
  values.push_back(nullptr);
  Attempt attempt{.session = {PQconnectStartParams(keywords.data(), values.data(), 0), PQfinish}};
  if (!attempt.session) throw StoreAway("out of memory");
  if (PQstatus(attempt.session.get()) == CONNECTION_BAD) attempt.wants = PGRES_POLLING_FAILED;
  return attempt;
}

/// Waits until one of them can go on, and lets those go on that can; false when time is up.
bool advance(std::vector<Attempt>& attempts, Clock::time_point deadline) {
  std::vector<pollfd> sockets;
  for (const Attempt& attempt : attempts) {
    const short events = attempt.wants == PGRES_POLLING_READING ? POLLIN : POLLOUT;
    sockets.push_back({.fd = PQsocket(attempt.session.get()), .events = events, .revents = 0});
  }
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
  if (left.count() <= 0) return false;
  if (::poll(sockets.data(), sockets.size(), static_cast<int>(left.count())) == 0) return false;
  for (std::size_t i = 0; i < attempts.size(); ++i) {
    if (sockets[i].revents != 0) attempts[i].wants = PQconnectPoll(attempts[i].session.get());
  }
  return true;
}

void addReason(std::string& reasons, const std::string& reason) {
  if (reasons.find(reason) != std::string::npos) return;
  reasons += (reasons.empty() ? "" : "; ") + reason;
}

}  // namespace

bool isPostgresAddress(std::string_view place) {
  return place.starts_with("postgresql://") || place.starts_with("postgres://");
}

std::string withoutPassword(const std::string& place) {
  if (!isPostgresAddress(place)) return place;
  const auto user = place.find("://") + 3;
  const auto at = place.find('@', user);
  const auto colon = place.find(':', user);
  std::string shown = place;
  if (at != std::string::npos && colon < at) shown.erase(colon, at - colon);
  return shown.substr(0, shown.find('?'));
}

std::string oneLine(std::string_view message) {
  std::string line;
  for (const char letter : message) {
    const bool isSpace = letter == '\n' || letter == '\t' || letter == '\r' || letter == ' ';
    if (!isSpace)
      line += letter;
    else if (!line.empty() && line.back() != ' ')
      line += ' ';
  }
  if (line.ends_with(' ')) line.pop_back();
  return line;
}

PostgresAddress::PostgresAddress(const std::string& url) {
  auto settings = settingsOf(url);
  if (settings.contains("password")) {
    throw StoreError(
        "the address must not hold a password, which others see: use --db-password-file, "
        "PGPASSFILE or PGPASSWORD");
  }
  settings.try_emplace("application_name", "kite");
  settings["client_encoding"] = "UTF8";
  const auto names = splitAtCommas(settings["host"]);
  const auto addresses = splitAtCommas(settings["hostaddr"]);
  const auto ports = splitAtCommas(settings["port"]);
  for (std::size_t host = 0; host < std::max(names.size(), addresses.size()); ++host) {
    auto own = settings;
    own["host"] = partFor(host, names);
    own["hostaddr"] = partFor(host, addresses);
    own["port"] = partFor(host, ports);
    _hosts.emplace_back(own.begin(), own.end());
  }
}

PostgresSession PostgresAddress::connect(Clock::time_point deadline) const {
  std::string reasons;
  std::vector<Attempt> attempts;
  for (const Settings& host : _hosts) attempts.push_back(begin(host));
  while (!attempts.empty()) {
    for (Attempt& attempt : attempts) {
      if (attempt.wants == PGRES_POLLING_OK) return std::move(attempt.session);
      if (attempt.wants == PGRES_POLLING_FAILED) {
        addReason(reasons, oneLine(PQerrorMessage(attempt.session.get())));
      }
    }
    std::erase_if(attempts,
                  [](const Attempt& attempt) { return attempt.wants == PGRES_POLLING_FAILED; });
    if (!attempts.empty() && !advance(attempts, deadline)) {
      addReason(reasons, "no answer in time");
      break;
    }
  }
  throw StoreAway(reasons);
}

}  // namespace kite::tool
