#include "Linux/Network/CurlTransfer.h"

#include "Base/CatchingBadAlloc.h"

#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <utility>

namespace kite::Linux {
namespace {

constexpr long connectTimeoutSeconds = 15;
constexpr double defaultTimeoutSeconds = 60;
constexpr double longestTimeoutSeconds = 24 * 60 * 60;
constexpr long mostRedirects = 5;
constexpr std::size_t longestBody = 1024 * 1024;
constexpr std::size_t longestHeader = 256 * 1024;
constexpr const char* outOfMemory = "Out of memory";  // short enough to need none

long milliseconds(double timeoutSeconds) {
  const double seconds = timeoutSeconds > 0 ? timeoutSeconds : defaultTimeoutSeconds;
  return std::max(1L, static_cast<long>(std::min(seconds, longestTimeoutSeconds) * 1000));
}

// RFC 9110, "token".
bool isToken(std::string_view text) {
  constexpr std::string_view allowed =
      "!#$%&'*+-.^_`|~0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";
  return !text.empty() && text.find_first_not_of(allowed) == std::string_view::npos;
}

// A value that could end its line could smuggle in another header, or another request.
bool staysOnItsLine(std::string_view value) {
  constexpr std::string_view forbidden("\r\n\0", 3);
  return value.find_first_of(forbidden) == std::string_view::npos;
}

std::optional<std::string> fault(const URLRequest& request) {
  if (!isToken(request.method)) return "The request method is not a token";
  for (const auto& [name, value] : request.headerFields) {
    if (!isToken(name)) return "A header name is not a token";
    if (!staysOnItsLine(value)) return "The header " + name + " holds a line break";
  }
  return {};
}

bool hasField(const HeaderFields& fields, const char* name) {
  return std::any_of(fields.begin(), fields.end(), [name](const auto& field) {
    return strcasecmp(field.first.c_str(), name) == 0;
  });
}

// The host's child processes must not inherit the connections.
curl_socket_t openSocket(void*, curlsocktype, curl_sockaddr* address) {
  return ::socket(address->family, address->socktype | SOCK_CLOEXEC, address->protocol);
}

}  // namespace

CurlTransfer::CurlTransfer(Exchange exchange)
    : _exchange(std::move(exchange)),
      _headerLines(nullptr, &curl_slist_free_all),
      _handle(curl_easy_init(), &curl_easy_cleanup) {}

std::optional<std::string> CurlTransfer::prepare(
    const std::optional<std::filesystem::path>& caFile) {
  std::optional<std::string> found = outOfMemory;
  catchingBadAlloc([&] { found = setUp(caFile); });
  return found;
}

std::optional<std::string> CurlTransfer::setUp(const std::optional<std::filesystem::path>& caFile) {
  if (auto found = fault(_exchange.request)) return found;
  if (!_handle) return outOfMemory;
  set(CURLOPT_URL, _exchange.request.url.absoluteString().c_str());
  setSecurity(caFile);
  setMethodAndBody();
  setHeaderFields();
  setLimits();
  set(CURLOPT_WRITEFUNCTION, &receiveBody);
  set(CURLOPT_WRITEDATA, this);
  set(CURLOPT_HEADERFUNCTION, &receiveHeader);
  set(CURLOPT_HEADERDATA, this);
  set(CURLOPT_OPENSOCKETFUNCTION, &openSocket);
  set(CURLOPT_ERRORBUFFER, _detail.data());
  if (_setUp != CURLE_OK) return describe(_setUp);
  return {};
}

template <class Value>
void CurlTransfer::set(CURLoption option, Value value) {
  const auto code = curl_easy_setopt(_handle.get(), option, value);
  if (_setUp == CURLE_OK) _setUp = code;
}

void CurlTransfer::setSecurity(const std::optional<std::filesystem::path>& caFile) {
  set(CURLOPT_PROTOCOLS_STR, "https");
  set(CURLOPT_REDIR_PROTOCOLS_STR, "https");
  set(CURLOPT_SSL_VERIFYPEER, 1L);
  set(CURLOPT_SSL_VERIFYHOST, 2L);
  set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
  set(CURLOPT_NETRC, long{CURL_NETRC_IGNORED});
  if (!caFile) return;
  // The system's folder of authorities would be trusted beside the file.
  set(CURLOPT_CAINFO, caFile->c_str());
  set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
}

void CurlTransfer::setMethodAndBody() {
  const auto& request = _exchange.request;
  set(CURLOPT_FOLLOWLOCATION, 1L);
  set(CURLOPT_MAXREDIRS, mostRedirects);
  // A POST that turned into a GET on its way would be answered without having been received.
  set(CURLOPT_POSTREDIR, long{CURL_REDIR_POST_ALL});
  if (request.method == "HEAD") return set(CURLOPT_NOBODY, 1L);
  if (request.method == "GET" && !request.body) return set(CURLOPT_HTTPGET, 1L);
  set(CURLOPT_POST, 1L);
  set(CURLOPT_POSTFIELDSIZE_LARGE,
      static_cast<curl_off_t>(request.body ? request.body->bytes.size() : 0));
  set(CURLOPT_POSTFIELDS, request.body ? request.body->bytes.data() : "");
  if (request.method != "POST") set(CURLOPT_CUSTOMREQUEST, request.method.c_str());
}

void CurlTransfer::setHeaderFields() {
  const auto& fields = _exchange.request.headerFields;
  for (const auto& [name, value] : fields)
    addHeaderLine(value.empty() ? name + ';' : name + ": " + value);
  // What libcurl would add by itself: waiting for "100 Continue" costs a second, and the body is no
  // form.
  if (!hasField(fields, "Expect")) addHeaderLine("Expect:");
  if (!hasField(fields, "Content-Type")) addHeaderLine("Content-Type:");
  set(CURLOPT_HTTPHEADER, _headerLines.get());
  set(CURLOPT_USERAGENT, "Kite");
}

void CurlTransfer::addHeaderLine(const std::string& line) {
  curl_slist* const longer = curl_slist_append(_headerLines.get(), line.c_str());
  if (!longer) {
    _setUp = CURLE_OUT_OF_MEMORY;
    return;
  }
  static_cast<void>(_headerLines.release());
  _headerLines.reset(longer);
}

void CurlTransfer::setLimits() {
  const long timeout = milliseconds(_exchange.request.timeoutSeconds);
  set(CURLOPT_TIMEOUT_MS, timeout);
  _deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout + 1);
  set(CURLOPT_CONNECTTIMEOUT, connectTimeoutSeconds);
  set(CURLOPT_NOSIGNAL, 1L);
  // A name look-up that hangs must not hold up the end of a request that has run out of time.
  set(CURLOPT_QUICK_EXIT, 1L);
  set(CURLOPT_HTTP_CONTENT_DECODING, 0L);
}

