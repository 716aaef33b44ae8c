#pragma once
// C and C++ linking: what #includes reach, and declarations merged into their definitions.

#include <cstdint>
#include <deque>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include "orvane_tamsel/indexer/linking_plugin.h"

namespace orvane_tamsel::indexer::c_family {

// How many #includes deep a call looks for its callee (a.c -> b.h -> c.h is two).
inline constexpr int MAX_INCLUDE_DEPTH = 4;

// A C or C++ call sees the files its file #includes, within a few levels, and their modules'
// other files (a function declared in a header is defined in a source file of the same module);
// the common rule's scope modules do not describe that, so these sites are linked here. A
// function declared without a body and defined under the same fqn is one symbol: the
// declaration is kept aside in `declarations` and taken back when either side changes.
class Linking final : public LinkingPlugin {
 public:
  explicit Linking(index::Database& db);
  std::vector<std::string> languages() const override { return {"c", "cpp"}; }

  void begin_batch(LinkingContext& ctx) override;
  void before_put_file(LinkingContext& ctx, const ParsedFile& file, std::int64_t file_id) override;
  std::optional<std::int64_t> keep_merged(LinkingContext& ctx, const ParsedSymbol& s, bool is_test,
                                          std::optional<std::int64_t> parent_id,
                                          const std::string& bases) override;
  void after_put_file(LinkingContext& ctx, const WrittenFile& written) override;
  void before_remove_file(LinkingContext& ctx, std::int64_t file_id, const std::string& path,
                          const std::string& module) override;
  void before_relink(LinkingContext& ctx) override;
  void after_relink(LinkingContext& ctx) override;
  void after_imports(LinkingContext& ctx) override;
  void link_calls(LinkingContext& ctx) override;
  void after_linking(LinkingContext& ctx) override;
  void end_batch(LinkingContext& ctx) override;

 private:
  // declarations.cpp
  void read_merged(std::int64_t file_id);
  void unmerge(LinkingContext& ctx);
  void merge(LinkingContext& ctx);
  // includes.cpp
  void prepare_includes(index::Database& db);
  void include_target_changed(const std::string& path);
  bool reach_includes(index::Database& db);
  // template_fit.cpp
  void link_specializations(index::Database& db);
  // macro_sites.cpp
  void prepare_macros(index::Database& db);
  void forget_macros(LinkingContext& ctx, std::int64_t file_id);
  void store_macros(LinkingContext& ctx, const ParsedFile& file, std::int64_t file_id);
  void make_macro_sites(LinkingContext& ctx);
  void copy_macro_links(index::Database& db);
  void drop_unlinked_macro_sites(LinkingContext& ctx);
  // usings.cpp
  void prepare_usings(index::Database& db);
  void store_usings(LinkingContext& ctx, const ParsedFile& file, std::int64_t file_id);
  void add_using_fallbacks(index::Database& db);

  index::Statement old_declarations_, keep_declaration_, insert_symbol_, mark_new_text_,
      includers_of_, reimport_module_, mark_include_changed_, relink_includers_;
  // The declarations of the file being written that were merged when it was last written.
  std::unordered_map<std::string, std::deque<StoredSymbol>> merged_before_;
  index::Statement old_macros_, clear_macros_, insert_macro_, drop_file_sites_;
  // The macros of the file being written as stored before (name -> parameters and calls), and
  // the names of macros that came, went or changed in the batch.
  std::map<std::string, std::string> macros_before_;
  std::set<std::string> changed_macros_;
  index::Statement old_usings_, clear_usings_, insert_using_;
  bool c_sites_ = false;  // the batch links sites of C or C++ files
};

}  // namespace orvane_tamsel::indexer::c_family
