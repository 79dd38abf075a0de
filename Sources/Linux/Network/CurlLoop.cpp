#include "Linux/Network/CurlLoop.h"

#include "Linux/Network/OpenSSL.h"
#include "Linux/Threads/LibraryThread.h"

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

// Tried again after a failure: memory may have run out.
bool initializeCurl() {
  static std::mutex mutex;
  static bool isReady = false;
  const std::scoped_lock guard(mutex);
  if (isReady) return true;
  prepareOpenSSL();
  isReady = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  return isReady;
}

template <class Element>
std::list<Element> takeFirst(std::list<Element>& elements) {
  std::list<Element> first;
  first.splice(first.begin(), elements, elements.begin());
  return first;
}

}  // namespace

CurlLoop::CurlLoop(std::optional<std::filesystem::path> caFile)
    : _caFile(std::move(caFile)), _process(::getpid()), _multi(nullptr, &curl_multi_cleanup) {}

void CurlLoop::submit(Exchange exchange) {
  // Before the first handle is made: libcurl would come to OpenSSL by itself.
  if (::getpid() == _process) initializeCurl();
  Transfers transfer;
  transfer.emplace_back(std::move(exchange));
  if (const char* const refusal = enqueue(transfer)) transfer.front().fail(refusal);
}

const char* CurlLoop::enqueue(Transfers& transfer) {
  // A forked child has neither the thread nor, for sure, a free lock.
  if (::getpid() != _process) return "The session belongs to another process";
  const std::scoped_lock guard(_mutex);
  if (_isStopped) return ended;
  if (!ensureThread()) return "The session's thread cannot be started";
  _submitted.splice(_submitted.end(), transfer);
  curl_multi_wakeup(_multi.get());
  return nullptr;
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
  for (const auto& transfer : _transfers) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(transfer.deadline() - now);
    least = std::clamp<std::int64_t>(left.count(), 1, least);
  }
  return static_cast<int>(least);
}

bool CurlLoop::admitSubmitted() {
  Transfers admitted;
  {
    const std::scoped_lock guard(_mutex);
    if (_isStopped) return false;
    admitted.swap(_submitted);
  }
  while (!admitted.empty()) admit(takeFirst(admitted));
  return true;
}

void CurlLoop::admit(Transfers transfer) {
  auto& begun = transfer.front();
  if (const auto fault = begun.prepare(_caFile)) return begun.fail(*fault);
  const auto added = curl_multi_add_handle(_multi.get(), begun.handle());
  if (added != CURLM_OK) return begun.fail(curl_multi_strerror(added));
  _transfers.splice(_transfers.end(), transfer);
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
    const auto found = std::ranges::find(_transfers, message->easy_handle, &CurlTransfer::handle);
    Transfers done;
    done.splice(done.begin(), _transfers, found);
    curl_multi_remove_handle(_multi.get(), done.front().handle());
    done.front().finish(outcome);
  }
}

// Completions come first: taking a connection down may take its time.
void CurlLoop::failAll(std::string_view description) {
  const auto failed = std::exchange(_transfers, {});
  for (const auto& transfer : failed) transfer.fail(description);
  for (const auto& transfer : failed) curl_multi_remove_handle(_multi.get(), transfer.handle());
}

void CurlLoop::end() {
  failAll(ended);
  Transfers unsent;
  {
    const std::scoped_lock guard(_mutex);
    unsent.swap(_submitted);
  }
  for (const auto& transfer : unsent) transfer.fail(ended);
  _multi.reset();
}

}  // namespace kite::Linux
