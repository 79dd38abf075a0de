#include "Expect/InspectorClient.h"

#include "Common/CommandFailure.h"
#include "Common/ParseJSON.h"

#include <curl/curl.h>
#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <memory>

namespace kite::tool {
namespace {

constexpr long longestConnect = 10;                    // seconds
constexpr std::size_t largestReply = 4 * 1024 * 1024;  // bytes

template <auto release>
struct Freed {
  template <class T>
  void operator()(T* object) const {
    release(object);
  }
};

std::size_t append(char* bytes, std::size_t size, std::size_t count, void* out) {
  auto& reply = *static_cast<std::string*>(out);
  if (reply.size() + size * count > largestReply) return 0;
  reply.append(bytes, size * count);
  return size * count;
}

std::string tokenIn(const std::string& query) {
  constexpr std::string_view name = "token=";
  const auto at = query.find(name);
  if (at == std::string::npos) return "";
  const auto begin = at + name.size();
  return query.substr(begin, query.find('&', begin) - begin);
}

std::string errorIn(const std::string& reply) {
  const auto json = parseJSON(reply);
  const auto* members = json ? json->object() : nullptr;
  const auto* error = members ? members->at("error") : nullptr;
  return error && error->string() ? *error->string() : "no reason given";
}

}  // namespace

InspectorAddress readInspectorAddress(const std::string& url, const std::string& token) {
  constexpr std::string_view scheme = "http://";
  const auto end = std::min(url.find_first_of("/?", scheme.size()), url.size());
  if (!url.starts_with(scheme) || end == scheme.size()) {
    throw CLI::ValidationError(fmt::format(
        "--url: \"{}\" is no http:// address; give the one that kite collect --inspect prints",
        url));
  }
  InspectorAddress address{.root = url.substr(0, end),
                           .token = token.empty() ? tokenIn(url.substr(end)) : token};
  if (address.token.empty()) {
    throw CLI::ValidationError("the address carries no token; give --token-file");
  }
  return address;
}

JSONValue postJSON(const InspectorAddress& address, std::string_view path, const std::string& json,
                   double seconds) {
  const std::unique_ptr<CURL, Freed<curl_easy_cleanup>> curl(curl_easy_init());
  const std::string url = fmt::format("{}{}", address.root, path);
  const std::unique_ptr<curl_slist, Freed<curl_slist_free_all>> headers(curl_slist_append(
      curl_slist_append(nullptr, ("Authorization: Bearer " + address.token).c_str()),
      "Content-Type: application/json"));
  std::string reply;
  curl_easy_setopt(curl.get(), CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_PROTOCOLS_STR, "http");
  curl_easy_setopt(curl.get(), CURLOPT_NOPROXY, "*");
  curl_easy_setopt(curl.get(), CURLOPT_HTTPHEADER, headers.get());
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(json.size()));
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, json.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_CONNECTTIMEOUT, longestConnect);
  curl_easy_setopt(curl.get(), CURLOPT_TIMEOUT_MS, static_cast<long>(seconds * 1000));
  curl_easy_setopt(curl.get(), CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, append);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &reply);
  const CURLcode result = curl_easy_perform(curl.get());
  if (result != CURLE_OK) {
    throw CommandFailure(fmt::format("{}: {}", address.root, curl_easy_strerror(result)));
  }
  long status = 0;
  curl_easy_getinfo(curl.get(), CURLINFO_RESPONSE_CODE, &status);
  if (status != 200) {
    throw CommandFailure(fmt::format("the inspector answers {}: {}", status, errorIn(reply)));
  }
  auto parsed = parseJSON(reply);
  if (!parsed) throw CommandFailure("the inspector's answer is " + parsed.error());
  return *std::move(parsed);
}

}  // namespace kite::tool
