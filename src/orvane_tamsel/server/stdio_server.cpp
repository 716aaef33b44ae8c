#include "orvane_tamsel/server/stdio_server.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>

#include <spdlog/spdlog.h>

#include "orvane_tamsel/server/framing.h"
#include "orvane_tamsel/server/live_host.h"
#include "orvane_tamsel/server/session.h"

namespace orvane_tamsel::server {

namespace {

// Input lines waiting for the worker; the reader waits while too many bytes are
// queued.
constexpr std::size_t MAX_QUEUED_BYTES = 64 * 1024 * 1024;

struct Item {
  enum Kind { line, oversized } kind;
  std::string text;
};

class Inbox {
 public:
  void push(Item item) {
    std::unique_lock lock(mutex_);
    space_.wait(lock, [&] { return bytes_ < MAX_QUEUED_BYTES || closed_; });
    bytes_ += item.text.size();
    items_.push_back(std::move(item));
    ready_.notify_one();
  }
  // Input ended: the queued items are still served.
  void close() {
    std::lock_guard lock(mutex_);
    closed_ = true;
    ready_.notify_all();
    space_.notify_all();
  }
  // Stop now: queued items are dropped.
  void stop() {
    std::lock_guard lock(mutex_);
    stopped_ = closed_ = true;
    ready_.notify_all();
    space_.notify_all();
  }
  bool pop(Item& out) {
    std::unique_lock lock(mutex_);
    ready_.wait(lock, [&] { return !items_.empty() || closed_; });
    if (stopped_ || items_.empty()) return false;
    out = std::move(items_.front());
    items_.pop_front();
    bytes_ -= out.text.size();
    space_.notify_all();
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable ready_, space_;
  std::deque<Item> items_;
  std::size_t bytes_ = 0;
  bool closed_ = false, stopped_ = false;
};

// Replies come from the worker, progress notifications from the indexing thread.
std::mutex output_mutex;

bool write_line(const std::string& text) {
  std::lock_guard lock(output_mutex);
  std::string out = text + "\n";
  std::size_t done = 0;
  while (done < out.size()) {
    auto n = ::write(STDOUT_FILENO, out.data() + done, out.size() - done);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    done += static_cast<std::size_t>(n);
  }
  return true;
}

// How long a signal leaves the worker to finish the call (or the first index) it is in.
constexpr auto STOP_GRACE = std::chrono::seconds(1);

// After a signal: the queued requests are dropped, and a worker still busy past the grace is not
// waited for (an index write that stops half-way leaves the last committed index).
void stop_on_signal(Inbox& inbox) {
  spdlog::info("serve: terminated by a signal");
  inbox.stop();
  std::thread([] {
    std::this_thread::sleep_for(STOP_GRACE);
    spdlog::info("serve: still busy {} s after the signal: exiting now", STOP_GRACE.count());
    spdlog::default_logger()->flush();
    std::_Exit(0);
  }).detach();
}

// Reads stdin into the inbox until end of input, then watches for a signal until the worker wakes
// it.
void read_input(Inbox& inbox, Session& session, int signal_fd, int wake_fd) {
  LineSplitter splitter(
      [&](std::string&& line) {
        // A cancellation is noted at once, so that a running or queued request
        // is not answered.
        session.note_cancel(line);
        inbox.push({Item::line, std::move(line)});
      },
      [&] {
        inbox.push({Item::oversized, {}});
      });
  std::string buffer(1 << 16, '\0');
  pollfd fds[3] = {{STDIN_FILENO, POLLIN, 0}, {signal_fd, POLLIN, 0}, {wake_fd, POLLIN, 0}};
  while (true) {
    int ready = ::poll(fds, 3, -1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) break;
    if (fds[1].revents & POLLIN) return stop_on_signal(inbox);
    if (fds[2].revents & POLLIN) return;
    if (fds[0].revents & (POLLIN | POLLHUP | POLLERR)) {
      auto n = ::read(STDIN_FILENO, buffer.data(), buffer.size());
      if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
      if (n > 0) {
        splitter.feed(std::string_view(buffer.data(), static_cast<std::size_t>(n)));
        continue;
      }
      // End of input: the queued requests are still served, and a signal still stops them.
      splitter.finish();
      inbox.close();
      fds[0].fd = -1;
    }
  }
  splitter.finish();
  inbox.close();
}

}  // namespace

int serve_stdio(const std::filesystem::path& root) {
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGINT);
  // Blocked in every thread; the reader takes them through the descriptor.
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
  int signal_fd = ::signalfd(-1, &signals, SFD_CLOEXEC);
  int wake[2];
  if (signal_fd < 0 || ::pipe(wake) != 0) {
    spdlog::error("serve: cannot set up signal handling");
    return 1;
  }

  LiveHost host(root);
  host.start();
  Session session(host, [](const std::string& line) { write_line(line); });
  Inbox inbox;
  std::thread reader(read_input, std::ref(inbox), std::ref(session), signal_fd, wake[0]);
  spdlog::info("serve: serving {}", root.string());

  Item item;
  while (inbox.pop(item)) {
    std::optional<std::string> reply = item.kind == Item::oversized
                                           ? session.oversized_line(MAX_LINE_BYTES)
                                           : session.handle_line(item.text);
    if (reply && !write_line(*reply)) {
      spdlog::info("serve: standard output closed");
      break;
    }
  }
  // Wakes the reader when the worker stopped first, and lets a waiting push
  // return.
  [[maybe_unused]] auto woke = ::write(wake[1], "x", 1);
  inbox.stop();
  reader.join();
  host.finish();
  ::close(signal_fd);
  ::close(wake[0]);
  ::close(wake[1]);
  return 0;
}

}  // namespace orvane_tamsel::server
