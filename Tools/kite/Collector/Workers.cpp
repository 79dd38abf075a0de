#include "Collector/Workers.h"

#include "Collector/QuietThread.h"

#include <utility>

namespace kite::tool {

Workers::Workers(Intake own) { _intakes.push_back(std::move(own)); }

Workers::Workers(std::vector<Intake> intakes, WorkBound bound, std::function<void()> wake)
    : _intakes(std::move(intakes)), _bound(bound), _wake(std::move(wake)) {
  for (Intake& intake : _intakes) {
    _threads.push_back(quietThread([this, &intake] { run(intake); }));
  }
}

Workers::~Workers() { stop(); }

bool Workers::add(std::size_t bytes, Work work) {
  if (!_wake) {
    ++_busy;
    const Rest rest = work(_intakes.front());
    --_busy;
    rest();
    return true;
  }
  const std::scoped_lock lock(_mutex);
  const bool isTooMuch = _waiting.size() >= _bound.waiting || bytes > _bound.bytes - _bytes;
  if (_isStopped || isTooMuch) return false;
  _waiting.push_back({.bytes = bytes, .work = std::move(work)});
  _bytes += bytes;
  _isThereWork.notify_one();
  return true;
}

void Workers::run(Intake& intake) {
  std::unique_lock lock(_mutex);
  for (;;) {
    _isThereWork.wait(lock, [this] { return _isStopped || !_waiting.empty(); });
    if (_isStopped) return;
    Job job = std::move(_waiting.front());
    _waiting.pop_front();
    ++_busy;
    lock.unlock();
    Rest rest = job.work(intake);
    lock.lock();
    --_busy;
    _done.push_back({.bytes = job.bytes, .rest = std::move(rest)});
    lock.unlock();
    job.work = nullptr;
    _wake();
    lock.lock();
  }
}

void Workers::finish() {
  std::unique_lock lock(_mutex);
  const std::vector<Done> all = std::exchange(_done, {});
  lock.unlock();
  for (const Done& done : all) done.rest();
  lock.lock();
  for (const Done& done : all) _bytes -= done.bytes;
}

void Workers::stop() {
  std::deque<Job> forgotten;
  {
    const std::scoped_lock lock(_mutex);
    _isStopped = true;
    forgotten = std::exchange(_waiting, {});
    for (const Job& job : forgotten) _bytes -= job.bytes;
  }
  _isThereWork.notify_all();
  for (std::thread& thread : std::exchange(_threads, {})) thread.join();
}

WorkLoad Workers::load() const {
  const std::scoped_lock lock(_mutex);
  return {.intakes = _intakes.size(), .busy = _busy, .waiting = _waiting.size(), .bytes = _bytes};
}

}  // namespace kite::tool
