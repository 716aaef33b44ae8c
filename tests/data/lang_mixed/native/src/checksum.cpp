#include <cstdint>
#include <string>

namespace native {

/// Adler-32 of a receipt, so the server and the browser agree on what was paid.
std::uint32_t receipt_checksum(const std::string& receipt) {
  std::uint32_t a = 1, b = 0;
  for (unsigned char c : receipt) {
    a = (a + c) % 65521;
    b = (b + a) % 65521;
  }
  return (b << 16) | a;
}

}  // namespace native
