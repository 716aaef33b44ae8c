// The explore draft's rows (symbols, neighbours) and the depth profiles.

#include <algorithm>

#include "orvane_tamsel/mcp_responses.h"
#include "orvane_tamsel/tool_handlers/explore_internal.h"

namespace orvane_tamsel::tool_handlers::detail {

const Depth& depth_profile(const std::string& name) {
  for (const auto& [n, d] : DEPTHS)
    if (n == name) return d;
  return depth_profile(DEFAULT_DEPTH);
}

std::vector<std::string> Draft::files() const {
  std::vector<std::string> out;
  for (const auto& [name, rows] : blocks.items()) {
    for (const auto& row : rows) {
      const Json* p = nullptr;
      if (row.is_string()) {
        p = &row;
      } else if (row.is_object()) {
        auto it = row.find("file");
        if (it != row.end()) p = &*it;
      }
      if (p == nullptr || !p->is_string()) continue;
      const auto& s = p->get_ref<const std::string&>();
      if (!s.empty() && std::find(out.begin(), out.end(), s) == out.end()) out.push_back(s);
    }
  }
  return out;
}

Json symbol_row(const index::Symbol& symbol, const std::string& path) {
  Json row = Json::object();
  row["fqn"] = symbol.fqn;
  row["name"] = symbol.name;
  row["kind"] = symbol.kind;
  row["file"] = path;
  row["line"] = symbol.start_line;
  if (symbol.signature && !symbol.signature->empty()) row["signature"] = *symbol.signature;
  std::string summary = first_sentence(symbol.docstring);
  if (!summary.empty()) row["summary"] = summary;
  return row;
}

namespace {
template <typename T>
Json or_null(const std::optional<T>& v) {
  return v ? Json(*v) : Json(nullptr);
}
}  // namespace

Json neighbour_row(const index::Neighbour& neighbour) {
  Json row = Json::object();
  row["fqn"] = or_null(neighbour.fqn);
  row["name"] = or_null(neighbour.name);
  row["kind"] = or_null(neighbour.kind);
  row["file"] = or_null(neighbour.path);
  row["line"] = or_null(neighbour.line);
  return row;
}

}  // namespace orvane_tamsel::tool_handlers::detail
