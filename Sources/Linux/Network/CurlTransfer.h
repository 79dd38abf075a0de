#pragma once

#include <Kite/Platform/URLSession.h>

#include <curl/curl.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kite::Linux {

/// A request and its completion.
struct Exchange {
  URLRequest request;
  URLSession::Completion completion;
};

/// One exchange on its way through libcurl. Stays where it is: libcurl points into it.
class CurlTransfer {
 public:
  explicit CurlTransfer(Exchange exchange);
  CurlTransfer(const CurlTransfer&) = delete;
  CurlTransfer& operator=(const CurlTransfer&) = delete;

  /// Makes the handle ready to be performed; what is wrong with the request, if anything is.
  std::optional<std::string> prepare(const std::optional<std::filesystem::path>& caFile);

  /// When `handle` must be performed at the latest, so that it times out: libcurl by itself would
  /// begin to wait anew after each redirect.
  std::chrono::steady_clock::time_point deadline() const { return _deadline; }

  CURL* handle() const { return _handle.get(); }

  /// Tells the outcome of the performed handle.
  void finish(CURLcode outcome);
  /// Tells why there is none.
  void fail(std::string_view cause) const;

 private:
  struct Reply {
    std::optional<Data> body;
    std::optional<URLResponse> response;
    std::optional<TransportError> error;
  };

  template <class Value>
  void set(CURLoption option, Value value);
  std::optional<std::string> setUp(const std::optional<std::filesystem::path>& caFile);
  void setSecurity(const std::optional<std::filesystem::path>& caFile);
  void setMethodAndBody();
  void setHeaderFields();
  void setLimits();
  void addHeaderLine(const std::string& line);

  static std::size_t receiveBody(char* bytes, std::size_t, std::size_t size, void* self);
  static std::size_t receiveHeader(char* bytes, std::size_t, std::size_t size, void* self);

  Reply reply(CURLcode outcome);
  static Reply failure(std::string description);
  std::string named(std::string_view cause) const;
  void tell(Reply reply) const;
  bool isSentWhole() const;
  URLResponse response() const;
  std::string describe(CURLcode outcome) const;

  Exchange _exchange;
  std::unique_ptr<curl_slist, decltype(&curl_slist_free_all)> _headerLines;
  std::array<char, CURL_ERROR_SIZE> _detail{};
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> _handle;
  CURLcode _setUp = CURLE_OK;
  std::chrono::steady_clock::time_point _deadline;
  std::string _body;
  std::size_t _headerSize = 0;
  bool _isHeaderWhole = false;
  bool _isBodyTooLong = false;
  std::string_view _complaint;  ///< why we stopped the transfer ourselves
};

}  // namespace kite::Linux
