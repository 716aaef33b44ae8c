#pragma once
// The one piece telling two sibling names apart, said by the question or not: "remove a
// registered serializer format" wants unregister_serializer, not register_serializer; "lower the
// version" decr_version, not incr_version; "random int64 below n" Int63n, not Int63. Both names
// say every other word of the question alike, so nothing else tells them apart.

#include <span>
#include <string_view>
#include <vector>

namespace orvane_tamsel::workers {

// One symbol of the reranked head as its siblings see it.
struct PieceView {
  std::string_view fqn;
  std::string_view home;  // its file, or its folder where a folder is a package
};

// Per symbol, -1, 0 or 1: the sign over its siblings (same owner, same home) whose names differ
// from its own by one piece (a word, or un-, dis-, de-, in- before a word): +1 where the question
// says its piece (or a word the piece stands for: "remove" for un-, "lower" for decr), -1 where
// it says the sibling's; a direction piece the question does not say counts against its bearer.
// Names swapping a direction word for another (copy_file / link_file) weigh the one said against
// the other.
std::vector<double> telling_pieces(std::span<const PieceView> head, std::string_view question);

}  // namespace orvane_tamsel::workers
