#include "Collector/CollectCommand.h"

#include "Collector/Collector.h"
#include "Collector/JSONText.h"
#include "Collector/MigrateCommand.h"
#include "Collector/OpenInBrowser.h"
#include "Collector/SecretFile.h"
#include "Collector/Store/PostgresAddress.h"
#include "Common/CommandFailure.h"

#include <fmt/format.h>
#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <optional>

namespace kite::tool {
namespace {

constexpr const char* footer = R"(
Standard output carries one JSON object per line: {"event":"listening",...} once ready, then one
{"event":"request",...} per request. With --inspect the second line is {"event":"inspector","url":...},
the address of a page that shows what arrives; its API and its search are in Docs/Inspector.md. With
--metrics the next one is {"event":"metrics","url":...}. With --expect the last line is
{"event":"summary",...}.

Faults strike POST requests to the events path, in the order given, N requests each:
  status:CODE   answer CODE (200 to 599)
  body:FILE     answer 200 with the bytes of FILE
  delay:MS      wait, then handle the request as usual
  reset         reset the connection without an answer
  redirect:URL  answer 307 to URL
  truncate      announce a longer body than is sent, then close
Only a delayed request is stored. A last "x" with digits is always the count: for a URL or file that
ends so itself, add x1.)";

struct CollectArguments {
  std::string listen = "127.0.0.1:0";
  std::string key;
  std::string database;
  std::string certificate;
  std::string certificateKey;
  std::string selfSigned;
  std::vector<std::string> faults;
  std::optional<std::string> inspect;
  std::optional<std::string> metrics;
  std::string tokenFile;
  bool opensPage = false;
  std::int64_t expected = 0;
  std::optional<double> timeout;
  std::optional<std::size_t> connections;
};

[[noreturn]] void refuseUsage(const std::string& message) { throw CLI::ValidationError(message); }

struct HostAndPort {
  std::string host;
  std::uint16_t port = 0;
};

HostAndPort readAddress(const std::string& option, const std::string& text) {
  HostAndPort address;
  const auto colon = text.rfind(':');
  const std::string port = colon == std::string::npos ? "" : text.substr(colon + 1);
  const auto [rest, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
  address.host = text.substr(0, std::min(colon, text.size()));
  if (address.host.size() > 2 && address.host.front() == '[' && address.host.back() == ']') {
    address.host = address.host.substr(1, address.host.size() - 2);
  }
  if (address.host.empty() || port.empty() || error != std::errc() ||
      rest != port.data() + port.size()) {
    refuseUsage(option + ": \"" + text + "\" is not HOST:PORT");
  }
  return address;
}

CertificateSource certificateSource(const CollectArguments& arguments) {
  const bool hasFiles = !arguments.certificate.empty() || !arguments.certificateKey.empty();
  if (hasFiles != arguments.selfSigned.empty()) {
    refuseUsage("give either --cert and --cert-key or --self-signed");
  }
  if (!hasFiles) return SelfSignedFolder{arguments.selfSigned};
  if (arguments.certificate.empty() || arguments.certificateKey.empty()) {
    refuseUsage("--cert and --cert-key go together");
  }
  return CertificateFiles{.certificate = arguments.certificate, .key = arguments.certificateKey};
}

void printLine(const std::string& line) {
  std::fputs((line + "\n").c_str(), stdout);
  std::fflush(stdout);
}

CollectorOptions collectorOptions(const CollectArguments& arguments) {
  if (arguments.key.empty()) refuseUsage("the key must not be empty");
  CollectorOptions options{.key = arguments.key,
                           .database = arguments.database,
                           .certificate = certificateSource(arguments)};
  const HostAndPort listen = readAddress("--listen", arguments.listen);
  options.listenHost = listen.host;
  options.port = listen.port;
  if (arguments.inspect) {
    const HostAndPort inspect = readAddress("--inspect", *arguments.inspect);
    options.inspect =
        InspectAt{.host = inspect.host, .port = inspect.port, .tokenFile = arguments.tokenFile};
  } else if (arguments.opensPage || !arguments.tokenFile.empty()) {
    refuseUsage("--open and --token-file want --inspect");
  }
  if (arguments.connections) {
    if (!isPostgresAddress(arguments.database)) {
      refuseUsage("--db-connections wants the address of a PostgreSQL database");
    }
    options.databaseConnections = *arguments.connections;
  }
  if (arguments.metrics) {
    const HostAndPort metrics = readAddress("--metrics", *arguments.metrics);
    options.metrics = MetricsAt{.host = metrics.host, .port = metrics.port};
  }
  if (arguments.timeout && arguments.expected == 0) refuseUsage("--timeout wants --expect");
  for (const std::string& text : arguments.faults) {
    auto fault = parseFault(text);
    if (!fault) refuseUsage("--fault: " + fault.error());
    options.faults.push_back(*std::move(fault));
  }
  return options;
}

std::string listeningLine(const CollectorAddress& address) {
  return fmt::format(R"({{"event":"listening","url":{},"ca":{}}})", quotedJSON(address.url),
                     address.ca.empty() ? "null" : quotedJSON(address.ca));
}

/// Ends the collector's run: the signals of the process, and one of our own for the last event.
class End {
 public:
  End() {
    ::sigemptyset(&_ends);
    for (const int number : {SIGINT, SIGTERM, SIGUSR1}) ::sigaddset(&_ends, number);
    ::pthread_sigmask(SIG_BLOCK, &_ends, nullptr);
  }

  void call() const { ::kill(::getpid(), SIGUSR1); }
  /// Also after `seconds`, when they are given.
  void wait(std::optional<double> seconds) const {
    int signal = 0;
    if (!seconds) {
      ::sigwait(&_ends, &signal);
      return;
    }
    const double whole = std::floor(*seconds);
    const timespec time{.tv_sec = static_cast<time_t>(whole),
                        .tv_nsec = static_cast<long>((*seconds - whole) * 1e9)};
    while (::sigtimedwait(&_ends, nullptr, &time) < 0 && errno == EINTR) {
    }
  }

 private:
  sigset_t _ends{};
};

void printAddress(const CollectorAddress& address, bool opensPage) {
  printLine(listeningLine(address));
  if (!address.inspector.empty()) {
    printLine(fmt::format(R"({{"event":"inspector","url":{}}})", quotedJSON(address.inspector)));
  }
  if (!address.metrics.empty()) {
    printLine(fmt::format(R"({{"event":"metrics","url":{}}})", quotedJSON(address.metrics)));
  }
  if (opensPage && !openInBrowser(address.inspector)) {
    std::fputs("kite: cannot run xdg-open; open the inspector's address yourself\n", stderr);
  }
}

/// Throws when less was stored than was expected.
void printSummary(const CollectorStatistics& statistics, std::int64_t expected) {
  const bool isMet = statistics.newEvents >= static_cast<std::size_t>(expected);
  printLine(fmt::format(
      R"({{"event":"summary","ok":{},"expected":{},"stored":{},"duplicates":{},"requests":{},)"
      R"("refused":{}}})",
      isMet, expected, statistics.newEvents, statistics.duplicates, statistics.requests,
      statistics.refused));
  if (!isMet) throw CLI::RuntimeError(1);
}

void runUntilItsEnd(CollectorOptions options, const CollectArguments& arguments) {
  const End end;
  std::int64_t missing = arguments.expected;
  options.onRequest = [&missing, &end](const RequestReport& report) {
    printLine(jsonLine(report));
    const bool wasMissing = missing > 0;
    missing -= static_cast<std::int64_t>(report.newEvents);
    if (wasMissing && missing <= 0) end.call();
  };
  Collector collector(std::move(options));
  const auto address = collector.start();
  if (!address) throw CommandFailure(address.error());
  printAddress(*address, arguments.opensPage);
  end.wait(arguments.timeout);
  collector.stop();
  if (arguments.expected > 0) printSummary(collector.statistics(), arguments.expected);
}

/// An option whose address may be left out.
void addListener(CLI::App& command, const std::string& name, std::optional<std::string>& address,
                 const std::string& description) {
  command
      .add_option_function<std::vector<std::string>>(
          name,
          [&address](const std::vector<std::string>& given) {
            address = given.empty() || given.front().empty() ? "127.0.0.1:0" : given.front();
          },
          description)
      ->type_name("[HOST:PORT]")
      ->expected(0, 1);
}

void addInspectorOptions(CLI::App& command, CollectArguments& arguments) {
  addListener(command, "--inspect", arguments.inspect,
              "Serve a page that shows what arrives, at 127.0.0.1:0 unless told otherwise");
  command
      .add_option("--token-file", arguments.tokenFile,
                  "File of the page's token; made when it is not there")
      ->type_name("FILE");
  command.add_flag("--open", arguments.opensPage, "Open the page in the browser");
}

}  // namespace

CLI::App* addCollectCommand(CLI::App& parent) {
  auto arguments = std::make_shared<CollectArguments>();
  CLI::App* command =
      parent.add_subcommand("collect", "Run a reference collection service over HTTPS");
  command->footer(footer);
  command->add_option("--listen", arguments->listen, "Address to listen on; port 0 picks one")
      ->type_name("HOST:PORT")
      ->capture_default_str();
  CLI::Option* key =
      command->add_option("--key", arguments->key, "The secret that clients sign with")
          ->type_name("SECRET");
  const auto takeKey = [arguments](const std::string& secret) { arguments->key = secret; };
  CLI::Option* keyFile =
      addSecretFile(*command, "--key-file", takeKey, "File whose first line is that secret")
          ->excludes(key);
  command
      ->add_option("--db", arguments->database,
                   "SQLite file for what is received, or postgresql://… without a password")
      ->type_name("FILE|URL");
  addPasswordFile(*command);
  command
      ->add_option("--db-connections", arguments->connections,
                   "Uploads that PostgreSQL stores at a time; 4 unless told otherwise")
      ->type_name("N")
      ->check(CLI::Range(std::size_t{1}, std::size_t{256}).description(""));
  const CLI::App* migrate = addMigrateCommand(*command);
  command->add_option("--cert", arguments->certificate, "PEM file of the server's certificate")
      ->type_name("FILE");
  command->add_option("--cert-key", arguments->certificateKey, "PEM file of the certificate's key")
      ->type_name("FILE");
  command
      ->add_option("--self-signed", arguments->selfSigned,
                   "Folder for a CA and a certificate of localhost; made when it is not there")
      ->type_name("DIR");
  command->add_option("--fault", arguments->faults, "A fault to answer with; repeatable, see below")
      ->type_name("KIND[:ARG][xN]")
      ->expected(1)
      ->take_all();
  command->add_option("--expect", arguments->expected, "End with 0 when N events were stored")
      ->type_name("N")
      ->check(CLI::Range(std::int64_t{1}, std::int64_t{1'000'000'000}).description(""));
  command->add_option("--timeout", arguments->timeout, "End with 1 when they were not by then")
      ->type_name("SECONDS")
      ->check(CLI::Range(0.0, 1e6).description(""));
  addInspectorOptions(*command, *arguments);
  addListener(*command, "--metrics", arguments->metrics,
              "Serve counters for Prometheus, at 127.0.0.1:0 unless told otherwise");
  command->callback([arguments, command, migrate, key, keyFile] {
    if (migrate->parsed()) return;
    if (key->empty() && keyFile->empty()) throw CLI::RequiredError("--key or --key-file");
    if (command->count("--db") == 0) throw CLI::RequiredError("--db");
    runUntilItsEnd(collectorOptions(*arguments), *arguments);
  });
  return command;
}

}  // namespace kite::tool
