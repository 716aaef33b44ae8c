#pragma once
// The calls a C or C++ macro's body makes, read from its tokens, and what a use of the macro
// calls once the macros its body invokes are expanded in turn, their parameters bound to the
// names passed to them (`EXPECT_EQ` passes `EqHelper::Compare` to a macro that calls it).

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::indexer::c_family {

// A call written in a body: the callee as written (a name, qualified or not, or a parameter's
// name; a member call on a name as `x.name`, pasted names joined by `##`: `(x).pre_##m` is
// `x.pre_##m`), its argument count (-1 when variadic arguments pass through), and each argument
// that is a name alone, as written ("" for any other expression).
struct MacroCall {
  std::string callee;
  std::int64_t arguments = -1;
  std::vector<std::string> args;
  bool operator==(const MacroCall&) const = default;
};

struct MacroBody {
  std::string name;
  std::vector<std::string> params;  // `...` as __VA_ARGS__
  std::vector<MacroCall> calls;
  std::int64_t file_id = 0;
};

// The calls of a body, in order; member calls on other than a name, stringized and pasted names
// called alone, declarations and keywords are left out.
std::vector<MacroCall> calls_in_body(std::string_view body);

// The stored forms of a body's parameters and calls.
std::string encode_params(const std::vector<std::string>& params);
std::vector<std::string> decode_params(std::string_view text);
std::string encode_calls(const std::vector<MacroCall>& calls);
std::vector<MacroCall> decode_calls(std::string_view text);

// The definitions a name invoked in `from`'s body stands for: nullopt when it is no macro, none
// when it is one whose definition the use does not see.
using MacroLookup = std::function<std::optional<std::vector<const MacroBody*>>(
    std::string_view name, const MacroBody& from)>;

// The functions a use of `macro` calls, nearest first, each once: the body's calls, with those
// of the macros it invokes in place of the invocation, down to `max_depth` levels; a macro
// already being expanded adds nothing (a cycle), nor does a parameter the use leaves unbound or
// binds to its own argument (a use passes expressions, not names). An argument that is one of
// the use's own is USE_ARGUMENT and its position, `nullptr` is kept ("" for any other; none when
// no argument is either).
// A member call is kept when its receiver is one of the use's arguments: `EXPECT_CALL(m, F)`
// expanding to `(m).gmock_##F(...)` calls USE_ARGUMENT 1 "." "gmock_" USE_ARGUMENT 2.
inline constexpr std::string_view USE_ARGUMENT = "\x01";
std::vector<MacroCall> expand_calls(const MacroBody& macro, const MacroLookup& lookup,
                                    int max_depth = 8);

// The argument kinds (ParsedCall::argument_kinds) of an expanded call, from those the use's own
// arguments show and the body's `nullptr`; "" when none shows.
std::string argument_kinds_at_use(const MacroCall& call, std::string_view use_kinds);

}  // namespace orvane_tamsel::indexer::c_family
