#include "Inspector/Page.h"

#include <fmt/format.h>

#include <limits>

namespace kite::tool {
namespace {

constexpr std::int64_t usualLimit = 200;
constexpr std::int64_t highestLimit = 1000;

}  // namespace

Page::Page(const Call& call, SeqRange range, Order order)
    : _query(call.query()),
      _slices(withinMembers(call, range), order),
      _limit(static_cast<std::size_t>(call.number("limit", usualLimit, 1, highestLimit))) {}

std::string Page::json(std::string_view name) const {
  return fmt::format(R"({{"{}":[{}],"next":{}}})", name, _rows,
                     isFull() ? std::to_string(_last) : "null");
}

void answerPage(Exchange& exchange, std::string_view name, std::shared_ptr<Page> page,
                std::function<void(SeqRange, Page&)> scan) {
  runInSlices(exchange,
              [name, page = std::move(page), scan = std::move(scan)](Exchange& waiting) -> Pause {
                const auto slice = page->isFull() ? std::nullopt : page->slices().next();
                if (slice) {
                  scan(*slice, *page);
                  return atOnce;
                }
                answerJSON(waiting, page->json(name));
                return std::nullopt;
              });
}

SeqRange withinMembers(const Call& call, SeqRange range) {
  constexpr Seq highest = std::numeric_limits<Seq>::max() / 2;
  const Seq after = call.number("after", 0, 0, highest);
  const Seq before = call.number("before", highest, 0, highest);
  return {.first = std::max(range.first, after + 1), .last = std::min(range.last, before - 1)};
}

}  // namespace kite::tool
