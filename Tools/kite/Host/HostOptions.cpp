#include "Host/HostOptions.h"

#include "Host/HostLocale.h"

#include <fmt/format.h>
#include <CLI/CLI.hpp>

#include <algorithm>
#include <functional>

namespace kite::tool {
namespace {

using Texts = std::vector<std::string>;

/// An option whose text `assign` takes over; what `assign` throws is wrong usage.
CLI::Option* text(CLI::App& command, const std::string& name,
                  std::function<void(const std::string&)> assign, const std::string& description,
                  const std::string& placeholder) {
  return command.add_option_function<std::string>(name, std::move(assign), description)
      ->type_name(placeholder);
}

CLI::Option* repeated(CLI::App& command, const std::string& name,
                      std::function<void(const std::string&)> assign,
                      const std::string& description, const std::string& placeholder) {
  const auto assignAll = [assign = std::move(assign)](const Texts& all) {
    for (const auto& one : all) assign(one);
  };
  return command.add_option_function<Texts>(name, assignAll, description)
      ->type_name(placeholder)
      ->allow_extra_args(false);
}

// The complaints leave the URL's text out: it may hold a password.
URL parsedEndpoint(const std::string& option, const std::string& given) {
  const auto url = URL::parse(given);
  if (!url) throw CLI::ValidationError(option, "not an absolute URL: " + url.error());
  if (url->scheme() != "https")
    throw CLI::ValidationError(option, url->origin() + " is refused: events go over HTTPS only");
  return *url;
}

std::string checkedTimeZone(const std::string& option, const std::string& given) {
  if (isTimeZone(given)) return given;
  throw CLI::ValidationError(option, fmt::format("the system knows no time zone \"{}\"", given));
}

/// The two texts around the first `separator`, neither of them empty.
std::pair<std::string, std::string> halves(const std::string& option, const std::string& given,
                                           char separator, std::string_view form) {
  const auto at = given.find(separator);
  if (at == 0 || at == given.npos || at + 1 == given.size())
    throw CLI::ValidationError(option, fmt::format("\"{}\" is not of the form {}", given, form));
  return {given.substr(0, at), given.substr(at + 1)};
}

void addNetwork(CLI::App& command, HostOptions& options) {
  text(
      command, "--endpoint",
      [&](auto& given) { options.endpoint = parsedEndpoint("--endpoint", given); },
      "Where events go, for production and staging builds alike", "URL");
  repeated(
      command, "--secondary",
      [&](auto& given) { options.secondaries.push_back(parsedEndpoint("--secondary", given)); },
      "Where events go when the endpoint fails (repeatable)", "URL");
  text(
      command, "--ca-file", [&](auto& given) { options.caFile = given; },
      "Certificate authorities to trust instead of the system's", "PEM");
  command.add_option("--key", options.key, "Signs the requests; required unless --noop is given")
      ->type_name("SECRET");
}

void addApplication(CLI::App& command, HostOptions& options) {
  command.add_option("--lumo-id", options.lumoID, "The application's name at the service")
      ->type_name("ID")
      ->capture_default_str();
  text(
      command, "--app-version", [&](auto& given) { options.kitbag.appVersion = given; },
      "Version of the application", "V");
  text(
      command, "--bundle-version", [&](auto& given) { options.kitbag.bundleVersion = given; },
      "Version of the build", "V");
  static const std::map<std::string, DistributionChannel> channels{
      {"debug", DistributionChannel::debug},
      {"testFlight", DistributionChannel::testFlight},
      {"appStore", DistributionChannel::appStore}};
  text(
      command, "--channel",
      [&](auto& given) { options.kitbag.distributionChannel = channels.at(given); },
      "How the build is distributed: debug, testFlight or appStore", "CHANNEL")
      ->check(CLI::IsMember({"debug", "testFlight", "appStore"}).description(""))
      ->default_str("debug");
  command.add_flag("--installed-before-kite", options.installedBeforeKite,
                   "The application existed before it linked the library");
  text(
      command, "--storefront",
      [&](auto& given) {
        const auto [identifier, country] = halves("--storefront", given, ':', "ID:CC");
        options.storefront = Storefront{identifier, country};
      },
      "The user's app-store storefront", "ID:CC");
}

void addSessions(CLI::App& command, HostOptions& options) {
  text(
      command, "--sessions", [&](auto& given) { options.hasManualSessions = given == "manual"; },
      "automatic: follow the application's state; manual: by command", "MODE")
      ->check(CLI::IsMember({"automatic", "manual"}).description(""))
      ->default_str("automatic");
  command.add_flag("--sync-on-session-end", options.syncsOnSessionEnd,
                   "Go on uploading after a session has ended");
  command.add_flag("--start-in-background", options.startsInBackground,
                   "The application begins in the background");
}

void addUser(CLI::App& command, HostOptions& options) {
  text(
      command, "--locale", [&](auto& given) { options.locale = given; },
      "The user's locale, such as en_NZ", "ID");
  text(
      command, "--time-zone",
      [&](auto& given) { options.timeZone = checkedTimeZone("--time-zone", given); },
      "The user's time zone, such as Pacific/Auckland", "ID");
  repeated(
      command, "--preferred-language",
      [&](auto& given) { options.preferredLanguages.push_back(given); },
      "A language of the user's, the most preferred first (repeatable)", "L");
  text(
      command, "--attribution", [&](auto& given) { options.attribution = given; },
      "A JSON object that the attribution service answers", "FILE");
  repeated(
      command, "--custom-id",
      [&](auto& given) {
        const auto [name, value] = halves("--custom-id", given, '=', "NAME=VALUE");
        options.customIDs[name] = value;
      },
      "An identifier of the host's own (repeatable)", "NAME=VALUE");
}

}  // namespace

std::shared_ptr<HostOptions> addHostOptions(CLI::App& command) {
  auto options = std::make_shared<HostOptions>();
  text(
      command, "--state", [&o = *options](auto& given) { o.state = given; },
      "Keep the stores in DIR/app and DIR/secrets instead of the user's data folder", "DIR");
  addNetwork(command, *options);
  addApplication(command, *options);
  addSessions(command, *options);
  addUser(command, *options);
  command.add_flag("--noop", options->isNoop, "Drive the facade that does nothing");
  text(
      command, "FILE", [&o = *options](auto& given) { o.script = given; },
      "Read the commands from here instead of standard input", "");
  return options;
}

}  // namespace kite::tool
