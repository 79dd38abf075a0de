#pragma once

#include "Collector/Server/Exchange.h"

struct event;
struct event_base;
struct evhttp_request;

namespace kite::tool {

/// An exchange on a request of libevent's. Dropping it drops what it was to do later.
class PendingExchange final : public Exchange {
 public:
  PendingExchange(event_base* base, evhttp_request* request) : _base(base), _request(request) {}
  ~PendingExchange() override;
  PendingExchange(const PendingExchange&) = delete;
  PendingExchange& operator=(const PendingExchange&) = delete;

  void answer(const Reply& reply) override;
  void reset() override;
  void later(std::chrono::milliseconds time, std::function<void(Exchange&)> body) override;
  void begin(const Reply& reply) override;
  void send(std::string_view bytes) override;
  void end() override;
  std::size_t unsent() const override;
  void hold(std::shared_ptr<void> object) override { _held = std::move(object); }

  /// To be called while the connection ends.
  void connectionEnds();

 private:
  static void timeCame(int, short, void* exchange);

  event_base* _base;
  evhttp_request* _request;
  event* _timer = nullptr;
  std::function<void(Exchange&)> _body;
  std::shared_ptr<void> _held;
};

}  // namespace kite::tool
