#pragma once
// The tools of one repository, kept warm and fresh between calls: the index is brought up to date
// before each call and the retriever is rebuilt only when the index changed.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stop_token>
#include <thread>

#include "orvane_tamsel/index/embedder.h"
#include "orvane_tamsel/index/memory_store.h"
#include "orvane_tamsel/index/repository.h"
#include "orvane_tamsel/server/change_watch.h"
#include "orvane_tamsel/server/session.h"
#include "orvane_tamsel/workers/retrieval.h"

namespace orvane_tamsel::server {

class LiveHost : public ToolHost {
 public:
  explicit LiveHost(std::filesystem::path root);
  ~LiveHost() override;

  // Indexes the repository in the background, so that initialize is answered at once.
  void start();
  // Waits for the indexing started by start(); the index is consistent afterwards.
  void finish();

  Json call_tool(const std::string& name, const Json& arguments) override;
  // Waits for the first index started by start(), which a stop leaves running.
  bool wait_until_ready(std::stop_token stop) override;
  // Waits at most `wait` for the first index; false when it still runs.
  bool ready_within(std::chrono::milliseconds wait);
  // Progress of the first index, while it is built: the latest at once, then as it goes.
  void report_progress(ProgressSink sink) override;
  std::string indexed_at() const override;

 private:
  // The first index; a failure is kept in start_error_ for the calls to report.
  void first_index();
  void index_at_start();
  void refresh();
  // Opens the index again when a writer replaced its file (a rebuild), which the open connection
  // would never see.
  void reopen_if_replaced();
  void progress(std::int64_t done, std::int64_t total, const std::string& message);

  std::filesystem::path root_;
  std::thread indexing_;
  std::exception_ptr start_error_;
  bool start_error_told_ = false;
  // Set when the first index ended, with or without success.
  std::mutex ready_mutex_;
  std::condition_variable_any ready_changed_;
  bool ready_ = false;
  std::unique_ptr<index::Repository> repository_;
  std::uint64_t index_inode_ = 0;
  // Kept across updates: the embedder reads only the vectors an update changed.
  std::shared_ptr<index::Embedder> embedder_;
  std::unique_ptr<workers::HybridRetriever> retriever_;
  std::unique_ptr<index::MemoryStore> memories_;
  ChangeWatch watch_;
  bool started_ = false;
  std::mutex progress_mutex_;
  ProgressSink progress_;
  // The latest progress of the first index, told at once to a sink that arrives meanwhile.
  struct {
    std::int64_t done = 0, total = 0;
    std::string message;
    bool indexing = false;
  } latest_;
  // When the last update of the index finished (seconds since the epoch; 0 before the first).
  std::atomic<std::int64_t> updated_at_{0};
};

}  // namespace orvane_tamsel::server
