#include "orvane_tamsel/indexer/languages/python/annotations.h"

#include <algorithm>
#include <cctype>
#include <vector>

namespace orvane_tamsel::indexer::python {

namespace {

constexpr int MAX_NESTING = 8;

std::string_view trim(std::string_view s) {
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front())) != 0) s.remove_prefix(1);
  while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back())) != 0) s.remove_suffix(1);
  return s;
}

bool is_dotted_name(std::string_view s) {
  if (s.empty() || s.front() == '.' || s.back() == '.') return false;
  for (char c : s) {
    if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '_' && c != '.' &&
        static_cast<unsigned char>(c) < 0x80) {
      return false;
    }
  }
  return std::isdigit(static_cast<unsigned char>(s.front())) == 0;
}

// Splits at `sep` outside brackets and quotes.
std::vector<std::string_view> split_top(std::string_view s, char sep) {
  std::vector<std::string_view> out;
  int depth = 0;
  char quote = 0;
  std::size_t start = 0;
  for (std::size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '[' || c == '(') {
      ++depth;
    } else if (c == ']' || c == ')') {
      --depth;
    } else if (c == sep && depth == 0) {
      out.push_back(s.substr(start, i - start));
      start = i + 1;
    }
  }
  out.push_back(s.substr(start));
  return out;
}

bool one_of(std::string_view name, std::initializer_list<std::string_view> names) {
  for (auto n : names) {
    if (n == name) return true;
  }
  return false;
}

using Classes = std::vector<std::string>;

Classes parse(std::string_view s, bool yielded, int depth);

// The classes of a union's members, each once; a member that names none (`list[int]`, a
// literal) adds nothing, as a value of unknown type is passed over where it is used.
Classes either(const std::vector<std::string_view>& terms, bool yielded, int depth) {
  Classes found;
  for (auto t : terms) {
    for (auto& c : parse(t, yielded, depth + 1)) {
      if (c != "None" && std::find(found.begin(), found.end(), c) == found.end()) {
        found.push_back(std::move(c));
      }
    }
  }
  return found;
}

Classes parse(std::string_view s, bool yielded, int depth) {
  s = trim(s);
  if (depth > MAX_NESTING || s.empty()) return {};
  if (s.size() >= 2 && (s.front() == '"' || s.front() == '\'') && s.back() == s.front()) {
    return parse(s.substr(1, s.size() - 2), yielded, depth + 1);
  }
  auto terms = split_top(s, '|');
  if (terms.size() > 1) return either(terms, yielded, depth);
  auto open = s.find('[');
  auto head = trim(s.substr(0, open));
  if (!is_dotted_name(head)) return {};
  if (open == std::string_view::npos) return {std::string(head)};
  if (s.back() != ']') return {};
  auto args = split_top(s.substr(open + 1, s.size() - open - 2), ',');
  auto last = head.substr(head.rfind('.') == std::string_view::npos ? 0 : head.rfind('.') + 1);
  if (one_of(last, {"Optional", "Union"})) return either(args, yielded, depth);
  if (one_of(last, {"Annotated", "ClassVar", "Final", "Type", "type", "Required", "NotRequired",
                    "ReadOnly"})) {
    return parse(args[0], yielded, depth + 1);
  }
  if (yielded && one_of(last, {"Iterator", "Iterable", "Generator", "AsyncIterator",
                               "AsyncIterable", "AsyncGenerator"})) {
    return parse(args[0], false, depth + 1);
  }
  // A container or protocol of typing, or a builtin one: not the class of the value itself.
  if (one_of(last, {"List",
                    "Dict",
                    "Set",
                    "FrozenSet",
                    "Tuple",
                    "Callable",
                    "Iterable",
                    "Iterator",
                    "Generator",
                    "Sequence",
                    "MutableSequence",
                    "Mapping",
                    "MutableMapping",
                    "AbstractSet",
                    "MutableSet",
                    "Collection",
                    "Container",
                    "Awaitable",
                    "Coroutine",
                    "AsyncIterable",
                    "AsyncIterator",
                    "AsyncGenerator",
                    "Deque",
                    "DefaultDict",
                    "OrderedDict",
                    "Counter",
                    "ChainMap",
                    "Literal",
                    "TypeGuard",
                    "Concatenate",
                    "Unpack",
                    "list",
                    "dict",
                    "set",
                    "frozenset",
                    "tuple",
                    "deque",
                    "defaultdict"})) {
    return {};
  }
  return {std::string(head)};  // a generic class, parameterized (`queue.Queue[Item]`): the class
}

