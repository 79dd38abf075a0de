#include <Kite/KiteURLSession.h>

#include <utility>

namespace kite {

KiteURLSession KiteURLSession::live(std::shared_ptr<URLSession> urlSession) {
  return {.dataTask = [urlSession = std::move(urlSession)](URLRequest request,
                                                           URLSession::Completion completion) {
    return urlSession->dataTask(std::move(request), std::move(completion));
  }};
}

}  // namespace kite
