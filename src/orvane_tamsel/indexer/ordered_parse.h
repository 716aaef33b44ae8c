#pragma once
// Runs numbered jobs on every core and hands their results over in order, a bounded window ahead.

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace orvane_tamsel::indexer {

// One thread per core but the caller's, which takes the results in order (take(0), take(1), ...)
// and runs jobs too whenever the next result is not ready. As many threads as cores, so none
// waits for a core while another holds it. Results wait in memory until taken: no job runs more
// than `window` ahead of the next one taken.
template <typename Result>
class OrderedParse {
 public:
  using Job = std::function<Result(std::size_t)>;
  // Called, under a lock, as each result is ready, with how many are.
  using OnReady = std::function<void(std::size_t, std::int64_t)>;

  OrderedParse(std::size_t count, std::size_t window, Job job, OnReady on_ready)
      : results_(count),
        ready_(count, 0),
        window_(window),
        job_(std::move(job)),
        on_ready_(std::move(on_ready)) {
    unsigned cores = std::max(2U, std::thread::hardware_concurrency());
    for (unsigned t = 0; t + 1 < cores && t < count; ++t) threads_.emplace_back([this] { work(); });
  }
  ~OrderedParse() { stop(); }
  OrderedParse(const OrderedParse&) = delete;
  OrderedParse& operator=(const OrderedParse&) = delete;

  // The result of job i, once every earlier one was taken.
  Result take(std::size_t i) {
    Result r;
    for (;;) {
      {
        std::unique_lock lock(mutex_);
        if (ready_[i] != 0) {
          r = std::move(results_[i]);
          taken_ = i + 1;
          break;
        }
      }
      if (auto j = claim_within(i + window_)) {
        run(*j);
      } else {
        std::unique_lock lock(mutex_);
        cv_.wait(lock, [&] {
          return ready_[i] != 0 || next_.load() < std::min(results_.size(), i + window_);
        });
      }
    }
    cv_.notify_all();
    return r;
  }

  // Stops the threads once their current job is done.
  void stop() {
    {
      std::lock_guard lock(mutex_);
      stop_ = true;
    }
    cv_.notify_all();
    for (auto& t : threads_) t.join();
    threads_.clear();
  }

 private:
  void run(std::size_t i) {
    auto r = job_(i);
    std::lock_guard lock(mutex_);
    results_[i] = std::move(r);
    ready_[i] = 1;
    if (on_ready_) on_ready_(i, ++done_);
    cv_.notify_all();
  }

  void work() {
    for (std::size_t i = next_++; i < results_.size() && !stop_; i = next_++) {
      {
        std::unique_lock lock(mutex_);
        cv_.wait(lock, [&] { return i < taken_ + window_ || stop_; });
      }
      run(i);
    }
  }

  // The caller takes a job only within the window, so that it never waits for itself.
  std::optional<std::size_t> claim_within(std::size_t limit) {
    for (auto j = next_.load(); j < results_.size() && j < limit;) {
      if (next_.compare_exchange_weak(j, j + 1)) return j;
    }
    return std::nullopt;
  }

  std::vector<Result> results_;
  std::vector<char> ready_;
  std::size_t window_;
  Job job_;
  OnReady on_ready_;
  std::atomic<std::size_t> next_{0};
  std::atomic<bool> stop_{false};
  std::int64_t done_ = 0;
  std::mutex mutex_;
  std::condition_variable cv_;
  std::size_t taken_ = 0;  // results taken by the caller
  std::vector<std::thread> threads_;
};

}  // namespace orvane_tamsel::indexer
