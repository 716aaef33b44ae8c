#include "orvane_tamsel/cli/text_render.h"

#include <set>
#include <string_view>

#include "orvane_tamsel/cli/tool_command_line.h"

namespace orvane_tamsel::cli {

namespace {

using Json = nlohmann::ordered_json;

constexpr std::string_view BOLD = "\033[1m";
constexpr std::string_view DIM = "\033[2m";
constexpr std::string_view RED = "\033[31m";
constexpr std::string_view GREEN = "\033[32m";
constexpr std::string_view YELLOW = "\033[33m";
constexpr std::string_view CYAN = "\033[36m";
constexpr std::string_view RESET = "\033[0m";

// A list of short words this long at most stays on its key's line.
constexpr std::size_t INLINE_LIST = 100;

// Keys that say what a row is about: shown as its title, in this order of preference.
constexpr std::string_view TITLE_KEYS[] = {"fqn", "path", "file", "title", "name", "module"};
// Keys shown on a line of their own below the title.
const std::set<std::string, std::less<>> TEXT_KEYS = {"signature", "summary", "docstring", "reason",
                                                      "text"};

class Writer {
 public:
  explicit Writer(const TextStyle& style) : style_(style) {}

  std::string paint(std::string_view color, const std::string& text) const {
    if (!style_.color || text.empty()) return text;
    return std::string(color) + text + std::string(RESET);
  }

  void line(const std::string& text, int indent = 0) {
    out_ += std::string(static_cast<std::size_t>(indent), ' ') + text + "\n";
  }
  void gap() {
    if (!out_.empty() && !out_.ends_with("\n\n")) out_ += "\n";
    after_block = false;
  }
  std::string take() { return std::move(out_); }

  const TextStyle& style() const { return style_; }

  // Set after a block of rows, so that the next line of a value starts a paragraph.
  bool after_block = false;

