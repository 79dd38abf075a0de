#pragma once

#include "Collector/Collector.h"
#include "Tool/CollectorRequests.h"

#include <curl/curl.h>

#include <array>
#include <cstdint>
#include <string>
#include <utility>

namespace kite::test {

/// What libcurl made of one request.
struct Fetched {
  CURLcode result = CURLE_OK;
  std::string error;
  long status = 0;
  std::string body;
  std::string location;
  std::int64_t microseconds = 0;
};

enum class Sign { yes, no };

/// One libcurl handle; its requests share connections.
class Client {
 public:
  explicit Client(tool::CollectorAddress address)
      : _address(std::move(address)), _curl(curl_easy_init()) {}
  ~Client() { curl_easy_cleanup(_curl); }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  Fetched get(const std::string& path) {
    curl_easy_reset(_curl);
    return fetch(root() + path);
  }

  /// Sends the request as it is but for its host, and signs it for that unless it is told not to.
  Fetched post(tool::ReceivedRequest request, Sign signing = Sign::yes) {
    curl_easy_reset(_curl);
    header(request, "Host").value = root().substr(std::string("https://").size());
    if (signing == Sign::yes) sign(request);
    curl_slist* headers = curl_slist_append(nullptr, "Expect:");
    for (const auto& [name, value] : request.headers) {
      headers = curl_slist_append(headers, (name + ": " + value).c_str());
    }
    curl_easy_setopt(_curl, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(_curl, CURLOPT_POSTFIELDSIZE_LARGE,
                     static_cast<curl_off_t>(request.body.size()));
    curl_easy_setopt(_curl, CURLOPT_POSTFIELDS, request.body.data());
    Fetched fetched = fetch(_address.url);
    curl_slist_free_all(headers);
    return fetched;
  }

  /// Connects and sends these bytes and nothing more; the connection stays.
  void send(const std::string& bytes) {
    curl_easy_reset(_curl);
    curl_easy_setopt(_curl, CURLOPT_CONNECT_ONLY, 1L);
    ASSERT_EQ(fetch(_address.url).result, CURLE_OK);
    std::size_t sent = 0;
    ASSERT_EQ(curl_easy_send(_curl, bytes.data(), bytes.size(), &sent), CURLE_OK);
    ASSERT_EQ(sent, bytes.size());
  }

  void allow(long least, long most) { _version = least | most; }

 private:
  std::string root() const { return _address.url.substr(0, _address.url.find("/v4/events")); }

  Fetched fetch(const std::string& url) {
    Fetched fetched;
    curl_easy_setopt(_curl, CURLOPT_URL, url.c_str());
    curl_easy_setopt(_curl, CURLOPT_CAINFO, _address.ca.c_str());
    curl_easy_setopt(_curl, CURLOPT_SSLVERSION, _version);
    curl_easy_setopt(_curl, CURLOPT_SSL_CIPHER_LIST, "ALL:@SECLEVEL=0");
    curl_easy_setopt(_curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(_curl, CURLOPT_NOPROXY, "*");
    curl_easy_setopt(_curl, CURLOPT_WRITEDATA, &fetched.body);
    curl_easy_setopt(_curl, CURLOPT_WRITEFUNCTION, append);
    std::array<char, CURL_ERROR_SIZE> error{};
    curl_easy_setopt(_curl, CURLOPT_ERRORBUFFER, error.data());
    fetched.result = curl_easy_perform(_curl);
    curl_easy_setopt(_curl, CURLOPT_ERRORBUFFER, nullptr);
    fetched.error = error.data();
    char* location = nullptr;
    curl_off_t time = 0;
    curl_easy_getinfo(_curl, CURLINFO_RESPONSE_CODE, &fetched.status);
    curl_easy_getinfo(_curl, CURLINFO_REDIRECT_URL, &location);
    curl_easy_getinfo(_curl, CURLINFO_TOTAL_TIME_T, &time);
    fetched.location = location ? location : "";
    fetched.microseconds = time;
    return fetched;
  }

  static std::size_t append(char* bytes, std::size_t size, std::size_t count, void* out) {
    static_cast<std::string*>(out)->append(bytes, size * count);
    return size * count;
  }

  tool::CollectorAddress _address;
  CURL* _curl;
  long _version = CURL_SSLVERSION_TLSv1_2;
};

}  // namespace kite::test
