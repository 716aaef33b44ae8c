#pragma once
// A queue between two threads whose producer waits while the queued items cost too much.

#include <condition_variable>
#include <cstddef>
#include <deque>
#include <mutex>
#include <utility>

namespace orvane_tamsel::server {

template <class T>
class BoundedQueue {
 public:
  explicit BoundedQueue(std::size_t capacity) : capacity_(capacity) {}

  // Waits while the queue is full; an item is always taken into an empty queue, whatever its
  // cost. Dropped once the queue is stopped.
  void push(T item, std::size_t cost) {
    std::unique_lock lock(mutex_);
    space_.wait(lock, [&] { return cost_ == 0 || cost_ + cost <= capacity_ || closed_; });
    if (stopped_) return;
    cost_ += cost;
    items_.emplace_back(std::move(item), cost);
    ready_.notify_one();
  }
  // No more items: the queued ones are still handed out.
  void close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    ready_.notify_all();
    space_.notify_all();
  }
  // Stop now: the queued items are dropped.
  void stop() {
    std::lock_guard lock(mutex_);
    stopped_ = closed_ = true;
    items_.clear();
    cost_ = 0;
    ready_.notify_all();
    space_.notify_all();
  }
  bool stopped() {
    std::lock_guard lock(mutex_);
    return stopped_;
  }
  // The next item; false once the queue is closed and empty, or stopped.
  bool pop(T& out) {
    std::unique_lock lock(mutex_);
    ready_.wait(lock, [&] { return !items_.empty() || closed_; });
    if (stopped_ || items_.empty()) return false;
    out = std::move(items_.front().first);
    cost_ -= items_.front().second;
    items_.pop_front();
    space_.notify_all();
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_, space_;
  std::deque<std::pair<T, std::size_t>> items_;
  std::size_t capacity_;
  std::size_t cost_ = 0;
  bool closed_ = false, stopped_ = false;
};

}  // namespace orvane_tamsel::server
