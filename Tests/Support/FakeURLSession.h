#pragma once

#include <Kite/KiteURLSession.h>
#include <Kite/Platform/URLSession.h>

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {

/// What a completion gets.
struct Answer {
  std::optional<Data> body;
  std::optional<URLResponse> response;
  std::optional<TransportError> error;
};

/// Decides the answer to a request.
using Script = std::function<Answer(const URLRequest&)>;

/// A reply from where the request went.
inline Script answers(int status, std::string body = "") {
  return [=](const URLRequest& request) {
    return Answer{Data{body}, URLResponse{.url = request.url, .statusCode = status}, {}};
  };
}
/// A reply from elsewhere, as after a redirect; or from nowhere known.
inline Script answersFrom(std::optional<URL> url, int status, std::string body = "") {
  return [=](const URLRequest&) {
    return Answer{Data{body}, URLResponse{.url = url, .statusCode = status}, {}};
  };
}
/// A reply that is not an HTTP one.
inline Script answersWithoutStatus(std::string body = "") {
  return [=](const URLRequest& request) {
    return Answer{Data{body}, URLResponse{.url = request.url, .statusCode = {}}, {}};
  };
}
/// A reply without a body.
inline Script answersWithoutBody(int status) {
  return [=](const URLRequest& request) {
    return Answer{{}, URLResponse{.url = request.url, .statusCode = status}, {}};
  };
}
inline Script fails(std::string description = "no connection") {
  return [=](const URLRequest&) { return Answer{{}, {}, TransportError{description}}; };
}

/// `there` for requests to `url`, `otherwise` for all others.
inline Script on(std::string url, Script there, Script otherwise) {
  return [=](const URLRequest& request) {
    return request.url.absoluteString() == url ? there(request) : otherwise(request);
  };
}
inline Script failsOn(std::string url, Script otherwise) {
  return on(std::move(url), fails(), std::move(otherwise));
}
/// The first script for the first request and so on; the last one for all that follow.
inline Script inTurn(std::vector<Script> scripts) {
  return [scripts, next = std::make_shared<std::size_t>(0)](const URLRequest& request) {
    const auto turn = *next;
    if (turn + 1 < scripts.size()) ++*next;
    return scripts.at(turn)(request);
  };
}

/// A network that records the requests sent into it and answers them by a script.
///
/// Answers come within `resume()`, on its caller's thread, unless they are held.
class FakeURLSession {
 public:
  explicit FakeURLSession(Script script = answers(200)) : _network(std::make_shared<Network>()) {
    respond(std::move(script));
  }

  KiteURLSession session() const {
    return {
        .dataTask = [network = _network](URLRequest request, URLSession::Completion completion) {
          return network->dataTask(std::move(request), std::move(completion));
        }};
  }
  std::shared_ptr<URLSession> urlSession() const { return _network; }

  /// Requests resumed so far, oldest first.
  std::vector<URLRequest> requests() const {
    const std::scoped_lock guard(_network->mutex);
    return _network->requests;
  }

  /// Answers by `script` from now on.
  void respond(Script script) {
    const std::scoped_lock guard(_network->mutex);
    _network->script = std::move(script);
    _network->isHolding = false;
  }

  /// Keeps the completions of the requests to come until `answer`.
  void hold() {
    const std::scoped_lock guard(_network->mutex);
    _network->isHolding = true;
    _network->awaited = _network->requests.size();
  }
  /// Waits for the next request after those awaited before.
  URLRequest awaitRequest() {
    std::unique_lock guard(_network->mutex);
    _network->arrived.wait(guard, [&] { return _network->requests.size() > _network->awaited; });
    return _network->requests.at(_network->awaited++);
  }
  /// Completes the oldest held request on this thread.
  void answer(const Script& script) {
    auto held = _network->takeHeld();
    held.complete(script(held.request));
  }
  std::size_t held() const {
    const std::scoped_lock guard(_network->mutex);
    return _network->held.size();
  }

 private:
  struct Exchange {
    URLRequest request;
    URLSession::Completion completion;

    void complete(Answer answer) const {
      completion(std::move(answer.body), std::move(answer.response), std::move(answer.error));
    }
  };

  class Network final : public URLSession, public std::enable_shared_from_this<Network> {
   public:
    std::shared_ptr<URLSessionDataTask> dataTask(URLRequest request,
                                                 Completion completion) override {
      return std::make_shared<Task>(shared_from_this(),
                                    Exchange{std::move(request), std::move(completion)});
    }

    void resume(Exchange exchange) {
      std::unique_lock guard(mutex);
      requests.push_back(exchange.request);
      if (isHolding) held.push_back(std::move(exchange));
      const auto decide = isHolding ? Script() : script;
      guard.unlock();
      arrived.notify_all();
      if (decide) exchange.complete(decide(exchange.request));
    }

    Exchange takeHeld() {
      const std::scoped_lock guard(mutex);
      if (held.empty()) throw std::logic_error("no request is held");
      auto oldest = std::move(held.front());
      held.pop_front();
      return oldest;
    }

    std::mutex mutex;
    std::condition_variable arrived;
    Script script;
    bool isHolding = false;
    std::size_t awaited = 0;
    std::vector<URLRequest> requests;
    std::deque<Exchange> held;
  };

  class Task final : public URLSessionDataTask {
   public:
    Task(std::shared_ptr<Network> network, Exchange exchange)
        : _network(std::move(network)), _exchange(std::move(exchange)) {}

    void resume() override {
      if (auto exchange = std::exchange(_exchange, std::nullopt))
        _network->resume(*std::move(exchange));
    }

   private:
    std::shared_ptr<Network> _network;
    std::optional<Exchange> _exchange;
  };

  std::shared_ptr<Network> _network;
};

}  // namespace kite::test
