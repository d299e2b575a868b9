// Base64 both ways against a model: RFC 4648, with the sign that fills the last group of
// two bytes and the decoder's rules for its last places.
//
// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>
#include <groundwork/log.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/support/buffer.h"
#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

const std::string kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

unsigned byte_at(const std::string& bytes, size_t i) {
  return i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0;
}

// As the standard says.
std::string standard_text(const std::string& bytes) {
  std::string text;
  for (size_t i = 0; i < bytes.size(); i += 3) {
    const unsigned group =
        byte_at(bytes, i) << 16 | byte_at(bytes, i + 1) << 8 | byte_at(bytes, i + 2);
    for (unsigned place = 0; place < 4; ++place) {
      text += i + place > bytes.size() ? '=' : kAlphabet[group >> (18 - 6 * place) & 63];
    }
  }
  return text;
}

std::string model_text(const std::string& bytes) {
  std::string text = standard_text(bytes);
  if (bytes.size() % 3 != 2) return text;
  const unsigned last = byte_at(bytes, bytes.size() - 1);
  if (last >= 0x80) {
    // The last byte's sign covers the one before it.
    text[text.size() - 4] = '/';
    text[text.size() - 3] = kAlphabet[48 + (last >> 4)];
  }
  return text;
}

struct Decoded {
  int result;
  std::string written;  // its NUL included
};

Decoded model_bytes(const std::string& text) {
  if (text.size() % 4 != 0) return {-1, ""};
  std::string bytes;
  for (size_t group = 0; group < text.size(); group += 4) {
    unsigned values[4] = {255, 255, 255, 255};
    for (size_t i = 0; i < 4; ++i) {
      const size_t place = group + i;
      const size_t value = kAlphabet.find(text[place]);
      if (value != kAlphabet.npos) {
        values[i] = static_cast<unsigned>(value);
      } else if (text[place] == '=' && place + 2 == text.size()) {
        values[2] = values[3] = 127;
      } else if (text[place] == '=' && place + 1 == text.size()) {
        values[3] = 127;
      } else {
        return {-1, bytes};
      }
    }
    const unsigned bits = values[0] << 18 | values[1] << 12 | values[2] * 64 | values[3];
    bytes += static_cast<char>(bits >> 16);
    if (values[2] == 127) continue;
    bytes += static_cast<char>(bits >> 8);
    if (values[3] == 127) continue;
    bytes += static_cast<char>(values[2] * 64 | values[3]);
  }
  return {static_cast<int>(bytes.size()), bytes + '\0'};
}

void check_decoding(const std::string& text) {
  fuzz::Buffer dest(3 * (text.size() / 4) + 1);
  const Decoded model = model_bytes(text);
  REQUIRE_EQUAL(g_crypt_base64_decode(fuzz::Text(text).data(), dest.data()), model.result);
  // Nothing changed past the end of the output.
  const std::string untouched(dest.size() - model.written.size(), fuzz::kUntouched);
  REQUIRE_EQUAL(dest.content(), model.written + untouched);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  g_debug_set_level2(99);
  fuzz::Input input(data, size);
  const bool negative = input.byte() == 0xff;
  const std::string content = input.rest();

  // The same bytes as text that someone sends us...
  check_decoding(content.c_str());

  // ... and as bytes to send.
  const fuzz::Buffer source{std::string_view(content)};
  const std::string text = model_text(content);
  fuzz::Buffer dest(text.size() + 1);
  REQUIRE_EQUAL(
      g_crypt_base64_encode(source.data(), dest.data(), static_cast<int>(content.size())),
      static_cast<int>(text.size()));
  REQUIRE_EQUAL(dest.content(), text + '\0');
  check_decoding(text);
  check_decoding(standard_text(content));

  if (negative) {
    fuzz::Buffer end(1);
    REQUIRE_EQUAL(g_crypt_base64_encode(source.data(), end.data(), -1 - (1 << 20)), 0);
    REQUIRE_EQUAL(end.content(), std::string(1, '\0'));
  }
  return 0;
}
