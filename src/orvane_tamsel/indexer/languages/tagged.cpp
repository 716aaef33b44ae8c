#include "orvane_tamsel/indexer/languages/tagged.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>

#include "orvane_tamsel/indexer/languages/skeleton.h"
#include "orvane_tamsel/indexer/tree_sitter_handles.h"

namespace orvane_tamsel::indexer::tagged {

namespace {

constexpr std::size_t MAX_SIGNATURE = 300;

// All of a language's query files as one query, compiled once; a TSQuery is read-only after
// creation, so threads share it.
const TSQuery* query_for(const utils::Language& language) {
  static std::mutex mutex;
  static std::map<std::string, QueryPtr, std::less<>> compiled;
  std::lock_guard lock(mutex);
  if (auto it = compiled.find(language.name); it != compiled.end()) return it->second.get();
  return compiled.emplace(language.name, skeleton::compile_queries(language).query)
      .first->second.get();
}

bool is_null(TSNode n) {
  return n.id == nullptr;
}

}  // namespace

Extraction::Extraction(const utils::Language& language, std::string_view path,
                       std::string_view module, std::string_view content)
    : language_(language), path_(path), module_(module), src_(content) {}

std::string Extraction::join(std::string_view a, std::string_view b) {
  if (a.empty()) return std::string(b);
  if (b.empty()) return std::string(a);
  std::string out;
  out.reserve(a.size() + 1 + b.size());
  out.append(a).append(".").append(b);
  return out;
}

std::string_view Extraction::text(TSNode n) const {
  auto a = ts_node_start_byte(n), b = ts_node_end_byte(n);
  return src_.substr(a, b - a);
}

std::string Extraction::field_text(TSNode n, const char* field) const {
  TSNode f = ts_node_child_by_field_name(n, field, static_cast<std::uint32_t>(strlen(field)));
  return ts_node_is_null(f) ? std::string() : std::string(text(f));
}

bool Extraction::is(TSNode n, const char* type) {
  return !is_null(n) && std::strcmp(ts_node_type(n), type) == 0;
}

std::size_t Extraction::frame_of_type(const char* type) const {
  for (std::size_t i = frames_.size(); i-- > 0;) {
    if (is(frames_[i].node, type)) return i;
  }
  return NONE;
}

bool Extraction::is_callable(const ParsedSymbol& s) const {
  return s.kind == "function" || s.kind == "method" || s.kind == "constructor";
}

ParsedFile Extraction::run() {
  auto tree = skeleton::parse(language_, path_, parse_input());
  root_ = ts_tree_root_node(tree.get());
  out_ = skeleton::file_record(language_, path_, module_, src_);
  out_.symbols.push_back(skeleton::module_symbol(out_));
  prefixes_.emplace_back();

  collect_tags();
  matches_read();

  // One depth-first walk keeps the ancestors at hand, which the rules read for scopes.
  TSTreeCursor cursor = ts_tree_cursor_new(root_);
  enter(root_);
  for (;;) {
    if (ts_tree_cursor_goto_first_child(&cursor)) {
      enter(ts_tree_cursor_current_node(&cursor));
      continue;
    }
    bool done = false;
    while (!ts_tree_cursor_goto_next_sibling(&cursor)) {
      frames_.pop_back();
      if (!ts_tree_cursor_goto_parent(&cursor)) {
        done = true;
        break;
      }
    }
    if (done) break;
    frames_.pop_back();
    enter(ts_tree_cursor_current_node(&cursor));
  }
  ts_tree_cursor_delete(&cursor);

  finish();
  for (const auto& pending : pending_) {
    ParsedCall call;
    call.caller_fqn = out_.symbols[pending.caller].fqn;
    call.line = line(pending.callee);
    resolve(pending, call);
    out_.calls.push_back(std::move(call));
  }
  return std::move(out_);
}

void Extraction::collect_tags() {
  const TSQuery* query = tag_query();
  std::unique_ptr<TSQueryCursor, CursorDeleter> cursor(ts_query_cursor_new());
  ts_query_cursor_exec(cursor.get(), query, root_);
  TSQueryMatch m;
  while (ts_query_cursor_next_match(cursor.get(), &m)) {
    if (take(m)) continue;
    Tag tag;
    for (std::uint16_t i = 0; i < m.capture_count; ++i) {
      std::uint32_t len = 0;
      const char* raw = ts_query_capture_name_for_id(query, m.captures[i].index, &len);
      std::string_view name(raw, len);
      if (name == "name") {
        tag.name = m.captures[i].node;
      } else if (name.starts_with("definition.")) {
        tag.role = name.substr(11);
        tag.node = m.captures[i].node;
      } else if (name.starts_with("reference.")) {
        tag.role = name.substr(10);
        tag.definition = false;
        tag.node = m.captures[i].node;
      }
    }
    if (is_null(tag.node) || is_null(tag.name)) continue;
    auto& list = tags_[tag.node.id];
    // Patterns of several query files may tag one node: the widest name wins (`ns::f` over `f`).
    auto same = std::find_if(list.begin(), list.end(),
                             [&](const Tag& t) { return t.definition == tag.definition; });
    if (same == list.end()) {
      list.push_back(std::move(tag));
    } else if (ts_node_end_byte(tag.name) - ts_node_start_byte(tag.name) >
               ts_node_end_byte(same->name) - ts_node_start_byte(same->name)) {
      *same = std::move(tag);
    }
  }
}

void Extraction::enter(TSNode node) {
  Frame frame;
  frame.node = node;
  if (!frames_.empty()) {
    Frame& parent = frames_.back();
    // whether the comment run before the node ends on the line before it or on its own line
    auto run_reaches = [&] {
      return !is_null(parent.run_last) &&
             ts_node_end_point(parent.run_last).row + 1 >= ts_node_start_point(node).row;
    };
    if (keeps_doc(node)) {
      // the comment run stays open for the definition after it
    } else if (is_comment(node)) {
      bool trailing = !is_null(parent.last_code) &&
                      ts_node_start_point(node).row == ts_node_end_point(parent.last_code).row;
      if (trailing) {
        parent.run_first = parent.run_last = TSNode{};
      } else {
        if (!run_reaches()) parent.run_first = node;
        parent.run_last = node;
      }
    } else {
      if (run_reaches()) {
        frame.doc_first = parent.run_first;
        frame.doc_last = parent.run_last;
      }
      parent.run_first = parent.run_last = TSNode{};
      parent.last_code = node;
    }
  }
  frame.scope = scope_of(node);
  frames_.push_back(std::move(frame));
  if (auto it = tags_.find(node.id); it != tags_.end()) {
    for (const auto& tag : it->second) {
      if (tag.definition) {
        define_symbol(tag);
      } else if (tag.role == "call") {
        TSNode fn = ts_node_child_by_field_name(node, "function", 8);
        add_call(node, is_null(fn) ? tag.name : fn);
      }
    }
  }
  visit(node);
}

void Extraction::define_symbol(const Tag& tag) {
  auto def = define(tag);
  if (!def || def->name.empty()) return;
  std::size_t host = NONE;
  for (std::size_t i = frames_.size(); i-- > 0;) {
    if (ts_node_eq(frames_[i].node, def->host)) {
      host = i;
      break;
    }
  }
  if (host == NONE || frames_[host].symbol != NONE) return;  // one symbol per host node

  std::string prefix = top_prefix();
  std::size_t parent = 0;
  for (std::size_t i = 0; i < host && !def->unscoped; ++i) {
    prefix = join(prefix, frames_[i].scope);
    if (frames_[i].symbol != NONE) parent = frames_[i].symbol;
  }
  for (const auto& q : def->qualifier) prefix = join(prefix, q);

  ParsedSymbol s;
  s.name = def->name;
  s.kind = def->kind;
  s.fqn = join(prefix, def->name);
  s.parent_fqn = out_.symbols[parent].fqn;
  s.start_line = line(def->host);
  s.end_line = end_line(def->host);
  auto signature = signature_of(def->host);
  if (!signature.empty()) s.signature = std::move(signature);
  s.docstring = docstring_of(def->host, frames_[host]);
  s.is_test = out_.is_test || def->is_test;

  std::size_t index = out_.symbols.size();
  frames_[host].symbol = index;
  if (def->opens_scope) frames_[host].scope = def->name;
  defined_.emplace(s.fqn, index);
  prefixes_.push_back(prefix);
  out_.symbols.push_back(std::move(s));
  defined(index, tag);
}

const TSQuery* Extraction::tag_query() const {
  return query_for(language_);
}

std::optional<std::string> Extraction::docstring_of(TSNode /*host*/, const Frame& frame) const {
  if (is_null(frame.doc_first)) return std::nullopt;
  auto a = ts_node_start_byte(frame.doc_first), b = ts_node_end_byte(frame.doc_last);
  auto doc = doc_text(src_.substr(a, b - a));
  if (doc.empty()) return std::nullopt;
  return doc;
}

std::size_t Extraction::current_callable() const {
  for (std::size_t i = frames_.size(); i-- > 0;) {
    auto sym = frames_[i].symbol;
    if (sym != NONE && is_callable(out_.symbols[sym])) return sym;
  }
  return 0;
}

void Extraction::add_call(TSNode call, TSNode callee) {
  pending_.push_back({call, callee, current_callable()});
}

std::string Extraction::signature_of(TSNode host) const {
  TSNode body = ts_node_child_by_field_name(host, "body", 4);
  return flatten(ts_node_start_byte(host),
                 ts_node_is_null(body) ? ts_node_end_byte(host) : ts_node_start_byte(body));
}

std::string Extraction::flatten(std::uint32_t a, std::uint32_t b) const {
  std::string out;
  bool space = false;
  for (char c : src_.substr(a, b - a)) {
    if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
      space = !out.empty();
      continue;
    }
    if (space) out.push_back(' ');
    space = false;
    out.push_back(c);
  }
  while (!out.empty() && (out.back() == ';' || out.back() == '{' || out.back() == ' ')) {
    out.pop_back();
  }
  if (out.size() > MAX_SIGNATURE) {
    std::size_t cut = MAX_SIGNATURE;
    while (cut > 0 && (static_cast<unsigned char>(out[cut]) & 0xC0) == 0x80) --cut;
    out.resize(cut);
  }
  return out;
}

