#include "Collector/CollectCommand.h"

#include "Collector/Collector.h"
#include "Collector/JSONText.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <charconv>
#include <csignal>
#include <cstdio>

namespace kite::tool {
namespace {

constexpr const char* footer = R"(
Standard output carries one JSON object per line: {"event":"listening",...} once ready, then one
{"event":"request",...} per request.

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
  std::string inspect;
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
  if (arguments.key.empty()) refuseUsage("--key must not be empty");
  CollectorOptions options{
      .key = arguments.key,
      .database = arguments.database,
      .certificate = certificateSource(arguments),
      .onRequest = [](const RequestReport& report) { printLine(jsonLine(report)); }};
  const HostAndPort listen = readAddress("--listen", arguments.listen);
  options.listenHost = listen.host;
  options.port = listen.port;
  if (!arguments.inspect.empty()) {
    const HostAndPort inspect = readAddress("--inspect", arguments.inspect);
    options.inspect = InspectAt{.host = inspect.host, .port = inspect.port};
  }
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

void runUntilSignalled(CollectorOptions options) {
  sigset_t ends{};
  ::sigemptyset(&ends);
  ::sigaddset(&ends, SIGINT);
  ::sigaddset(&ends, SIGTERM);
  ::pthread_sigmask(SIG_BLOCK, &ends, nullptr);

  Collector collector(std::move(options));
  const auto address = collector.start();
  if (!address) {
    std::fputs(("kite: " + address.error() + "\n").c_str(), stderr);
    throw CLI::RuntimeError(1);
  }
  printLine(listeningLine(*address));
  if (!address->inspector.empty()) {
    printLine(fmt::format(R"({{"event":"inspector","url":{}}})", quotedJSON(address->inspector)));
  }
  int signal = 0;
  ::sigwait(&ends, &signal);
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
  command->add_option("--key", arguments->key, "The secret that clients sign with")
      ->type_name("SECRET")
      ->required();
  command->add_option("--db", arguments->database, "SQLite file for what is received")
      ->type_name("FILE")
      ->required();
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
  command
      ->add_option("--inspect", arguments->inspect,
                   "Serve a page that shows what arrives, at that address or at one of its own")
      ->type_name("HOST:PORT")
      ->expected(0, 1)
      ->default_str("127.0.0.1:0");
  command->callback([arguments] { runUntilSignalled(collectorOptions(*arguments)); });
  return command;
}

}  // namespace kite::tool