// Containers whose first argument is what iterating them gives.
bool iterates_first(std::string_view last) {
  return one_of(last, {"List",          "Set",           "FrozenSet",      "Iterable",
                       "Iterator",      "Generator",     "Sequence",       "MutableSequence",
                       "AbstractSet",   "MutableSet",    "Collection",     "Deque",
                       "AsyncIterable", "AsyncIterator", "AsyncGenerator", "KeysView",
                       "Dict",          "Mapping",       "MutableMapping", "DefaultDict",
                       "OrderedDict",   "Counter",       "ChainMap",       "list",
                       "set",           "frozenset",     "deque",          "dict",
                       "defaultdict"});
}

// The one class of an annotation, or "" when it names none or several.
std::string one(const Classes& classes) {
  return classes.size() == 1 ? classes.front() : "";
}

std::string element(std::string_view s, int depth) {
  s = trim(s);
  if (depth > MAX_NESTING || s.empty()) return "";
  if (s.size() >= 2 && (s.front() == '"' || s.front() == '\'') && s.back() == s.front()) {
    return element(s.substr(1, s.size() - 2), depth + 1);
  }
  auto terms = split_top(s, '|');
  auto open = s.find('[');
  if (terms.size() == 1 && (open == std::string_view::npos || s.back() != ']')) return "";
  std::vector<std::string_view> args;
  std::string_view last;
  if (terms.size() == 1) {
    auto head = trim(s.substr(0, open));
    last = head.substr(head.rfind('.') == std::string_view::npos ? 0 : head.rfind('.') + 1);
    args = split_top(s.substr(open + 1, s.size() - open - 2), ',');
  }
  if (terms.size() > 1 || one_of(last, {"Optional", "Union"})) {  // the containers must agree
    std::string found;
    for (auto t : terms.size() > 1 ? terms : args) {
      if (trim(t) == "None") continue;
      auto c = element(t, depth + 1);
      if (c.empty() || (!found.empty() && c != found)) return "";
      found = c;
    }
    return found;
  }
  if (iterates_first(last)) return one(parse(args[0], false, depth + 1));
  if (one_of(last, {"tuple", "Tuple"})) {  // `tuple[X, ...]`, or elements that agree
    if (args.size() == 2 && trim(args[1]) == "...") return one(parse(args[0], false, depth + 1));
    std::string found;
    for (auto a : args) {
      if (trim(a) == "None") continue;
      auto c = one(parse(a, false, depth + 1));
      if (c.empty() || (!found.empty() && c != found)) return "";
      found = c;
    }
    return found;
  }
  if (one_of(last, {"Annotated", "Final", "ClassVar"})) return element(args[0], depth + 1);
  return "";
}

}  // namespace

std::string annotated_element(std::string_view annotation) {
  auto c = element(annotation, 0);
  return c == "None" ? "" : c;
}

std::vector<std::string> annotated_classes(std::string_view annotation, bool yielded) {
  auto classes = parse(annotation, yielded, 0);
  std::erase(classes, "None");
  return classes;
}

std::string annotated_class(std::string_view annotation, bool yielded) {
  return one(annotated_classes(annotation, yielded));
}

}  // namespace orvane_tamsel::indexer::python