// Comment markers (`//`, `///`, `/**`, ` * `, `*/`) go; the words and line breaks stay.
std::string Extraction::doc_text(std::string_view raw) const {
  std::vector<std::string> lines;
  std::size_t start = 0;
  while (start <= raw.size()) {
    auto end = raw.find('\n', start);
    if (end == std::string_view::npos) end = raw.size();
    std::string_view l = raw.substr(start, end - start);
    auto trim = [&] {
      while (!l.empty() && (l.front() == ' ' || l.front() == '\t')) l.remove_prefix(1);
      while (!l.empty() && (l.back() == ' ' || l.back() == '\t' || l.back() == '\r')) {
        l.remove_suffix(1);
      }
    };
    trim();
    if (l.ends_with("*/")) l.remove_suffix(2);
    if (l.starts_with("//")) {
      l.remove_prefix(2);
      while (!l.empty() && (l.front() == '/' || l.front() == '!')) l.remove_prefix(1);
    } else if (l.starts_with("/*")) {
      l.remove_prefix(2);
      while (!l.empty() && (l.front() == '*' || l.front() == '!')) l.remove_prefix(1);
    } else if (l.starts_with("*")) {
      l.remove_prefix(1);
    }
    trim();
    lines.emplace_back(l);
    start = end + 1;
  }
  while (!lines.empty() && lines.back().empty()) lines.pop_back();
  std::size_t first = 0;
  while (first < lines.size() && lines[first].empty()) ++first;
  std::string out;
  for (std::size_t i = first; i < lines.size(); ++i) {
    if (i > first) out.push_back('\n');
    out += lines[i];
  }
  return out;
}

}  // namespace orvane_tamsel::indexer::tagged
