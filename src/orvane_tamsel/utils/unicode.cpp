#include "orvane_tamsel/utils/unicode.h"

#include <utf8proc.h>

namespace orvane_tamsel::utils {

bool is_space(char32_t c) {
  // Zs, Zl, Zp and the C0/C1 controls that Unicode marks White_Space.
  if (c == 0x09 || c == 0x0A || c == 0x0B || c == 0x0C || c == 0x0D || c == 0x1C || c == 0x1D ||
      c == 0x1E || c == 0x1F || c == 0x85) {
    return true;
  }
  auto cat = utf8proc_category(static_cast<utf8proc_int32_t>(c));
  return cat == UTF8PROC_CATEGORY_ZS || cat == UTF8PROC_CATEGORY_ZL || cat == UTF8PROC_CATEGORY_ZP;
}

std::u32string decode(std::string_view text) {
  std::u32string out;
  out.reserve(text.size());
  auto* p = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  utf8proc_ssize_t left = static_cast<utf8proc_ssize_t>(text.size());
  while (left > 0) {
    utf8proc_int32_t cp = 0;
    utf8proc_ssize_t n = utf8proc_iterate(p, left, &cp);
    if (n <= 0) {
      out.push_back(0xFFFD);
      n = 1;
    } else {
      out.push_back(static_cast<char32_t>(cp));
    }
    p += n;
    left -= n;
  }
  return out;
}

std::string encode(std::u32string_view text) {
  std::string out;
  out.reserve(text.size());
  utf8proc_uint8_t buf[4];
  for (char32_t c : text) {
    auto n = utf8proc_encode_char(static_cast<utf8proc_int32_t>(c), buf);
    out.append(reinterpret_cast<const char*>(buf), static_cast<std::size_t>(n));
  }
  return out;
}

namespace {
// Byte offsets of each code point start, so stripping keeps invalid bytes as they were.
template <typename F>
void each_code_point(std::string_view text, F&& f) {
  auto* base = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  std::size_t i = 0;
  while (i < text.size()) {
    utf8proc_int32_t cp = 0;
    auto n = utf8proc_iterate(base + i, static_cast<utf8proc_ssize_t>(text.size() - i), &cp);
    if (n <= 0) {
      cp = 0xFFFD;
      n = 1;
    }
    f(i, static_cast<std::size_t>(n), static_cast<char32_t>(cp));
    i += static_cast<std::size_t>(n);
  }
}
}  // namespace

std::string strip(std::string_view text) {
  std::size_t first = text.size(), last = 0;
  each_code_point(text, [&](std::size_t at, std::size_t n, char32_t c) {
    if (!is_space(c)) {
      if (first == text.size()) first = at;
      last = at + n;
    }
  });
  if (first == text.size()) return {};
  return std::string(text.substr(first, last - first));
}

std::vector<std::string> split_whitespace(std::string_view text) {
  std::vector<std::string> words;
  std::size_t start = std::string_view::npos;
  each_code_point(text, [&](std::size_t at, std::size_t, char32_t c) {
    if (is_space(c)) {
      if (start != std::string_view::npos) words.emplace_back(text.substr(start, at - start));
      start = std::string_view::npos;
    } else if (start == std::string_view::npos) {
      start = at;
    }
  });
  if (start != std::string_view::npos) words.emplace_back(text.substr(start));
  return words;
}

std::string lower(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  each_code_point(text, [&](std::size_t at, std::size_t n, char32_t c) {
    if (c == 0xFFFD && n == 1) {
      out.append(text.substr(at, 1));
      return;
    }
    utf8proc_uint8_t buf[4];
    auto m = utf8proc_encode_char(utf8proc_tolower(static_cast<utf8proc_int32_t>(c)), buf);
    out.append(reinterpret_cast<const char*>(buf), static_cast<std::size_t>(m));
  });
  return out;
}

std::size_t code_points(std::string_view text) {
  std::size_t n = 0;
  each_code_point(text, [&](std::size_t, std::size_t, char32_t) { ++n; });
  return n;
}

bool is_valid_utf8(std::string_view text) {
  bool ok = true;
  auto* base = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
  std::size_t i = 0;
  while (i < text.size()) {
    utf8proc_int32_t cp = 0;
    auto n = utf8proc_iterate(base + i, static_cast<utf8proc_ssize_t>(text.size() - i), &cp);
    if (n <= 0) return false;
    i += static_cast<std::size_t>(n);
  }
  return ok;
}

}  // namespace orvane_tamsel::utils
