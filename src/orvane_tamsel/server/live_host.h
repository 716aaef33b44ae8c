#pragma once
// The tools of one repository, kept warm and fresh between calls: the index is brought up to date
// before each call and the retriever is rebuilt only when the index changed.

#include <condition_variable>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <memory>
#include <mutex>
#include <thread>

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

 private:
  void index_at_start();
  void refresh();
  // Opens the index again when a writer replaced its file (a rebuild), which the open connection
  // would never see.
  void reopen_if_replaced();

  std::filesystem::path root_;
  std::thread indexing_;
  std::exception_ptr start_error_;
  std::unique_ptr<index::Repository> repository_;
  std::uint64_t index_inode_ = 0;
  std::unique_ptr<workers::HybridRetriever> retriever_;
  std::unique_ptr<index::MemoryStore> memories_;
  ChangeWatch watch_;
  bool started_ = false;
};

}  // namespace orvane_tamsel::server
