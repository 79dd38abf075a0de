#pragma once

#include "Collector/Server/Exchange.h"

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

namespace kite::test {

/// Keeps what the service does with a request.
class RecordedExchange final : public tool::Exchange {
 public:
  void answer(const tool::Reply& given) override { reply = given; }
  void reset() override { isReset = true; }
  void later(std::chrono::milliseconds time, std::function<void(Exchange&)> body) override {
    delay = time;
    delayed = std::move(body);
  }
  void begin(const tool::Reply& given) override { reply = given; }
  void send(std::string_view bytes) override { reply->body += bytes; }
  void end() override {}
  std::size_t unsent() const override { return 0; }
  void hold(std::shared_ptr<void> object) override { held = std::move(object); }

  std::optional<tool::Reply> reply;
  bool isReset = false;
  std::chrono::milliseconds delay{0};
  std::function<void(Exchange&)> delayed;
  std::shared_ptr<void> held;
};

}  // namespace kite::test
