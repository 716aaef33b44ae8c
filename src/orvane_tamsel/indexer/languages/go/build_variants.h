#pragma once
// Go linking: a function defined once per platform (`getsig` in os_linux.go, os_windows.go, ...)
// is called, as the Go toolchain of this machine would build it, at the definition whose file
// builds here.

#include <string>
#include <string_view>
#include <vector>

#include "orvane_tamsel/indexer/linking_plugin.h"

namespace orvane_tamsel::indexer::go {

// Whether a Go file's name (`_windows.go`, `_arm64_test.go`) confines it to a platform other
// than this machine's.
bool builds_elsewhere(std::string_view path);

// The expression of a Go file's `//go:build` line, else of its older `// +build` lines (above
// its package clause), or "".
std::string build_constraint(std::string_view content);

// Whether a `//go:build` expression excludes this machine's default build: its OS and
// architecture (and `unix`), `gc`, `cgo` and every `go1.N` hold; other tags (`ignore`, `race`,
// `purego`, ...) do not. A malformed expression excludes nothing.
bool constraint_excludes(std::string_view expr);

// The module symbol's field that keeps a file's `//go:build` expression for the linker.
inline constexpr std::string_view BUILD_FIELD = "//go:build";

// After the common rule picked one of several definitions of an fqn in one package (the longest),
// a site whose pick builds elsewhere, by its file name or its `//go:build` line, moves to one
// that builds here.
class BuildVariants final : public LinkingPlugin {
 public:
  std::vector<std::string> languages() const override { return {"go"}; }
  // A file whose `//go:build` line changed: the sites naming its definitions link again.
  void before_put_file(LinkingContext& ctx, const ParsedFile& file, std::int64_t file_id) override;
  void after_linking(LinkingContext& ctx) override;
};

}  // namespace orvane_tamsel::indexer::go
