#include "orvane_tamsel/server/stdio_server.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <thread>

#include <spdlog/spdlog.h>

#include "orvane_tamsel/server/bounded_queue.h"
#include "orvane_tamsel/server/framing.h"
#include "orvane_tamsel/server/live_host.h"
#include "orvane_tamsel/server/session.h"

namespace orvane_tamsel::server {

namespace {

// Input lines waiting for the dispatcher; the reader waits while too many bytes are queued.
constexpr std::size_t MAX_QUEUED_BYTES = 64 * 1024 * 1024;
// Tool calls waiting for their turn; the dispatcher waits while this many are queued.
constexpr std::size_t MAX_QUEUED_CALLS = 4096;

struct Item {
  enum Kind { line, oversized } kind;
  std::string text;  // the line, or the start of an oversized one
};
using Inbox = BoundedQueue<Item>;
using Calls = BoundedQueue<Session::Work>;

// Replies come from the dispatcher and the tool worker, progress notifications from the indexing
// thread.
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

// How long a signal leaves the tool worker to finish the call (or the first index) it is in.
constexpr auto STOP_GRACE = std::chrono::seconds(1);

// After a signal: the queued requests are dropped, and a worker still busy past the grace is not
// waited for (an index write that stops half-way leaves the last committed index).
void stop_on_signal(Inbox& inbox, Calls& calls, Session& session) {
  spdlog::info("serve: terminated by a signal");
  inbox.stop();
  calls.stop();
  session.cancel_all();
  std::thread([] {
    std::this_thread::sleep_for(STOP_GRACE);
    spdlog::info("serve: still busy {} s after the signal: exiting now", STOP_GRACE.count());
    spdlog::default_logger()->flush();
    std::_Exit(0);
  }).detach();
}

// Reads stdin into the inbox until end of input, then watches for a signal until the dispatcher
// wakes it.
void read_input(Inbox& inbox, Calls& calls, Session& session, int signal_fd, int wake_fd) {
  LineSplitter splitter(
      [&](std::string&& line) {
        auto cost = line.size();
        inbox.push({Item::line, std::move(line)}, cost);
      },
      [&](std::string&& start) {
        auto cost = start.size();
        inbox.push({Item::oversized, std::move(start)}, cost);
      });
  std::string buffer(1 << 16, '\0');
  pollfd fds[3] = {{STDIN_FILENO, POLLIN, 0}, {signal_fd, POLLIN, 0}, {wake_fd, POLLIN, 0}};
  while (true) {
    int ready = ::poll(fds, 3, -1);
    if (ready < 0 && errno == EINTR) continue;
    if (ready < 0) break;
    if (fds[1].revents & POLLIN) return stop_on_signal(inbox, calls, session);
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

// Runs the tool calls one at a time, in the order they were accepted.
void run_calls(Calls& calls, Inbox& inbox) {
  Session::Work work;
  while (calls.pop(work)) {
    auto reply = work();
    if (reply && !write_line(*reply)) {
      spdlog::info("serve: standard output closed");
      inbox.stop();
      calls.stop();
    }
  }
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
  Inbox inbox(MAX_QUEUED_BYTES);
  Calls calls(MAX_QUEUED_CALLS);
  std::thread reader(read_input, std::ref(inbox), std::ref(calls), std::ref(session), signal_fd,
                     wake[0]);
  std::thread worker(run_calls, std::ref(calls), std::ref(inbox));
  spdlog::info("serve: serving {}", root.string());

  // Everything but the tools is answered here at once, so nothing waits behind a long call.
  Item item;
  while (inbox.pop(item)) {
    auto accepted = item.kind == Item::oversized
                        ? Session::Accepted{session.oversized_line(item.text, MAX_LINE_BYTES), {}}
                        : session.accept(item.text);
    if (accepted.reply && !write_line(*accepted.reply)) {
      spdlog::info("serve: standard output closed");
      calls.stop();
      session.cancel_all();
      break;
    }
    if (accepted.work) calls.push(std::move(accepted.work), 1);
  }
  // End of input: the accepted calls are still answered.
  calls.close();
  worker.join();
  // Nothing waits for a first index still running: the client is gone, so is the server (the
  // index write is one transaction, and the next start indexes again).
  if (!host.ready_within(STOP_GRACE)) {
    spdlog::info("serve: input ended during the first index: exiting without it");
    spdlog::default_logger()->flush();
    std::_Exit(0);
  }
  // Wakes the reader when the dispatcher stopped first, and lets a waiting push return.
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
