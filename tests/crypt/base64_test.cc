// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include "support/log_capture.h"

using test::check_line;
using test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

const std::string kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

// Encodes from a block of exactly the size given into one of exactly the size needed, so
// that a sanitizer reports any access beyond either.
std::string encode(const std::string& bytes) {
  const size_t size = (bytes.size() + 2) / 3 * 4;
  const std::unique_ptr<char[]> source(new char[bytes.size()]);
  std::memcpy(source.get(), bytes.data(), bytes.size());
  const std::unique_ptr<char[]> dest(new char[size + 1]);
  std::memset(dest.get(), 'x', size + 1);
  EXPECT_EQ(g_crypt_base64_encode(source.get(), dest.get(), static_cast<int>(bytes.size())),
            static_cast<int>(size));
  EXPECT_EQ(dest[size], '\0');
  return std::string(dest.get(), size);
}

struct Decoded {
  int result;
  std::string bytes;  // what was written, up to the first byte left as it was
};

// Decodes into a block of `room` bytes and a NUL, filled beforehand.
Decoded decode(const std::string& text, size_t room) {
  constexpr char kFill = '\x5A';
  const std::unique_ptr<char[]> source(new char[text.size() + 1]);
  std::memcpy(source.get(), text.c_str(), text.size() + 1);
  const std::unique_ptr<char[]> dest(new char[room + 1]);
  std::memset(dest.get(), kFill, room + 1);
  const int result = g_crypt_base64_decode(source.get(), dest.get());
  size_t end = room + 1;
  while (end > 0 && dest[end - 1] == kFill) --end;
  return {result, std::string(dest.get(), end)};
}

Decoded decode(const std::string& text) {
  return decode(text, text.size() / 4 * 3);
}

std::string with_nul(const std::string& text) {
  return text + '\0';
}

std::string random_bytes(std::mt19937& random, size_t size) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random());
  return bytes;
}

// RFC 4648, one bit at a time.
std::string rfc4648(const std::string& bytes) {
  std::string text;
  for (size_t bit = 0; bit < 8 * bytes.size(); bit += 6) {
    unsigned value = 0;
    for (size_t at = bit; at < bit + 6; ++at) {
      const unsigned byte = at / 8 < bytes.size() ? static_cast<uint8_t>(bytes[at / 8]) : 0;
      value = value * 2 + (byte >> (7 - at % 8) & 1);
    }
    text += kAlphabet[value];
  }
  while (text.size() % 4 != 0) text += '=';
  return text;
}

TEST(Base64Encode, KnownTexts) {
  EXPECT_EQ(encode("Man"), "TWFu");
  EXPECT_EQ(encode("Ma"), "TWE=");
  EXPECT_EQ(encode("M"), "TQ==");
  EXPECT_EQ(encode("f"), "Zg==");
  EXPECT_EQ(encode("fo"), "Zm8=");
  EXPECT_EQ(encode("foo"), "Zm9v");
  EXPECT_EQ(encode("foob"), "Zm9vYg==");
  EXPECT_EQ(encode("fooba"), "Zm9vYmE=");
  EXPECT_EQ(encode("foobar"), "Zm9vYmFy");
}

TEST(Base64Encode, LengthZeroWritesOnlyANul) {
  char dest[3] = {'x', 'y', 'z'};
  EXPECT_EQ(g_crypt_base64_encode("abc", dest, 0), 0);
  EXPECT_EQ(dest[0], '\0');
  EXPECT_EQ(dest[1], 'y');
}

TEST(Base64Encode, ANegativeLengthWritesOnlyANul) {
  for (const int length : {-1, -2, -3, -4, -4096, INT_MIN + 1, INT_MIN}) {
    LogCapture log(0);
    char dest[3] = {'x', 'y', 'z'};
    EXPECT_EQ(g_crypt_base64_encode("abc", dest, length), 0) << length;
    EXPECT_EQ(dest[0], '\0');
    EXPECT_EQ(dest[1], 'y');
    EXPECT_EQ(log.take(), Lines{});
  }
}

TEST(Base64Encode, ALengthWhoseResultExceedsAnIntReturnsMinusOneAndTouchesNothing) {
  // 536870911 groups make INT_MAX - 3 characters.
  for (const int length : {INT_MAX, INT_MAX - 1, 536870911 * 3 + 1}) {
    LogCapture log(0);
    char dest[1] = {'x'};
    EXPECT_EQ(g_crypt_base64_encode("abc", dest, length), -1) << length;
    EXPECT_EQ(dest[0], 'x');
    EXPECT_EQ(log.take(), Lines{});
  }
}

