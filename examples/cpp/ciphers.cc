// SPDX-License-Identifier: MIT
// A block encrypted and decrypted, and Base64 for bytes of any value.
#include <groundwork/groundwork.hpp>

#include <cstdio>

int main() {
  const gw::Block text{'8', ' ', 'b', 'y', 't', 'e', 's', '.'};
  const gw::Block key{0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};
  const gw::Block secret = gw::d3des_encrypt(text, key);
  std::puts(secret != text && gw::d3des_decrypt(secret, key) == text ? "there and back"
                                                                     : "lost");

  const std::string_view bytes("\x41\xff", 2);
  const gw::String encoded = gw::base64_encode(bytes);
  std::printf("%s\n", encoded.c_str());
  std::puts(gw::base64_decode(encoded.c_str()).view() == bytes ? "the same bytes"
                                                               : "damaged");
  std::puts(gw::base64_decode("not Base64!!") ? "?" : "no Base64");
}
// prints: there and back
// prints: Qf8=
// prints: the same bytes
// prints: no Base64
