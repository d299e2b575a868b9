/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_CRYPT_HPP
#define GROUNDWORK_CPP_CRYPT_HPP

#include <groundwork/cpp/text.hpp>
#include <groundwork/crypt.h>

#include <array>
#include <climits>

namespace gw {

/** A block, and a key: 8 bytes. */
using Block = std::array<unsigned char, 8>;

/** Encrypts with the variant of DES, as g_crypt_des_encrypt(). @param input the text.
 *  @param key the key. @return the result. */
inline Block des_encrypt(const Block &input, const Block &key) {
  Block output;
  g_crypt_des_encrypt(input.data(), output.data(), key.data());
  return output;
}
/** Undoes des_encrypt(). @param input its result. @param key the key. @return the text. */
inline Block des_decrypt(const Block &input, const Block &key) {
  Block output;
  g_crypt_des_decrypt(input.data(), output.data(), key.data());
  return output;
}
/** Encrypts with single DES under mirrored key bytes, as g_crypt_d3des_encrypt().
 *  @param input the text. @param key the key. @return the result. */
inline Block d3des_encrypt(const Block &input, const Block &key) {
  Block output;
  g_crypt_d3des_encrypt(input.data(), output.data(), key.data());
  return output;
}
/** Undoes d3des_encrypt(). @param input its result. @param key the key. @return the text. */
inline Block d3des_decrypt(const Block &input, const Block &key) {
  Block output;
  g_crypt_d3des_decrypt(input.data(), output.data(), key.data());
  return output;
}

/** Encodes bytes as Base64, as g_crypt_base64_encode(), whose warning holds.
 *  @param bytes what. @return the text; null when it would be too long or memory is
 *  exhausted. */
inline String base64_encode(std::string_view bytes) {
  if (bytes.size() > INT_MAX / 4 * 3) return {};
  const std::size_t room = (bytes.size() + 2) / 3 * 4 + 1;
  Owner<char, std::free> text(static_cast<char *>(std::malloc(room)));
  if (text == nullptr) return {};
  const char *const source = bytes.empty() ? "" : bytes.data();
  if (g_crypt_base64_encode(source, text.get(), static_cast<int>(bytes.size())) < 0) return {};
  return String(text.release());
}

/** Decodes Base64, as g_crypt_base64_decode(). @param text not null.
 *  @return the bytes; none when the text is not Base64 or memory is exhausted. */
inline Bytes base64_decode(const Text &text) {
  const char *const source = text;
  if (source == nullptr) return {};
  Owner<char, std::free> bytes(static_cast<char *>(std::malloc(std::strlen(source) / 4 * 3 + 1)));
  if (bytes == nullptr) return {};
  const int size = g_crypt_base64_decode(source, bytes.get());
  if (size < 0) return {};
  return Bytes(bytes.release(), static_cast<std::size_t>(size));
}

}  // namespace gw

#endif
