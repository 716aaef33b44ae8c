#include "orvane_tamsel/indexer/folder_cache.h"

#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <optional>

namespace orvane_tamsel::indexer {

namespace {

// 02: folders list reference pages too.
constexpr char MAGIC[8] = {'t', 'm', 's', 'l', 'f', 'c', '0', '2'};

class Reader {
 public:
  explicit Reader(const std::string& data) : data_(data) {}

  std::optional<std::int64_t> number() {
    std::int64_t v;
    if (data_.size() - at_ < sizeof v) return std::nullopt;
    std::memcpy(&v, data_.data() + at_, sizeof v);
    at_ += sizeof v;
    return v;
  }
  std::optional<std::string> text() {
    auto n = number();
    if (!n || *n < 0 || static_cast<std::uint64_t>(*n) > data_.size() - at_) return std::nullopt;
    std::string s = data_.substr(at_, static_cast<std::size_t>(*n));
    at_ += s.size();
    return s;
  }
  bool at_end() const { return at_ == data_.size(); }

 private:
  const std::string& data_;
  std::size_t at_ = sizeof MAGIC;
};

void put_number(std::string& out, std::int64_t v) {
  out.append(reinterpret_cast<const char*>(&v), sizeof v);
}

void put_text(std::string& out, const std::string& s) {
  put_number(out, static_cast<std::int64_t>(s.size()));
  out.append(s);
}

}  // namespace

FolderCache::FolderCache(std::int64_t margin_ns) : margin_ns_(margin_ns) {}

void FolderCache::load(const std::filesystem::path& file) {
  loaded_.clear();
  std::ifstream in(file, std::ios::binary | std::ios::ate);
  if (!in) return;
  // One read of the whole file, not a character at a time.
  std::string data(static_cast<std::size_t>(std::max<std::streamoff>(in.tellg(), 0)), '\0');
  in.seekg(0);
  in.read(data.data(), static_cast<std::streamsize>(data.size()));
  data.resize(static_cast<std::size_t>(in.gcount()));
  if (data.size() < sizeof MAGIC || std::memcmp(data.data(), MAGIC, sizeof MAGIC) != 0) return;
  Reader r(data);
  std::unordered_map<std::string, Folder> folders;
  // Anything malformed drops the whole cache: it only saves work, and the walk reads again.
  while (!r.at_end()) {
    auto rel = r.text();
    auto device = r.number(), inode = r.number(), ctime = r.number(), mtime = r.number();
    auto count = r.number();
    if (!rel || !device || !inode || !ctime || !mtime || !count || *count < 0) return;
    Folder f{{*device, *inode, *ctime, *mtime}, {}};
    for (std::int64_t i = 0; i < *count; ++i) {
      auto type = r.number();
      auto name = r.text();
      if (!type || !name ||
          (*type != FolderEntry::directory && *type != FolderEntry::file &&
           *type != FolderEntry::symlink)) {
        return;
      }
      f.entries.push_back({std::move(*name), static_cast<FolderEntry::Type>(*type)});
    }
    folders.emplace(std::move(*rel), std::move(f));
  }
  loaded_ = std::move(folders);
}

bool FolderCache::save(const std::filesystem::path& file) const {
  std::string out(MAGIC, sizeof MAGIC);
  for (const auto& [rel, f] : kept_) {
    put_text(out, rel);
    for (auto v : {f.stamp.device, f.stamp.inode, f.stamp.ctime_ns, f.stamp.mtime_ns}) {
      put_number(out, v);
    }
    put_number(out, static_cast<std::int64_t>(f.entries.size()));
    for (const auto& e : f.entries) {
      put_number(out, e.type);
      put_text(out, e.name);
    }
  }
  // Another run may save at the same moment: each writes its own file and the last rename wins.
  auto tmp = file.string() + "." + std::to_string(::getpid());
  {
    std::ofstream o(tmp, std::ios::binary | std::ios::trunc);
    if (!o.write(out.data(), static_cast<std::streamsize>(out.size())) || !o.flush()) {
      std::error_code ec;
      std::filesystem::remove(tmp, ec);
      return false;
    }
  }
  std::error_code ec;
  std::filesystem::rename(tmp, file, ec);
  if (ec) std::filesystem::remove(tmp, ec);
  return !ec;
}

void FolderCache::start_walk(std::int64_t began_ns) {
  trusted_before_ns_ = began_ns - margin_ns_;
  for (auto& [rel, f] : kept_) loaded_.insert_or_assign(rel, std::move(f));
  kept_.clear();
  changed_ = false;
}

const std::vector<FolderEntry>* FolderCache::find(const std::string& rel,
                                                  const FolderStamp& stamp) {
  auto it = loaded_.find(rel);
  if (it == loaded_.end() || !(it->second.stamp == stamp)) return nullptr;
  auto& kept = kept_[rel];
  kept = std::move(it->second);
  loaded_.erase(it);
  return &kept.entries;
}

const std::vector<FolderEntry>* FolderCache::peek(const std::string& rel) const {
  auto it = loaded_.find(rel);
  return it == loaded_.end() ? nullptr : &it->second.entries;
}

void FolderCache::keep(const std::string& rel, const FolderStamp& stamp,
                       std::vector<FolderEntry> entries) {
  if (stamp.ctime_ns >= trusted_before_ns_ || stamp.mtime_ns >= trusted_before_ns_) return;
  kept_[rel] = {stamp, std::move(entries)};
  changed_ = true;
}

}  // namespace orvane_tamsel::indexer
