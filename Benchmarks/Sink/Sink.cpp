// bench_sink FOLDER: answers every upload with success. Prints its URL and the CA file to trust.

#include "Collector/Server/Certificates.h"
#include "Collector/Server/HTTPServer.h"

#include <sys/prctl.h>

#include <csignal>
#include <cstdio>
#include <string>

using namespace kite;

int main(int count, char** arguments) {
  if (count != 2) return 2;
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  const auto certificate = tool::provideCertificate(tool::SelfSignedFolder{arguments[1]});
  if (!certificate) return 1;
  const auto accept = [](const tool::ReceivedRequest&, tool::Exchange& exchange) {
    exchange.answer({.status = 200,
                     .headers = {{"Content-Type", "application/json"}},
                     .body = R"({"delta":0.0,"last_event_timestamp":0.0})"});
  };
  const auto server = tool::HTTPServer::listen(
      {.host = "127.0.0.1", .port = 0, .certificate = certificate->files, .handle = accept});
  if (!server) return 1;
  std::printf("https://127.0.0.1:%d/v4/events %s\n", (*server)->port(), certificate->ca.c_str());
  std::fflush(stdout);
  (*server)->run();
}