 private:
  const TextStyle& style_;
  std::string out_;
};

std::string scalar(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_null()) return "-";
  return value.dump();
}

bool all_scalars(const Json& list) {
  for (const auto& v : list) {
    if (v.is_structured()) return false;
  }
  return true;
}

std::string joined(const Json& list, const std::string& sep) {
  std::string out;
  for (const auto& v : list) out += (out.empty() ? "" : sep) + scalar(v);
  return out;
}

// ":25", ":25-30" for the span of a definition, ":10,14" for call sites.
std::string line_suffix(const Json& row) {
  if (row.contains("line") && row["line"].is_number()) return ":" + scalar(row["line"]);
  auto lines = row.find("lines");
  if (lines == row.end() || !lines->is_array() || lines->empty()) return "";
  bool span = lines->size() == 2 && (row.contains("signature") || row.contains("source"));
  return ":" + (span ? scalar((*lines)[0]) + "-" + scalar((*lines)[1]) : joined(*lines, ","));
}

void source_block(Writer& w, const std::string& source, int indent) {
  std::size_t start = 0;
  while (start <= source.size()) {
    auto end = source.find('\n', start);
    if (end == std::string::npos) end = source.size();
    w.line(w.paint(DIM, "| ") + source.substr(start, end - start), indent);
    start = end + 1;
  }
}

void row(Writer& w, const Json& r, int indent) {
  std::string title_key;
  for (auto key : TITLE_KEYS) {
    if (r.contains(key) && r[std::string(key)].is_string()) {
      title_key = key;
      break;
    }
  }
  std::string head;
  if (r.contains("id")) head += w.paint(DIM, "#" + scalar(r["id"])) + " ";
  if (r.contains("kind") && r["kind"].is_string()) head += w.paint(DIM, scalar(r["kind"])) + " ";
  // An import's line is in the file asked about, not in the file it names.
  bool line_in_place = !r.contains("module");
  std::set<std::string> shown = {"id", "kind", title_key};
  if (title_key == "fqn") shown.insert("name");  // the fqn's last part
  if (line_in_place) shown.insert({"line", "lines"});
  if (!title_key.empty()) head += w.paint(BOLD, scalar(r[title_key]));
  // The location follows the title, or is the title when the row is about a file.
  for (const char* place : {"path", "file"}) {
    if (!r.contains(place) || !r[place].is_string()) continue;
    std::string suffix = line_in_place ? line_suffix(r) : "";
    if (title_key == place) {
      head += suffix;
    } else {
      head += "  " + w.paint(DIM, scalar(r[place]) + suffix);
    }
    shown.insert(place);
    break;
  }
  std::string meta;
  for (const auto& [key, value] : r.items()) {
    if (shown.contains(key) || TEXT_KEYS.contains(key) || key == "source") continue;
    std::string text = value.is_array() ? joined(value, ", ") : scalar(value);
    meta += (meta.empty() ? "" : " · ") + key + " " + text;
  }
  if (!meta.empty()) head += "  " + w.paint(DIM, meta);
  w.line(head, indent);
  for (const auto& [key, value] : r.items()) {
    if (!TEXT_KEYS.contains(key)) continue;
    std::string text = scalar(value);
    if (key == "signature") text = w.paint(CYAN, text);
    if (key == "reason") text = w.paint(DIM, "why: ") + text;
    if (key == "text" && title_key != "title") text = w.paint(DIM, "text: ") + text;
    w.line(text, indent + 4);
  }
  if (r.contains("source") && r["source"].is_string()) {
    source_block(w, r["source"].get<std::string>(), indent + 4);
  }
}

void value(Writer& w, const std::string& key, const Json& v, int indent);

void list(Writer& w, const std::string& key, const Json& items, int indent) {
  std::string label = w.paint(BOLD, key);
  if (items.empty()) {
    w.line(label + w.paint(DIM, ": none"), indent);
    return;
  }
  if (all_scalars(items)) {
    auto text = joined(items, ", ");
    if (text.size() <= INLINE_LIST && key != "files" && key != "files_to_read") {
      w.line(label + ": " + text, indent);
      return;
    }
    w.line(label + w.paint(DIM, " (" + std::to_string(items.size()) + ")"), indent);
    for (const auto& item : items) w.line(scalar(item), indent + 2);
    w.after_block = true;
    return;
  }
  w.line(label + w.paint(DIM, " (" + std::to_string(items.size()) + ")"), indent);
  for (const auto& item : items) {
    if (item.is_object()) {
      row(w, item, indent + 2);
    } else {
      value(w, "-", item, indent + 2);
    }
  }
  w.after_block = true;
}

void next_steps(Writer& w, const Json& steps) {
  if (!steps.is_array() || steps.empty()) return;
  w.gap();
  w.line(w.paint(BOLD, "next"));
  for (const auto& s : steps) {
    if (!s.is_object()) continue;
    std::string command = tool_command(s.value("tool", std::string()),
                                       s.value("arguments", Json::object()), w.style().repo);
    w.line(w.paint(GREEN, command) + "  " + w.paint(DIM, "# " + s.value("description", "")), 2);
  }
}

void value(Writer& w, const std::string& key, const Json& v, int indent) {
  if (w.after_block) w.gap();
  if (v.is_array()) {
    if (!all_scalars(v)) w.gap();
    list(w, key, v, indent);
    return;
  }
  if (v.is_object()) {
    w.gap();
    w.line(w.paint(BOLD, key), indent);
    for (const auto& [k, inner] : v.items()) value(w, k, inner, indent + 2);
    return;
  }
  if (key == "source" && v.is_string()) {
    w.line(w.paint(BOLD, key), indent);
    source_block(w, v.get<std::string>(), indent + 2);
    return;
  }
  std::string text = scalar(v);
  if (key == "signature") text = w.paint(CYAN, text);
  w.line(w.paint(DIM, key + ":") + " " + text, indent);
}

}  // namespace

std::string render_text(const Json& answer, const TextStyle& style) {
  Writer w(style);
  if (!answer.is_object()) {
    w.line(scalar(answer));
    return w.take();
  }
  if (answer.contains("error")) {
    w.line(w.paint(RED, "error: ") + scalar(answer["error"]));
    if (answer.contains("hint")) w.line(w.paint(YELLOW, "hint: ") + scalar(answer["hint"]));
  }
  if (answer.contains("query") && answer.contains("route")) {
    w.line(w.paint(BOLD, scalar(answer["query"])) + "  " +
           w.paint(DIM, "(" + scalar(answer["route"]) + ")"));
  }
  bool shown_head = answer.contains("query") && answer.contains("route");
  for (const auto& [key, v] : answer.items()) {
    if (key == "error" || key == "hint" || key == "tokens_used" || key == "next_steps") continue;
    if (shown_head && (key == "query" || key == "route")) continue;
    if (key == "truncated") {
      if (v == true) {
        w.gap();
        w.line(w.paint(YELLOW, "cut to the token budget; the next steps can ask for more"));
      }
      continue;
    }
    if (key == "notes" && v.is_array()) {
      w.gap();
      for (const auto& n : v) w.line(w.paint(YELLOW, "note: ") + scalar(n));
      continue;
    }
    value(w, key, v, 0);
  }
  if (answer.contains("next_steps")) next_steps(w, answer["next_steps"]);
  return w.take();
}

}  // namespace orvane_tamsel::cli
