#pragma once
// Runs the tamsel binary as a child process, for tests of what survives a crash or a fault.

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace faults_test {

namespace fs = std::filesystem;

struct Outcome {
  int status = 0;  // waitpid status
  std::string err;
  bool exited(int code) const { return WIFEXITED(status) && WEXITSTATUS(status) == code; }
};

class Child {
 public:
  // file_limit > 0 caps the size of any file the child writes (SIGXFSZ ignored: writes fail).
  explicit Child(const std::vector<std::string>& args, long file_limit = 0) {
    int err[2];
    if (::pipe(err) != 0) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(err[1], STDERR_FILENO);
      int null = ::open("/dev/null", O_WRONLY);
      ::dup2(null, STDOUT_FILENO);
      ::close(err[0]);
      if (file_limit > 0) {
        ::signal(SIGXFSZ, SIG_IGN);
        rlimit lim{static_cast<rlim_t>(file_limit), static_cast<rlim_t>(file_limit)};
        ::setrlimit(RLIMIT_FSIZE, &lim);
      }
      std::vector<char*> argv{const_cast<char*>(TAMSEL_BINARY)};
      for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
      argv.push_back(nullptr);
      ::execv(TAMSEL_BINARY, argv.data());
      ::_exit(127);
    }
    ::close(err[1]);
    err_ = ::fdopen(err[0], "r");
  }
  ~Child() {
    if (pid_ > 0 && !reaped_) {
      ::kill(pid_, SIGKILL);
      wait();
    }
  }
  Child(const Child&) = delete;
  Child& operator=(const Child&) = delete;

  void kill() { ::kill(pid_, SIGKILL); }
  // Reads the child's log until a line holds `text` (true) or the log ends (false); wait() still
  // returns every line.
  bool wait_for_line(const std::string& text) {
    char buf[512];
    while (err_ != nullptr && std::fgets(buf, sizeof buf, err_) != nullptr) {
      read_ += buf;
      if (std::string_view(buf).find(text) != std::string_view::npos) return true;
    }
    return false;
  }
  Outcome wait() {
    Outcome out;
    out.err = std::move(read_);
    char buf[512];
    while (err_ != nullptr && std::fgets(buf, sizeof buf, err_) != nullptr) out.err += buf;
    if (err_ != nullptr) std::fclose(err_);
    err_ = nullptr;
    ::waitpid(pid_, &out.status, 0);
    reaped_ = true;
    return out;
  }

 private:
  pid_t pid_ = -1;
  FILE* err_ = nullptr;
  std::string read_;  // what wait_for_line() read
  bool reaped_ = false;
};

// `tamsel serve` on a repository, driven one request at a time.
class Server {
 public:
  explicit Server(const std::string& repo) {
    int in[2], out[2];
    log_ = std::tmpfile();  // a file, so that a chatty server never blocks on its log
    if (::pipe(in) != 0 || ::pipe(out) != 0 || log_ == nullptr) return;
    pid_ = ::fork();
    if (pid_ == 0) {
      ::dup2(in[0], STDIN_FILENO);
      ::dup2(out[1], STDOUT_FILENO);
      ::dup2(::fileno(log_), STDERR_FILENO);
      for (int fd : {in[0], in[1], out[0], out[1]}) ::close(fd);
      ::execl(TAMSEL_BINARY, TAMSEL_BINARY, "serve", "--repo", repo.c_str(), nullptr);
      ::_exit(127);
    }
    ::close(in[0]);
    ::close(out[1]);
    in_ = ::fdopen(in[1], "w");
    out_ = ::fdopen(out[0], "r");
    request(R"("initialize","params":{"protocolVersion":"2025-11-25","capabilities":{},)"
            R"("clientInfo":{"name":"faults","version":"1"}})");
    std::fputs("{\"jsonrpc\":\"2.0\",\"method\":\"notifications/initialized\"}\n", in_);
  }
  ~Server() { stop(); }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;

  // Sends `"method"...` as the body of a request; the answer line ("" once the server is gone).
  std::string request(const std::string& body) {
    std::fprintf(in_, "{\"jsonrpc\":\"2.0\",\"id\":%d,\"method\":%s}\n", ++id_, body.c_str());
    std::fflush(in_);
    char* line = nullptr;
    size_t size = 0;
    std::string answer;
    if (::getline(&line, &size, out_) > 0) answer = line;
    std::free(line);
    return answer;
  }
  // Ends the input and waits: the exit status and everything the server logged.
  Outcome stop() {
    Outcome out;
    if (pid_ <= 0) return out;
    std::fclose(in_);
    ::waitpid(pid_, &out.status, 0);
    pid_ = -1;
    std::fclose(out_);
    std::rewind(log_);
    for (int c; (c = std::fgetc(log_)) != EOF;) out.err.push_back(static_cast<char>(c));
    std::fclose(log_);
    return out;
  }

 private:
  pid_t pid_ = -1;
  int id_ = 0;
  FILE* in_ = nullptr;
  FILE* out_ = nullptr;
  FILE* log_ = nullptr;
};

inline Outcome run(const std::vector<std::string>& args, long file_limit = 0) {
  return Child(args, file_limit).wait();
}

// DIR/pkg/<prefix><i>.py, built by appends (operator+ on to_string trips a GCC 12 false warning).
inline fs::path module_file(const fs::path& root, const char* prefix, int i) {
  std::string name = prefix;
  name += std::to_string(i);
  name += ".py";
  return root / "pkg" / name;
}

// A repository of `files` Python modules calling each other, so that edges span files.
inline void generate_repo(const fs::path& root, int files, unsigned seed) {
  std::mt19937 rng(seed);
  fs::create_directories(root / "pkg");
  std::ofstream(root / "pkg" / "__init__.py");
  for (int i = 0; i < files; ++i) {
    std::string text;
    int other = static_cast<int>(rng() % files);
    text += "from pkg.m";
    text += std::to_string(other);
    text += " import f0 as ext\n\n";
    text += "class Worker" + std::to_string(i) + ":\n    def run(self):\n        return ext()\n";
    for (int k = 0; k < 12; ++k) {
      text += "\n\ndef f" + std::to_string(k) + "():\n    \"\"\"Step " + std::to_string(k) +
              " of module " + std::to_string(i) + ".\"\"\"\n    return ext()\n";
    }
    std::ofstream(module_file(root, "m", i)) << text;
  }
}

}  // namespace faults_test
