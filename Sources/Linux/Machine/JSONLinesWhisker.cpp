#include <Kite/Linux/LinuxPlatform.h>

#include "JSON/JSONEncoder.h"
#include "Linux/Storage/FileSizeSignal.h"
#include "Linux/Storage/Uninterrupted.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string_view>
#include <utility>

namespace kite::Linux {
namespace {

// Closes the file with the last client that writes to it.
class LineSink {
 public:
  static std::shared_ptr<const LineSink> standardError() {
    return std::shared_ptr<const LineSink>(new LineSink(STDERR_FILENO));
  }
  // Lines from other processes stay whole beside ours: each is appended by one write.
  static std::shared_ptr<const LineSink> appendingTo(const std::filesystem::path& file) {
    const int descriptor =
        ::open(file.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor >= 0) return std::shared_ptr<const LineSink>(new LineSink(descriptor));
    System::live().print("[KITE] Telemetry goes to standard error: cannot open " + file.string());
    return standardError();
  }

  LineSink(const LineSink&) = delete;
  LineSink& operator=(const LineSink&) = delete;
  ~LineSink() {
    if (_descriptor != STDERR_FILENO) ::close(_descriptor);
  }

  void write(const std::string& line) const {
    const WithoutFileSizeSignal quiet;
    uninterrupted([&] { return ::write(_descriptor, line.data(), line.size()); });
  }

 private:
  explicit LineSink(int descriptor) : _descriptor(descriptor) {}

  const int _descriptor;
};

std::string_view text(Whisker::Severity severity) {
  static constexpr std::array<std::string_view, 4> texts{"info", "warning", "error", "critical"};
  return texts.at(static_cast<std::size_t>(severity));
}

JSONValue list(const std::vector<std::string>& scope, const std::vector<std::string>& categories) {
  JSONValue::Array result(scope.begin(), scope.end());
  result.insert(result.end(), categories.begin(), categories.end());
  return result;
}

// What has no JSON text must not cost the rest of the report.
std::string jsonLine(JSONValue::Object report) {
  std::string line;
  if (const auto error = appendJSON(line, report)) {
    report["info"] = JSONValue::Object{{"encoding_error", error->debugDescription}};
    line.clear();
    if (appendJSON(line, report)) return {};
  }
  return line + '\n';
}

class JSONLinesWhisker final : public Whisker {
 public:
  JSONLinesWhisker(std::shared_ptr<const LineSink> sink, std::vector<std::string> scope)
      : _sink(std::move(sink)), _scope(std::move(scope)) {}

  std::shared_ptr<Whisker> scoped(std::vector<std::string> categories) override {
    categories.insert(categories.begin(), _scope.begin(), _scope.end());
    return std::make_shared<JSONLinesWhisker>(_sink, std::move(categories));
  }

  void report(const DebugEvent& event, const SourceLocation& where) override {
    JSONValue::Object report{
        {"timestamp", System::live().now().secondsSince1970},
        {"severity", text(event.severity)},
        {"categories", list(_scope, event.categories)},
        {"description", event.description},
        {"info", event.info},
        {"file", where.file},
        {"function", where.function},
        {"line", static_cast<std::int64_t>(where.line)},
    };
    if (event.errorCode) report["error_code"] = *event.errorCode;
    _sink->write(jsonLine(std::move(report)));
  }

 private:
  const std::shared_ptr<const LineSink> _sink;
  const std::vector<std::string> _scope;
};

}  // namespace

std::shared_ptr<Whisker> jsonLinesWhisker(std::optional<std::filesystem::path> file) {
  auto sink = file ? LineSink::appendingTo(*file) : LineSink::standardError();
  return std::make_shared<JSONLinesWhisker>(std::move(sink), std::vector<std::string>{});
}

}  // namespace kite::Linux
