#include "Collector/PendingExchange.h"

#include <event2/buffer.h>
#include <event2/bufferevent.h>
#include <event2/event.h>
#include <event2/http.h>
#include <sys/socket.h>

#include <utility>

namespace kite::tool {
namespace {

/// Linux sends a reset at once when a connected socket is dissolved.
void sendReset(evhttp_connection* connection) {
  const sockaddr nowhere{.sa_family = AF_UNSPEC, .sa_data = {}};
  static_cast<void>(::connect(bufferevent_getfd(evhttp_connection_get_bufferevent(connection)),
                              &nowhere, sizeof nowhere));
}

}  // namespace

PendingExchange::~PendingExchange() {
  if (_timer) event_free(_timer);
}

void PendingExchange::answer(const Reply& reply) {
  evhttp_request* request = std::exchange(_request, nullptr);
  evkeyvalq* headers = evhttp_request_get_output_headers(request);
  for (const Header& header : reply.headers) {
    evhttp_add_header(headers, header.name.c_str(), header.value.c_str());
  }
  std::size_t sent = reply.body.size();
  if (reply.isTruncated) {
    evhttp_add_header(headers, "Content-Length", std::to_string(sent).c_str());
    evhttp_add_header(headers, "Connection", "close");
    sent /= 2;
  }
  evbuffer_add(evhttp_request_get_output_buffer(request), reply.body.data(), sent);
  evhttp_send_reply(request, reply.status, nullptr, nullptr);
}

void PendingExchange::reset() {
  // The server is still busy with the connection when it hands out a request.
  later(std::chrono::milliseconds(0), [request = std::exchange(_request, nullptr)](Exchange&) {
    evhttp_connection* connection = evhttp_request_get_connection(request);
    sendReset(connection);
    evhttp_connection_free(connection);
  });
}

void PendingExchange::later(std::chrono::milliseconds time, std::function<void(Exchange&)> body) {
  if (!_timer) _timer = evtimer_new(_base, timeCame, this);
  _body = std::move(body);
  const timeval delay{.tv_sec = time.count() / 1000, .tv_usec = time.count() % 1000 * 1000};
  evtimer_add(_timer, &delay);
}

void PendingExchange::timeCame(int, short, void* exchange) {
  auto& self = *static_cast<PendingExchange*>(exchange);
  const auto body = std::exchange(self._body, nullptr);
  body(self);
}

}  // namespace kite::tool