TEST(Base64Encode, NullArgumentsReportTheCheck) {
  char dest[8] = "x";
  for (const bool source_given : {false, true}) {
    for (const int length : {3, 0, -1, INT_MAX}) {
      LogCapture log;
      EXPECT_EQ(g_crypt_base64_encode(source_given ? "abc" : nullptr,
                                      source_given ? nullptr : dest, length),
                -1);
      EXPECT_EQ(log.take(), Lines{check_line("g_crypt", "src && dest")});
      EXPECT_STREQ(dest, "x");
    }
  }
  LogCapture log;
  EXPECT_EQ(g_crypt_base64_encode(nullptr, nullptr, 3), -1);
  EXPECT_EQ(log.take(), Lines{check_line("g_crypt", "src && dest")});
}

TEST(Base64Encode, AFinalPairThatEndsBelow0x80IsEncodedAsRfc4648Has) {
  for (int first = 0; first < 256; ++first) {
    for (int second = 0; second < 128; ++second) {
      const std::string bytes = {static_cast<char>(first), static_cast<char>(second)};
      ASSERT_EQ(encode(bytes), rfc4648(bytes)) << first << ' ' << second;
    }
  }
}

TEST(Base64Encode, AFinalPairThatEndsIn0x80OrAboveLosesItsFirstByte) {
  EXPECT_EQ(encode(std::string("\0\xFF", 2)), "//8=");
  for (int first = 0; first < 256; ++first) {
    for (int second = 128; second < 256; ++second) {
      const std::string bytes = {static_cast<char>(first), static_cast<char>(second)};
      const std::string expected = {'/', kAlphabet[static_cast<size_t>(48 + (second >> 4))],
                                    kAlphabet[static_cast<size_t>((second & 15) << 2)],
                                    '='};
      ASSERT_EQ(encode(bytes), expected) << first << ' ' << second;
      ASSERT_EQ(decode(expected).bytes, with_nul(std::string("\xFF") + bytes[1]));
    }
  }
}

TEST(Base64Encode, TheSignOfAFinalSingleByteHasNoEffect) {
  for (int byte = 0; byte < 256; ++byte) {
    const std::string bytes(1, static_cast<char>(byte));
    EXPECT_EQ(encode(bytes), rfc4648(bytes)) << byte;
  }
}

TEST(Base64Encode, EveryByteInEveryPlaceOfAFullGroup) {
  for (int byte = 0; byte < 256; ++byte) {
    for (size_t place = 0; place < 60; ++place) {
      std::string bytes(60, '\x01');
      bytes[place] = static_cast<char>(byte);
      ASSERT_EQ(encode(bytes), rfc4648(bytes)) << byte << " at " << place;
    }
  }
}

TEST(Base64Encode, OnlyTheFinalPairIsPeculiar) {
  std::mt19937 random(1);
  for (size_t size = 5; size < 200; size += 3) {
    std::string bytes = random_bytes(random, size);
    bytes.back() = static_cast<char>(bytes.back() | 0x80);
    std::string expected = rfc4648(bytes);
    const unsigned last = static_cast<uint8_t>(bytes.back());
    expected[expected.size() - 4] = '/';
    expected[expected.size() - 3] = kAlphabet[48 + (last >> 4)];
    EXPECT_EQ(encode(bytes), expected) << size;
  }
}

TEST(Base64Encode, AlignmentDoesNotMatter) {
  std::mt19937 random(2);
  const std::string bytes = random_bytes(random, 120);
  for (size_t from = 0; from < 8; ++from) {
    for (size_t to = 0; to < 8; ++to) {
      char dest[200];
      EXPECT_EQ(g_crypt_base64_encode(bytes.data() + from, dest + to, 99), 132);
      EXPECT_EQ(std::string(dest + to), rfc4648(bytes.substr(from, 99)));
    }
  }
}

