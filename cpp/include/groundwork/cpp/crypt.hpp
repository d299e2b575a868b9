/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_CRYPT_HPP
#define GROUNDWORK_CPP_CRYPT_HPP

#include <groundwork/crypt.h>
#include <groundwork/cpp/text.hpp>

#include <array>
#include <climits>

namespace gw {

/**
 * A block, and a key: 8 bytes.
 *
 * @code{.cpp}
 * const gw::Block text{'e', 'i', 'g', 'h', 't', ' ', 'b', 'y'};
 * const gw::Block key{1, 2, 3, 4, 5, 6, 7, 8};
 * const gw::Block secret = gw::d3des_encrypt(text, key);
 * puts(gw::d3des_decrypt(secret, key) == text ? "back again" : "lost");  // prints: back again
 * puts(gw::base64_encode("gw").c_str());                                 // prints: Z3c=
 * @endcode
 */
using Block = std::array<unsigned char, 8>;

/** Encrypts with the variant of DES, as g_crypt_des_encrypt(). @param input the text.
 *  @param key the key. @return the result. */
[[nodiscard]] inline Block des_encrypt(const Block& input, const Block& key) {
  Block output;
  g_crypt_des_encrypt(input.data(), output.data(), key.data());
  return output;
}
/** Undoes des_encrypt(). @param input its result. @param key the key. @return the text. */
[[nodiscard]] inline Block des_decrypt(const Block& input, const Block& key) {
  Block output;
  g_crypt_des_decrypt(input.data(), output.data(), key.data());
  return output;
}
/** Encrypts with single DES under mirrored key bytes, as g_crypt_d3des_encrypt().
 *  @param input the text. @param key the key. @return the result. */
[[nodiscard]] inline Block d3des_encrypt(const Block& input, const Block& key) {
  Block output;
  g_crypt_d3des_encrypt(input.data(), output.data(), key.data());
  return output;
}
/** Undoes d3des_encrypt(). @param input its result. @param key the key. @return the text. */
[[nodiscard]] inline Block d3des_decrypt(const Block& input, const Block& key) {
  Block output;
  g_crypt_d3des_decrypt(input.data(), output.data(), key.data());
  return output;
}

/** Encodes bytes as Base64 (RFC 4648). It encodes every input correctly, unlike
 *  g_crypt_base64_encode(), which loses the first of two bytes left at the end if the second is
 *  0x80 or more. @param bytes any. @return the text; null when it would be too long or memory is
 *  exhausted. */
[[nodiscard]] inline String base64_encode(std::string_view bytes) {
  if (bytes.size() > INT_MAX / 4 * 3) return {};
  const size_t room = (bytes.size() + 2) / 3 * 4 + 1;
  Owner<char, std::free> text(static_cast<char*>(std::malloc(room)));
  if (text == nullptr) return {};
  // Whole groups are encoded as they are. The rest is filled up with zeros to a group; its
  // characters without data bits become padding.
  const size_t rest = bytes.size() % 3;
  const size_t whole = bytes.size() - rest;
  const char* const source = bytes.empty() ? "" : bytes.data();
  if (g_crypt_base64_encode(source, text.get(), static_cast<int>(whole)) < 0) return {};
  if (rest != 0) {
    char last[3] = {source[whole], rest == 2 ? source[whole + 1] : '\0', '\0'};
    char* const end = text.get() + whole / 3 * 4;
    if (g_crypt_base64_encode(last, end, 3) < 0) return {};
    end[3] = '=';
    if (rest == 1) end[2] = '=';
  }
  return String(text.release());
}

/** Decodes Base64, as g_crypt_base64_decode(). @param text not null.
 *  @return the bytes; none when the text is not Base64 or memory is exhausted. */
[[nodiscard]] inline Bytes base64_decode(const Text& text) {
  const char* const source = text;
  if (source == nullptr) return {};
  Owner<char, std::free> bytes(
      static_cast<char*>(std::malloc(std::strlen(source) / 4 * 3 + 1)));
  if (bytes == nullptr) return {};
  const int size = g_crypt_base64_decode(source, bytes.get());
  if (size < 0) return {};
  return Bytes(bytes.release(), static_cast<size_t>(size));
}

}  // namespace gw

#endif
