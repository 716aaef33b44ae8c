#pragma once
// Loose matching of a question's words against the words of qualified names, so that
// "decompressed", "decompress" and "decompressor", or "split" and "urlsplit", meet.

#include <string>
#include <string_view>
#include <vector>

namespace orvane_tamsel::workers::detail {

// A crude English stem of a lower-cased word: plural, -ed, -ing, -er and a final e dropped.
std::string stem(std::string_view word);

// The stems of the words a symbol is known by: the sub-words of every part of its fqn.
std::vector<std::string> fqn_stems(std::string_view fqn);
// The stems of the words of a text.
std::vector<std::string> text_stems(std::string_view text);

// Whether a stemmed query term meets one of `stems`: equal, or one a prefix of the other when the
// shorter has four letters or more.
bool meets(const std::string& term, const std::vector<std::string>& stems);
// Whether a stemmed query term of four letters or more lies inside a name run together from
// several words (urlsplit, copytree, b64decode).
bool inside_name(const std::string& term, std::string_view lower_name);

// The share of a method's owner's name words (three letters or more) that begin a term of the
// question: a type name shortened (Int, Rat, Addr, Conn) is named by the word it shortens
// ("integers", "rational"), which stems do not meet; the word itself does not count. `inner` is the
// fqn inside its module (Int.DivMod); 0 without an owner.
double owner_named(std::string_view inner, const std::vector<std::string>& terms);

// The part of a symbol's fqn inside its file: "Cart.total" for shop.cart.Cart.total in
// src/shop/cart.py, or inside its folder for a language whose folder is a package ("Client.Do"
// for http.Client.Do in net/http/client.go); the whole fqn when neither path begins it.
std::string inside_module(const std::string& fqn, const std::string& path);

}  // namespace orvane_tamsel::workers::detail