// A source in front of memory that must not be read.
TEST(Base64Encode, NothingIsReadBeyondTheSource) {
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* const pages =
      mmap(nullptr, 2 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(pages, MAP_FAILED);
  char* const end = static_cast<char*>(pages) + page;
  ASSERT_EQ(mprotect(end, page, PROT_NONE), 0);
  char dest[200];
  for (int length = 0; length <= 100; ++length) {
    EXPECT_EQ(g_crypt_base64_encode(end - length, dest, length), (length + 2) / 3 * 4);
  }
  munmap(pages, 2 * page);
}

TEST(Base64Decode, KnownTexts) {
  EXPECT_EQ(decode("TWFu").result, 3);
  EXPECT_EQ(decode("TWFu").bytes, with_nul("Man"));
  EXPECT_EQ(decode("TWE=").result, 2);
  EXPECT_EQ(decode("TWE=").bytes, with_nul("Ma"));
  EXPECT_EQ(decode("TQ==").result, 1);
  EXPECT_EQ(decode("TQ==").bytes, with_nul("M"));
  EXPECT_EQ(decode("Zm9vYmFy").bytes, with_nul("foobar"));
}

TEST(Base64Decode, PaddedTextNeedsNoMoreRoomThanItsBytesAndTheNul) {
  EXPECT_EQ(decode("TQ==", 1).bytes, with_nul("M"));
  EXPECT_EQ(decode("TWE=", 2).bytes, with_nul("Ma"));
  EXPECT_EQ(decode("Zm9vYmFyZm9vYmFyZm9vYg==", 16).bytes, with_nul("foobarfoobarfoob"));
}

TEST(Base64Decode, EmptyTextWritesANul) {
  EXPECT_EQ(decode("").result, 0);
  EXPECT_EQ(decode("").bytes, with_nul(""));
}

TEST(Base64Decode, ALengthThatIsNoMultipleOfFourReportsTheCheck) {
  for (const char* const text : {"T", "TW", "TWF", "TWFuT", "TWFuTWFuTWFuTWFuTWFuTWFuTW"}) {
    LogCapture log;
    const Decoded decoded = decode(text);
    EXPECT_EQ(decoded.result, -1) << text;
    EXPECT_EQ(decoded.bytes, "");
    EXPECT_EQ(log.take(), Lines{check_line("g_crypt", "!(length % 4)")});
  }
}

TEST(Base64Decode, ANullDestReportsItsCheckFirst) {
  for (const char* const text : {"TWFu", "TWF", ""}) {
    LogCapture log;
    EXPECT_EQ(g_crypt_base64_decode(text, nullptr), -1);
    EXPECT_EQ(log.take(), Lines{check_line("g_crypt", "src && dest")});
  }
}

TEST(Base64DecodeDeathTest, NullTextFaultsInsteadOfBeingReported) {
  char dest[4];
  EXPECT_DEATH(g_crypt_base64_decode(nullptr, dest), "");
  EXPECT_DEATH(g_crypt_base64_decode(nullptr, nullptr), "");
}

TEST(Base64Decode, PaddingIsValidOnlyInTheLastTwoPlacesOfTheText) {
  for (const char* const text : {"TQ==TQ==", "TWE=TWFu", "TWFuTQ==TWFu", "====", "T===",
                                 "=QQQ", "T=QQ", "=Q==", "T=Q=", "TWFu====", "TWFuT==="}) {
    LogCapture log(0);
    EXPECT_EQ(decode(text).result, -1) << text;
    EXPECT_EQ(log.take(), Lines{});
  }
}

TEST(Base64Decode, ARealCharacterAfterThePadOfTheThirdPlaceIsAcceptedAndIgnored) {
  for (const char c : kAlphabet) {
    const Decoded decoded = decode(std::string("TQ=") + c, 1);
    EXPECT_EQ(decoded.result, 1) << c;
    EXPECT_EQ(decoded.bytes, with_nul("M"));
  }
}

TEST(Base64Decode, AnyOtherCharacterAfterThatPadIsAnError) {
  for (int c = 1; c < 256; ++c) {
    if (c == '=' || kAlphabet.find(static_cast<char>(c)) != std::string::npos) continue;
    const Decoded decoded = decode(std::string("TQ=") + static_cast<char>(c));
    EXPECT_EQ(decoded.result, -1) << c;
    EXPECT_EQ(decoded.bytes, "");
  }
}

TEST(Base64Decode, BitsAfterTheLastByteAreIgnored) {
  EXPECT_EQ(decode("TR==").bytes, with_nul("M"));
  EXPECT_EQ(decode("Tf==").bytes, with_nul("M"));
  EXPECT_EQ(decode("TWH=").bytes, with_nul("Ma"));
  EXPECT_EQ(decode("//8=").bytes, with_nul("\xFF\xFF"));
}

TEST(Base64Decode, AnyCharacterOutsideTheAlphabetIsAnErrorInEveryPlace) {
  std::mt19937 random(4);
  const std::string good = rfc4648(random_bytes(random, 60));
  for (int c = 1; c < 256; ++c) {
    if (kAlphabet.find(static_cast<char>(c)) != std::string::npos) continue;
    for (size_t place = 0; place < good.size(); ++place) {
      if (c == '=' && place + 1 == good.size()) continue;
      std::string text = good;
      text[place] = static_cast<char>(c);
      const int expected = c == '=' && place + 2 == good.size() ? 58 : -1;
      ASSERT_EQ(decode(text).result, expected) << c << " at " << place;
    }
  }
}

TEST(Base64Decode, LineBreaksAndBlanksAreErrorsAndNotLogged) {
  for (const char* const text : {"TWFu\nTWF", "TWF\n", "TWFuTWFuTWFuTWFuTWFuTWFuTWF\n",
                                 "TW u", "\tTWF", "TWFuTWFuTWFuTWF TWFuTWFu"}) {
    LogCapture log(0);
    EXPECT_EQ(decode(text).result, -1);
    EXPECT_EQ(log.take(), Lines{});
  }
}

TEST(Base64Decode, AnErrorLeavesTheBytesOfTheGroupsBeforeItWithoutANul) {
  std::mt19937 random(5);
  std::string bytes = random_bytes(random, 60);
  for (char& byte : bytes) byte = static_cast<char>(byte & 0x0F);  // unlike the fill
  for (size_t place = 0; place < 80; ++place) {
    std::string text = rfc4648(bytes);
    text[place] = '!';
    const Decoded decoded = decode(text);
    EXPECT_EQ(decoded.result, -1);
    EXPECT_EQ(decoded.bytes, bytes.substr(0, place / 4 * 3)) << place;
  }
}

TEST(Base64Decode, EveryCharacterInEveryPlace) {
  for (size_t size = 4; size <= 40; size += 4) {
    for (size_t place = 0; place < size; ++place) {
      for (const char c : kAlphabet) {
        std::string text(size, 'b');
        text[place] = c;
        const Decoded decoded = decode(text);
        ASSERT_EQ(decoded.result, static_cast<int>(size / 4 * 3));
        ASSERT_EQ(rfc4648(decoded.bytes.substr(0, size / 4 * 3)), text);
      }
    }
  }
}

TEST(Base64Decode, TheResultMayReplaceTheText) {
  std::mt19937 random(6);
  for (size_t size = 0; size < 150; ++size) {
    const std::string bytes = random_bytes(random, size);
    std::string text = rfc4648(bytes);
    ASSERT_EQ(g_crypt_base64_decode(text.c_str(), text.data()), static_cast<int>(size));
    ASSERT_EQ(text.substr(0, size), bytes);
  }
}

// The decoder as one would describe it, character by character.
int described(const std::string& text, std::string& bytes) {
  const size_t n = text.size();
  for (size_t group = 0; group < n; group += 4) {
    unsigned values[4] = {255, 255, 255, 255};
    for (size_t i = 0; i < 4; ++i) {
      const size_t p = group + i;
      const size_t index = kAlphabet.find(text[p]);
      if (index != std::string::npos) {
        values[i] = static_cast<unsigned>(index);
      } else if (text[p] == '=' && p + 2 == n) {
        values[2] = values[3] = 127;
      } else if (text[p] == '=' && p + 1 == n) {
        values[3] = 127;
      } else {
        return -1;
      }
    }
    const unsigned v = values[0] << 18 | values[1] << 12 | values[2] * 64 | values[3];
    bytes += static_cast<char>(v >> 16);
    if (values[2] == 127) continue;
    bytes += static_cast<char>(v >> 8 & 255);
    if (values[3] != 127) bytes += static_cast<char>((values[2] * 64 | values[3]) & 255);
  }
  return static_cast<int>(bytes.size());
}

TEST(Base64Decode, RandomTextsWithFaultsAreTreatedAsDescribed) {
  std::mt19937 random(7);
  for (int i = 0; i < 20000; ++i) {
    std::string text(random() % 16 * 4, 'A');
    for (char& c : text) c = kAlphabet[random() % 64];
    if (!text.empty()) {
      const unsigned faults = random() % 4;
      for (unsigned fault = 0; fault < faults; ++fault) {
        const size_t near_end = text.size() - 1 - random() % 4;
        const size_t place = random() % 4 == 0 ? random() % text.size() : near_end;
        text[place] = "==== \xE9"[random() % 6];
      }
    }
    std::string expected;
    const int result = described(text, expected);
    const Decoded decoded = decode(text);
    ASSERT_EQ(decoded.result, result) << text;
    if (result >= 0) {
      ASSERT_EQ(decoded.bytes, with_nul(expected)) << text;
    }
  }
}

}  // namespace
