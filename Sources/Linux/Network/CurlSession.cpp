#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Network/CurlLoop.h"

#include <atomic>
#include <utility>

namespace kite::Linux {
namespace {

class CurlDataTask final : public URLSessionDataTask {
 public:
  CurlDataTask(std::shared_ptr<CurlLoop> loop, Exchange exchange)
      : _loop(std::move(loop)), _exchange(std::move(exchange)) {}

  void resume() override {
    if (!_isResumed.exchange(true)) _loop->submit(std::move(_exchange));
  }

 private:
  const std::shared_ptr<CurlLoop> _loop;
  Exchange _exchange;
  std::atomic<bool> _isResumed = false;
};

class CurlSession final : public URLSession {
 public:
  explicit CurlSession(std::optional<std::filesystem::path> caFile)
      : _loop(std::make_shared<CurlLoop>(std::move(caFile))) {}
  CurlSession(const CurlSession&) = delete;
  CurlSession& operator=(const CurlSession&) = delete;
  ~CurlSession() override { _loop->stop(); }

  std::shared_ptr<URLSessionDataTask> dataTask(URLRequest request, Completion completion) override {
    return std::make_shared<CurlDataTask>(_loop,
                                          Exchange{std::move(request), std::move(completion)});
  }

 private:
  const std::shared_ptr<CurlLoop> _loop;
};

}  // namespace

std::shared_ptr<URLSession> curlSession(std::optional<std::filesystem::path> caFile) {
  return std::make_shared<CurlSession>(std::move(caFile));
}

}  // namespace kite::Linux
