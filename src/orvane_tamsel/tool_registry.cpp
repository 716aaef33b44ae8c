#include "orvane_tamsel/tool_registry.h"

namespace orvane_tamsel {

namespace {

using J = nlohmann::ordered_json;

ToolParam budget(std::int64_t default_budget) {
  return {"token_budget",
          "integer",
          "The most tokens the answer may take (4 characters of the returned text make a token)",
          20000,
          1,
          J(default_budget),
          {},
          false};
}

ToolParam action(std::vector<std::string> actions, std::string description) {
  return {"action",     "string",           std::move(description), std::nullopt,
          std::nullopt, J(actions.front()), std::move(actions),     false};
}

ToolParam text(std::string name, std::string description, bool required = true) {
  return {
      std::move(name), "string", std::move(description), std::nullopt, std::nullopt, J(nullptr), {},
      required};
}

// A parameter a call may leave out, with its default and, for strings, the values it may take.
ToolParam optional(std::string name, std::string type, std::string description, J default_value,
                   std::vector<std::string> values = {}) {
  return {std::move(name), std::move(type),          std::move(description), std::nullopt,
          std::nullopt,    std::move(default_value), std::move(values),      false};
}

ToolDescription explore_tool() {
  return {"explore",
          1,
          "Answer one free-text query about the code base: a question in words, a name in code, a "
          "path, 'tests for X' or 'available tools'. Lists symbols with signatures, "
          "evidence-backed callers and callees, ranked tests, files and components, with next "
          "steps.",
          {text("query", "A question, a name in code, a path, or 'tests for X'"),
           optional("scope", "string",
                    "file: the best file of a question only; module or project: all hits",
                    J("module"), {"file", "module", "project"}),
           optional("depth", "string", "quick, standard or deep: how many hits, callers and tests",
                    J("standard"), {"quick", "standard", "deep"}),
           budget(2000)},
          true};
}

ToolDescription context_tool() {
  return {"context",
          1,
          "A context pack for a coding task: the most relevant symbols with their source, their "
          "callers and tests, and the files to read first.",
          {action({"task"}, "task: build the pack for a task description"),
           text("task", "What the coding task is about, in words"), budget(4000)},
          true};
}

ToolDescription symbol_tool() {
  return {
      "symbol",
      2,
      "One symbol by fully qualified name: its definition and source, every caller with the "
      "call sites, or everything that references it.",
      {action({"detail", "callers", "references"}, "detail, callers or references"),
       text("fqn", "The symbol's fully qualified name, e.g. shop.cart.Cart.total"), budget(2000)},
      true};
}

ToolDescription file_tool() {
  return {"file",
          2,
          "The imports of a file, the files that import it, the files it calls and that call it, "
          "and its tests.",
          {action({"related", "symbols"},
                  "related: the files around this one; symbols: the symbols it defines"),
           text("path", "A file path relative to the repository root"), budget(2000)},
          true};
}

ToolDescription files_tool() {
  return {
      "files",
      2,
      "Every indexed file under a folder, paged, with the total.",
      {optional("path", "string", "A folder relative to the repository root; empty for all", J("")),
       {"offset", "integer", "How many files to skip", std::nullopt, 0, J(0), {}, false},
       {"limit", "integer", "How many files to list at most", 1000, 1, J(100), {}, false},
       budget(2000)},
      true};
}

ToolDescription tests_tool() {
  return {"tests",
          2,
          "The test files that exercise a file, ranked, each with why.",
          {action({"for_file"}, "for_file: the ranked tests of a file"),
           text("path", "A file path relative to the repository root"), budget(2000)},
          true};
}

ToolDescription search_tool() {
  return {"search",
          2,
          "A text search of the indexed files: literal words, or a regular expression; file, "
          "line and text of each match.",
          {action({"code"}, "code: search the text of the code"),
           text("query", "The words (or the regular expression) to look for"),
           optional("regex", "boolean", "Read the query as a regular expression", J(false)),
           budget(2000)},
          true};
}

ToolDescription memory_tool() {
  return {"memory",
          3,
          "Project memories: short notes saved by users of this tool, attached to explore answers "
          "as untrusted. Save, list or delete them.",
          {action({"list", "save", "delete"}, "list, save or delete"),
           text("title", "save: a short title", false),
           text("text", "save: the note", false),
           optional("tags", "array", "save: tags for finding the note", J::array()),
           {"id", "integer", "delete: the memory's id", std::nullopt, 1, J(nullptr), {}, false},
           budget(2000)},
          false};
}

}  // namespace

namespace detail {

std::vector<ToolDescription> make_tools() {
  return {explore_tool(), context_tool(), symbol_tool(), file_tool(),
          files_tool(),   tests_tool(),   search_tool(), memory_tool()};
}

}  // namespace detail

const ToolDescription* find_tool(const std::string& name) {
  for (const auto& t : TOOLS) {
    if (t.name == name) return &t;
  }
  return nullptr;
}

}  // namespace orvane_tamsel
