#pragma once
// Go linking: methods promoted through embedded structs.

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/linking_plugin.h"

namespace orvane_tamsel::indexer::go {

// `s.Close()` with s a Server that embeds Base names Server.Close; when no file defines it,
// Base.Close of the same package is the callee, the nearest embedding first. Two at one depth
// are ambiguous and make no edge, as they do for the compiler.
class Promotion final : public LinkingPlugin {
 public:
  explicit Promotion(index::Database& db);
  std::vector<std::string> languages() const override { return {"go"}; }

  void before_put_file(LinkingContext& ctx, const ParsedFile& file, std::int64_t file_id) override;
  void after_put_file(LinkingContext& ctx, const WrittenFile& written) override;
  void before_remove_file(LinkingContext& ctx, std::int64_t file_id, const std::string& path,
                          const std::string& module) override;
  void before_relink(LinkingContext& ctx) override;
  void after_linking(LinkingContext& ctx) override;
  void end_batch(LinkingContext& ctx) override;

 private:
  // The struct whose embeddings a site's type names, as (bases, package module), when exactly
  // one in the site's scope does.
  std::vector<std::pair<std::string, std::string>> embeddings(std::int64_t site,
                                                              const std::string& type, bool& any);
  void promote(std::int64_t site, const std::string& bases, const std::string& module,
               const std::string& method);
  void affect_package(LinkingContext& ctx, const std::string& package,
                      const std::vector<std::pair<std::string, std::string>>& affected);

  index::Statement struct_bases_, relink_members_, scopes_, embedding_, bases_in_, method_in_,
      link_;
  // Go packages whose files changed, and the fqns whose members' call sites to link again:
  // a method promoted through an embedded struct may come or go with them.
  std::set<std::string> packages_;
  std::vector<std::string> scopes_to_relink_;
  std::map<std::string, std::string> embeds_before_;  // of the file being written: fqn -> bases
};

}  // namespace orvane_tamsel::indexer::go