std::size_t CurlTransfer::receiveBody(char* bytes, std::size_t, std::size_t size, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  if (size > longestBody - transfer._body.size()) {
    transfer._isBodyTooLong = true;
    return CURL_WRITEFUNC_ERROR;
  }
  if (catchingBadAlloc([&] { transfer._body.append(bytes, size); })) return size;
  transfer._complaint = outOfMemory;
  return CURL_WRITEFUNC_ERROR;
}

std::size_t CurlTransfer::receiveHeader(char* bytes, std::size_t, std::size_t size, void* self) {
  auto& transfer = *static_cast<CurlTransfer*>(self);
  const std::string_view line(bytes, size);
  if (line.starts_with("HTTP/")) transfer._isHeaderWhole = false;
  if (line == "\r\n" || line == "\n") transfer._isHeaderWhole = true;
  transfer._headerSize += size;
  if (transfer._headerSize <= longestHeader) return size;
  transfer._complaint = "The reply's header is longer than 256 KiB";
  return CURL_WRITEFUNC_ERROR;
}

void CurlTransfer::finish(CURLcode outcome) {
  Reply told = failure(outOfMemory);
  catchingBadAlloc([&] { told = reply(outcome); });
  tell(std::move(told));
}

void CurlTransfer::fail(std::string_view cause) const {
  Reply told = failure(outOfMemory);
  catchingBadAlloc([&] { told = failure(named(cause)); });
  tell(std::move(told));
}

// A completion must not throw; when one finds no memory there is nobody else to tell.
void CurlTransfer::tell(Reply reply) const {
  catchingBadAlloc([&] {
    _exchange.completion(std::move(reply.body), std::move(reply.response), std::move(reply.error));
  });
}

CurlTransfer::Reply CurlTransfer::reply(CURLcode outcome) {
  const bool isEarly = !isSentWhole();
  auto from = response();
  const int status = from.statusCode.value_or(0);
  // A refusal counts however its connection ends. A status below 400 may not be the last one: a
  // redirect or an interim reply may come before it.
  const bool isEarlyRefusal = isEarly && status >= 400;
  const bool isStatusEnough = _isHeaderWhole && (_isBodyTooLong || isEarlyRefusal);
  if (outcome != CURLE_OK && !isStatusEnough)
    return failure(named(_complaint.empty() ? describe(outcome) : std::string(_complaint)));
  // Both are successes to libcurl.
  if (!_isHeaderWhole) return failure(named("The reply breaks off within its header"));
  if (isEarly && status >= 200 && status <= 299)
    return failure(named("The reply came before the request was sent whole"));
  Reply told{.body = {}, .response = std::move(from), .error = {}};
  if (outcome == CURLE_OK) told.body = Data{std::move(_body)};
  return told;
}

CurlTransfer::Reply CurlTransfer::failure(std::string description) {
  return {.body = {}, .response = {}, .error = TransportError{std::move(description)}};
}

/// With the endpoint, since a host may have several.
std::string CurlTransfer::named(std::string_view cause) const {
  return _exchange.request.url.origin().append(": ").append(cause);
}

bool CurlTransfer::isSentWhole() const {
  if (!_exchange.request.body) return true;
  curl_off_t sent = 0;
  curl_easy_getinfo(_handle.get(), CURLINFO_SIZE_UPLOAD_T, &sent);
  return std::cmp_greater_equal(sent, _exchange.request.body->bytes.size());
}

URLResponse CurlTransfer::response() const {
  long status = 0;
  long redirects = 0;
  const char* effectiveURL = nullptr;
  curl_easy_getinfo(_handle.get(), CURLINFO_RESPONSE_CODE, &status);
  curl_easy_getinfo(_handle.get(), CURLINFO_REDIRECT_COUNT, &redirects);
  curl_easy_getinfo(_handle.get(), CURLINFO_EFFECTIVE_URL, &effectiveURL);
  // libcurl spells a URL in its own way; without a redirect the request's own spelling stays.
  const auto& requested = _exchange.request.url;
  std::optional<URL> url = requested;
  if (redirects > 0 && effectiveURL) {
    const auto arrived = URL::parse(effectiveURL);
    url = arrived ? std::optional(*arrived) : std::nullopt;
  }
  return {.url = std::move(url),
          .statusCode = status > 0 ? std::optional(static_cast<int>(status)) : std::nullopt};
}

std::string CurlTransfer::describe(CURLcode outcome) const {
  std::string text = curl_easy_strerror(outcome);
  if (_detail[0] != '\0') text.append(": ").append(_detail.data());
  std::replace_if(
      text.begin(), text.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; }, ' ');
  return text;
}

}  // namespace kite::Linux
