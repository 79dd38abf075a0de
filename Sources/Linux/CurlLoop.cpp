#include "Linux/CurlLoop.h"

#include "Linux/LibraryThread.h"
#include "Linux/OpenSSL.h"

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <utility>

namespace kite::Linux {
namespace {

constexpr int forever = std::numeric_limits<int>::max();
constexpr const char* ended = "The session ended before the reply came";

bool initializeCurl() {
  static const bool isReady = [] {
    prepareOpenSSL();
    return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  }();
  return isReady;
}

}  // namespace

CurlLoop::CurlLoop(std::optional<std::filesystem::path> caFile)
    : _caFile(std::move(caFile)), _process(::getpid()), _multi(nullptr, &curl_multi_cleanup) {}

void CurlLoop::submit(Exchange exchange) {
  if (const auto refusal = enqueue(exchange)) exchange.fail(*refusal);
}

std::optional<std::string> CurlLoop::enqueue(Exchange& exchange) {
  // A forked child has neither the thread nor, for sure, a free lock.
  if (::getpid() != _process) return "The session belongs to another process";
  const std::scoped_lock guard(_mutex);
  if (_isStopped) return ended;
  if (!ensureThread()) return "The session's thread cannot be started";
  _submitted.push_back(std::move(exchange));
  curl_multi_wakeup(_multi.get());
  return {};
}

bool CurlLoop::ensureThread() {
  if (_hasThread) return true;
  if (!_multi && initializeCurl()) _multi.reset(curl_multi_init());
  if (_multi)
    _hasThread = startThread("kite.network", [self = shared_from_this()] { self->work(); });
  return _hasThread;
}

void CurlLoop::stop() {
  if (::getpid() != _process) return;
  const std::scoped_lock guard(_mutex);
  _isStopped = true;
  if (_hasThread) curl_multi_wakeup(_multi.get());
}

void CurlLoop::work() {
  while (admitSubmitted()) {
    perform();
    finishDone();
    curl_multi_poll(_multi.get(), nullptr, 0, untilDeadline(), nullptr);
  }
  end();
}

/// Milliseconds until the time of some transfer has run out.
int CurlLoop::untilDeadline() const {
  const auto now = std::chrono::steady_clock::now();
  std::int64_t least = forever;
  for (const auto& [handle, transfer] : _transfers) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(transfer->deadline() - now);
    least = std::clamp<std::int64_t>(left.count(), 1, least);
  }
  return static_cast<int>(least);
}

bool CurlLoop::admitSubmitted() {
  std::vector<Exchange> admitted;
  {
    const std::scoped_lock guard(_mutex);
    if (_isStopped) return false;
    admitted.swap(_submitted);
  }
  for (auto& exchange : admitted) admit(std::move(exchange));
  return true;
}

void CurlLoop::admit(Exchange exchange) {
  auto transfer = std::make_unique<CurlTransfer>(std::move(exchange));
  if (const auto fault = transfer->prepare(_caFile)) return transfer->exchange().fail(*fault);
  const auto added = curl_multi_add_handle(_multi.get(), transfer->handle());
  if (added != CURLM_OK) return transfer->exchange().fail(curl_multi_strerror(added));
  _transfers.emplace(transfer->handle(), std::move(transfer));
}

void CurlLoop::perform() {
  int running = 0;
  const auto performed = curl_multi_perform(_multi.get(), &running);
  if (performed != CURLM_OK) failAll(curl_multi_strerror(performed));
}

void CurlLoop::finishDone() {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(_multi.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const auto outcome = message->data.result;
    const auto done = _transfers.extract(message->easy_handle);
    curl_multi_remove_handle(_multi.get(), done.key());
    done.mapped()->finish(outcome);
  }
}

// Completions come first: taking a connection down may take its time.
void CurlLoop::failAll(const std::string& description) {
  const auto failed = std::exchange(_transfers, {});
  for (const auto& [handle, transfer] : failed) transfer->exchange().fail(description);
  for (const auto& [handle, transfer] : failed) curl_multi_remove_handle(_multi.get(), handle);
}

void CurlLoop::end() {
  failAll(ended);
  std::vector<Exchange> unsent;
  {
    const std::scoped_lock guard(_mutex);
    unsent.swap(_submitted);
  }
  for (const auto& exchange : unsent) exchange.fail(ended);
  _multi.reset();
}

}  // namespace kite::Linux
