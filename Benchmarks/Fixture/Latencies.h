#pragma once

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <numeric>
#include <string>
#include <vector>

namespace kite::bench {

using Clock = std::chrono::steady_clock;

inline double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// How long each of many runs took. Its memory is touched beforehand.
class Latencies {
 public:
  explicit Latencies(std::size_t capacity) : _microseconds(capacity, 1.0) { _microseconds.clear(); }

  /// Runs `body` and gives the seconds that it took.
  template <class Body>
  double time(Body body) {
    const auto begin = Clock::now();
    body();
    const double seconds = secondsSince(begin);
    _microseconds.push_back(seconds * 1e6);
    return seconds;
  }

  /// What `share` of the runs did not exceed, in microseconds.
  double quantile(double share) {
    if (_microseconds.empty()) return 0;
    const auto last = static_cast<double>(_microseconds.size() - 1);
    const auto at = _microseconds.begin() + static_cast<std::ptrdiff_t>(share * last);
    std::nth_element(_microseconds.begin(), at, _microseconds.end());
    return *at;
  }
  double mean() const {
    const double sum = std::accumulate(_microseconds.begin(), _microseconds.end(), 0.0);
    return sum / static_cast<double>(std::max<std::size_t>(1, _microseconds.size()));
  }

  /// Several threads report their mean.
  void report(benchmark::State& state, const std::string& prefix = "") {
    const auto tell = [&](const char* name, double value) {
      state.counters[prefix + name] = benchmark::Counter(value, benchmark::Counter::kAvgThreads);
    };
    tell("p50_us", quantile(0.5));
    tell("p99_us", quantile(0.99));
    tell("p999_us", quantile(0.999));
    tell("max_us", quantile(1));
    tell("mean_us", mean());
  }

 private:
  std::vector<double> _microseconds;
};

/// Something measured and, in turn with it, its physical limit. What disturbs the one disturbs the
/// other.
class Comparison {
 public:
  explicit Comparison(benchmark::State& state)
      : _state(state), _figure(capacity(state)), _limit(capacity(state)) {}
  Comparison(const Comparison&) = delete;
  Comparison& operator=(const Comparison&) = delete;
  ~Comparison() {
    _figure.report(_state);
    _limit.report(_state, "limit_");
  }

  template <class Figure, class Limit>
  void round(Figure figure, Limit limit) {
    _state.SetIterationTime(_figure.time(figure));
    _limit.time(limit);
  }

 private:
  static std::size_t capacity(const benchmark::State& state) {
    return static_cast<std::size_t>(state.max_iterations);
  }

  benchmark::State& _state;
  Latencies _figure;
  Latencies _limit;
};

}  // namespace kite::bench
