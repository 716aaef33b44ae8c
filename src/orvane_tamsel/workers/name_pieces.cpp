#include "orvane_tamsel/workers/name_pieces.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "orvane_tamsel/index/subwords.h"
#include "orvane_tamsel/index/word_stem.h"
#include "orvane_tamsel/utils/unicode.h"
#include "orvane_tamsel/workers/term_match.h"

namespace orvane_tamsel::workers {

namespace {

using Words = std::vector<std::string>;

// Shorter words meet whole; from this length a word meets the words it begins.
constexpr std::size_t MIN_PREFIX = 4;

constexpr std::array<std::string_view, 4> PREFIXES{"un", "dis", "de", "in"};

// What a question says for a piece of a name, by the piece's stem. Direction pieces: the
// question not saying one counts against the name bearing it.
const std::map<std::string, std::vector<std::string>, std::less<>>& cues() {
  static const std::map<std::string, std::vector<std::string>, std::less<>> table{
      {"un",
       {"remov", "undo", "revers", "back", "revert", "unset", "delet", "drop", "decod", "detach",
        "cancel"}},
      {"dis", {"stop", "remov", "break", "cut", "detach", "turn off", "disabl"}},
      {"de", {"lower", "decreas", "reduc", "remov", "undo", "back"}},
      {"in", {}},
      {"stop", {"stop", "halt", "end", "cancel", "quit", "no longer"}},
      {"remov", {"remov", "delet", "drop", "discard"}},
      {"delet", {"remov", "delet", "drop", "discard"}},
      {"decr", {"lower", "decreas", "reduc", "decrement", "subtract", "down"}},
      {"incr", {"rais", "increas", "bump", "increment", "up"}},
      {"backward", {"undo", "revert", "revers", "back", "rollback", "unappl"}},
      {"forward", {"appl", "forward"}},
      {"link", {"symlink", "link"}},
      {"should", {"decid", "whether", "should"}},
      {"decod", {"decod", "back", "pars", "read", "load"}},
      {"encod", {"encod", "sav", "writ", "serializ"}},
      {"unquot", {"decod", "unquot", "back"}},
  };
  return table;
}

// A name's words, digits apart from letters (Internaldate2tuple: internaldate, 2, tuple).
Words name_words(std::string_view name) {
  Words out;
  for (const auto& w : index::subwords(name)) {
    std::size_t start = 0;
    for (std::size_t i = 1; i <= w.size(); ++i) {
      if (i == w.size() || (std::isdigit(static_cast<unsigned char>(w[i])) != 0) !=
                               (std::isdigit(static_cast<unsigned char>(w[i - 1])) != 0)) {
        out.push_back(w.substr(start, i - start));
        start = i;
      }
    }
  }
  return out;
}

Words stems(const Words& words) {
  Words out;
  for (const auto& w : words) out.push_back(index::stem(w));
  return out;
}

struct Piece {
  std::string piece;
  std::string word;     // the word of the name bearing it
  std::string instead;  // the sibling's word in its place, when the two swap a word
};

bool cue_said(std::string_view cue, const std::string& text, const Words& asked) {
  if (cue.find(' ') != std::string_view::npos) return text.find(cue) != std::string::npos;
  return std::any_of(asked.begin(), asked.end(), [&](const std::string& a) {
    return a == cue || (cue.size() >= MIN_PREFIX && a.starts_with(cue));
  });
}

bool said(const Piece& p, const std::string& text, const Words& asked) {
  const auto& piece = p.piece;
  if (std::find(asked.begin(), asked.end(), p.word) != asked.end()) return true;
  if (auto it = cues().find(piece); it != cues().end()) {
    for (const auto& cue : it->second) {
      if (cue_said(cue, text, asked)) return true;
    }
  }
  return piece.size() >= MIN_PREFIX &&
         std::any_of(asked.begin(), asked.end(), [&](const std::string& a) {
           return a.size() > piece.size() && a.find(piece) != std::string::npos;
         });
}

// The piece of `a` that `b` lacks when the two names differ by that piece alone, or a's word where
// the two swap a direction word.
std::optional<Piece> telling_piece(const Words& a, const Words& b) {
  if (a.size() == b.size() + 1) {
    for (std::size_t i = 0; i < a.size(); ++i) {
      if (std::equal(b.begin(), b.begin() + static_cast<std::ptrdiff_t>(i), a.begin()) &&
          std::equal(b.begin() + static_cast<std::ptrdiff_t>(i), b.end(),
                     a.begin() + static_cast<std::ptrdiff_t>(i) + 1)) {
        return Piece{a[i], a[i], {}};
      }
    }
  }
  if (a.size() != b.size()) return std::nullopt;
  std::size_t differ = a.size();
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (a[i] == b[i]) continue;
    if (differ != a.size()) return std::nullopt;
    differ = i;
  }
  if (differ == a.size()) return std::nullopt;
  const auto& x = a[differ];
  const auto& y = b[differ];
  for (auto p : PREFIXES) {
    if (x.size() > p.size() && x.starts_with(p) && index::stem(x.substr(p.size())) == y) {
      return Piece{std::string(p), x, {}};
    }
  }
  if (y.size() > x.size()) {
    for (auto p : PREFIXES) {
      if (y.starts_with(p) && index::stem(y.substr(p.size())) == x) return std::nullopt;
    }
  }
  // Opposite verbs in one place (copy_file / link_file, incr_version / decr_version); any other
  // swapped word lost held out.
  if (cues().contains(x) || cues().contains(y)) return Piece{x, x, y};
  return std::nullopt;
}

// The owner's fqn and the own name.
std::pair<std::string_view, std::string_view> split_last(std::string_view fqn) {
  auto dot = fqn.rfind('.');
  if (dot == std::string_view::npos) return {{}, fqn};
  return {fqn.substr(0, dot), fqn.substr(dot + 1)};
}

}  // namespace

std::vector<double> telling_pieces(std::span<const PieceView> head, std::string_view question) {
  std::vector<double> out(head.size(), 0.0);
  auto text = utils::lower(question);
  auto asked = detail::text_stems(text);
  std::vector<Words> names;
  for (const auto& s : head) names.push_back(stems(name_words(split_last(s.fqn).second)));
  for (std::size_t j = 0; j < head.size(); ++j) {
    for (std::size_t k = 0; k < head.size(); ++k) {
      if (k == j || head[j].home != head[k].home ||
          split_last(head[j].fqn).first != split_last(head[k].fqn).first) {
        continue;
      }
      auto piece = telling_piece(names[j], names[k]);
      if (!piece) continue;
      if (!piece->instead.empty()) {
        // Both names are visited in turn: each weighs its own word against the other's.
        out[j] += static_cast<double>(said(*piece, text, asked)) -
                  static_cast<double>(said(Piece{piece->instead, piece->instead, {}}, text, asked));
        continue;
      }
      double d = said(*piece, text, asked) ? 1.0 : cues().contains(piece->piece) ? -1.0 : 0.0;
      out[j] += d;
      out[k] -= d;
    }
  }
  for (auto& v : out) v = v > 0 ? 1.0 : v < 0 ? -1.0 : 0.0;
  return out;
}

}  // namespace orvane_tamsel::workers
