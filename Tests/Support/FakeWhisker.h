#pragma once

#include <Kite/Platform/Whisker.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace kite::test {

/// A telemetry client that keeps what is reported to it or to any client scoped from it.
class FakeWhisker final : public Whisker {
 public:
  struct Report {
    DebugEvent event;  ///< with the categories of the client's scope in front
    std::string file;
    std::string function;
    std::uint64_t line;
  };

  FakeWhisker() : _log(std::make_shared<Log>()) {}

  std::shared_ptr<Whisker> scoped(std::vector<std::string> categories) override {
    auto all = _scope;
    all.insert(all.end(), categories.begin(), categories.end());
    return std::shared_ptr<Whisker>(new FakeWhisker(_log, std::move(all)));
  }

  void report(const DebugEvent& event, const SourceLocation& where) override {
    Report report{event, where.file, where.function, where.line};
    auto& categories = report.event.categories;
    categories.insert(categories.begin(), _scope.begin(), _scope.end());
    const std::scoped_lock guard(_log->mutex);
    _log->reports.push_back(std::move(report));
  }

  std::vector<Report> reports() const {
    const std::scoped_lock guard(_log->mutex);
    return _log->reports;
  }

 private:
  struct Log {
    std::mutex mutex;
    std::vector<Report> reports;
  };

  FakeWhisker(std::shared_ptr<Log> log, std::vector<std::string> scope)
      : _log(std::move(log)), _scope(std::move(scope)) {}

  std::shared_ptr<Log> _log;
  std::vector<std::string> _scope;
};

}  // namespace kite::test
