// What both block ciphers have in common, tested with the expected values of each.
//
// SPDX-License-Identifier: MIT

#include <groundwork/crypt.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <ostream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "crypt/des_model.h"
#include "crypt/known_answers.h"
#include "support/log_capture.h"

using test::Bytes8;
using test::check_line;
using test::Direction;
using test::LogCapture;
using Lines = std::vector<std::string>;

namespace {

struct Cipher {
  const char* name;
  int (*encrypt)(const void* input, void* output, const void* key);
  int (*decrypt)(const void* input, void* output, const void* key);
  Bytes8 (*model)(const Bytes8& block, const Bytes8& key, Direction direction);
  uint64_t test::KnownAnswer::*ciphertext;
  int ignored_bit;  // of each key byte, counted from the lowest

  Bytes8 encrypted(const Bytes8& block, const Bytes8& key) const {
    Bytes8 result{};
    EXPECT_EQ(encrypt(block.data(), result.data(), key.data()), 0);
    return result;
  }
  Bytes8 decrypted(const Bytes8& block, const Bytes8& key) const {
    Bytes8 result{};
    EXPECT_EQ(decrypt(block.data(), result.data(), key.data()), 0);
    return result;
  }
};

void PrintTo(const Cipher& cipher, std::ostream* out) {
  *out << cipher.name;
}

Bytes8 mirrored_key_des(const Bytes8& block, const Bytes8& key, Direction direction) {
  return standard_des(block, test::mirrored(key), direction);
}

const Cipher kCiphers[] = {
    {"des", g_crypt_des_encrypt, g_crypt_des_decrypt, test::variant_des,
     &test::KnownAnswer::des, 0},
    {"d3des", g_crypt_d3des_encrypt, g_crypt_d3des_decrypt, mirrored_key_des,
     &test::KnownAnswer::d3des, 7},
};

Bytes8 bytes_of(uint64_t value) {
  Bytes8 bytes{};
  for (int i = 7; i >= 0; --i, value >>= 8) {
    bytes[static_cast<size_t>(i)] = static_cast<uint8_t>(value);
  }
  return bytes;
}

class RandomBytes {
 public:
  explicit RandomBytes(uint64_t seed) : engine_(seed) {}
  Bytes8 next() { return bytes_of(engine_()); }

 private:
  std::mt19937_64 engine_;
};

class BlockCipher : public ::testing::TestWithParam<Cipher> {
 protected:
  const Cipher& cipher() const { return GetParam(); }
};

TEST_P(BlockCipher, GivesTheKnownAnswers) {
  for (const test::KnownAnswer& known : test::kKnownAnswers) {
    const Bytes8 key = bytes_of(known.key);
    const Bytes8 plain = bytes_of(known.block);
    const Bytes8 secret = bytes_of(known.*cipher().ciphertext);
    EXPECT_EQ(cipher().encrypted(plain, key), secret) << std::hex << known.key;
    EXPECT_EQ(cipher().decrypted(secret, key), plain) << std::hex << known.key;
  }
}

TEST_P(BlockCipher, EqualsTheBitByBitModelForRandomKeysAndBlocks) {
  RandomBytes random(1);
  for (int i = 0; i < 4000; ++i) {
    const Bytes8 key = random.next();
    const Bytes8 block = random.next();
    ASSERT_EQ(cipher().encrypted(block, key),
              cipher().model(block, key, Direction::kEncrypt));
    ASSERT_EQ(cipher().decrypted(block, key),
              cipher().model(block, key, Direction::kDecrypt));
  }
}

TEST_P(BlockCipher, EqualsTheModelForEverySingleBitOfKeyAndBlock) {
  for (int bit = 0; bit < 64; ++bit) {
    const Bytes8 single = bytes_of(uint64_t{1} << bit);
    for (const Bytes8& other : {bytes_of(0), bytes_of(~uint64_t{0})}) {
      EXPECT_EQ(cipher().encrypted(single, other),
                cipher().model(single, other, Direction::kEncrypt));
      EXPECT_EQ(cipher().encrypted(other, single),
                cipher().model(other, single, Direction::kEncrypt));
    }
  }
}

TEST_P(BlockCipher, DecryptionRestoresTheBlock) {
  RandomBytes random(2);
  for (int i = 0; i < 10000; ++i) {
    const Bytes8 key = random.next();
    const Bytes8 block = random.next();
    ASSERT_EQ(cipher().decrypted(cipher().encrypted(block, key), key), block);
    ASSERT_EQ(cipher().encrypted(cipher().decrypted(block, key), key), block);
  }
}

TEST_P(BlockCipher, IgnoresOneBitOfEachKeyByte) {
  RandomBytes random(3);
  for (int i = 0; i < 100; ++i) {
    const Bytes8 key = random.next();
    const Bytes8 block = random.next();
    Bytes8 other = key;
    for (size_t byte = 0; byte < 8; ++byte) {
      if ((i >> (byte % 7) & 1) == 0) continue;
      other[byte] = static_cast<uint8_t>(other[byte] ^ 1 << cipher().ignored_bit);
    }
    EXPECT_EQ(cipher().encrypted(block, other), cipher().encrypted(block, key));
  }
}

TEST_P(BlockCipher, EveryOtherKeyBitMatters) {
  const Bytes8 block = bytes_of(0x0123456789ABCDEF);
  const Bytes8 key = bytes_of(0x0F1571C947D9E859);
  for (size_t byte = 0; byte < 8; ++byte) {
    for (int bit = 0; bit < 8; ++bit) {
      if (bit == cipher().ignored_bit) continue;
      Bytes8 other = key;
      other[byte] = static_cast<uint8_t>(other[byte] ^ 1 << bit);
      EXPECT_NE(cipher().encrypted(block, other), cipher().encrypted(block, key))
          << "byte " << byte << ", bit " << bit;
    }
  }
}

// Whatever the thread kept of the last key must not serve for one that is almost the same.
TEST_P(BlockCipher, KeysThatAlternateGiveTheirOwnResultsEachTime) {
  RandomBytes random(4);
  const Bytes8 key = random.next();
  std::vector<Bytes8> keys = {key, bytes_of(0), bytes_of(~uint64_t{0})};
  for (size_t byte = 0; byte < 8; ++byte) {
    keys.push_back(key);
    keys.back()[byte] = static_cast<uint8_t>(keys.back()[byte] ^ 0x18);
  }
  std::mt19937 order(5);
  for (int i = 0; i < 3000; ++i) {
    const Bytes8& chosen = keys[order() % keys.size()];
    const Bytes8 block = random.next();
    if (order() % 2 == 0) {
      ASSERT_EQ(cipher().encrypted(block, chosen),
                cipher().model(block, chosen, Direction::kEncrypt));
    } else {
      ASSERT_EQ(cipher().decrypted(block, chosen),
                cipher().model(block, chosen, Direction::kDecrypt));
    }
  }
}

TEST_P(BlockCipher, AKeyChangedInPlaceIsNoticed) {
  Bytes8 key = bytes_of(0x1111111111111111);
  const Bytes8 block = bytes_of(0x0123456789ABCDEF);
  EXPECT_EQ(cipher().encrypted(block, key),
            cipher().model(block, key, Direction::kEncrypt));
  key = bytes_of(0x2222222222222222);
  EXPECT_EQ(cipher().encrypted(block, key),
            cipher().model(block, key, Direction::kEncrypt));
}

TEST_P(BlockCipher, TheFirstKeyOfAThreadMayBeAllZeros) {
  const Bytes8 zeros{};
  Bytes8 result{};
  std::thread([&] { result = cipher().encrypted(zeros, zeros); }).join();
  EXPECT_EQ(result, cipher().model(zeros, zeros, Direction::kEncrypt));
}

TEST_P(BlockCipher, OutputMayBeTheInput) {
  const Bytes8 key = bytes_of(0x133457799BBCDFF1);
  const Bytes8 plain = bytes_of(0x0123456789ABCDEF);
  Bytes8 block = plain;
  EXPECT_EQ(cipher().encrypt(block.data(), block.data(), key.data()), 0);
  EXPECT_EQ(block, cipher().model(plain, key, Direction::kEncrypt));
  EXPECT_EQ(cipher().decrypt(block.data(), block.data(), key.data()), 0);
  EXPECT_EQ(block, plain);
}

TEST_P(BlockCipher, OutputMayBeTheKey) {
  const Bytes8 plain = bytes_of(0x0123456789ABCDEF);
  Bytes8 key = bytes_of(0x133457799BBCDFF1);
  const Bytes8 expected = cipher().model(plain, key, Direction::kEncrypt);
  EXPECT_EQ(cipher().encrypt(plain.data(), key.data(), key.data()), 0);
  EXPECT_EQ(key, expected);
}

TEST_P(BlockCipher, ReadsTheWholeInputBeforeItWritesAnOverlappingOutput) {
  const Bytes8 key = bytes_of(0x133457799BBCDFF1);
  const Bytes8 plain = bytes_of(0x0123456789ABCDEF);
  const Bytes8 expected = cipher().model(plain, key, Direction::kEncrypt);
  for (size_t from = 0; from <= 16; ++from) {
    std::array<uint8_t, 24> memory{};
    std::copy(plain.begin(), plain.end(), &memory[from]);
    EXPECT_EQ(cipher().encrypt(&memory[from], &memory[8], key.data()), 0);
    EXPECT_TRUE(std::equal(expected.begin(), expected.end(), &memory[8])) << from;
  }
}

TEST_P(BlockCipher, BuffersMayHaveAnyAlignmentAndOnlyEightBytesAreWritten) {
  const Bytes8 key = bytes_of(0x133457799BBCDFF1);
  const Bytes8 plain = bytes_of(0x0123456789ABCDEF);
  const Bytes8 expected = cipher().model(plain, key, Direction::kEncrypt);
  for (size_t offset = 0; offset < 8; ++offset) {
    alignas(8) std::array<uint8_t, 16> input{};
    alignas(8) std::array<uint8_t, 16> keys{};
    alignas(8) std::array<uint8_t, 24> output;
    output.fill(0xA5);
    std::copy(plain.begin(), plain.end(), &input[offset]);
    std::copy(key.begin(), key.end(), &keys[7 - offset]);
    EXPECT_EQ(cipher().encrypt(&input[offset], &output[8 + offset], &keys[7 - offset]), 0);
    for (size_t i = 0; i < output.size(); ++i) {
      const bool inside = i >= 8 + offset && i < 16 + offset;
      EXPECT_EQ(output[i], inside ? expected[i - 8 - offset] : 0xA5) << i;
    }
  }
}

TEST_P(BlockCipher, LeavesInputAndKeyAlone) {
  const Bytes8 key = bytes_of(0x133457799BBCDFF1);
  const Bytes8 plain = bytes_of(0x0123456789ABCDEF);
  cipher().encrypted(plain, key);
  cipher().decrypted(plain, key);
  EXPECT_EQ(key, bytes_of(0x133457799BBCDFF1));
  EXPECT_EQ(plain, bytes_of(0x0123456789ABCDEF));
}

TEST_P(BlockCipher, NullArgumentsReportTheFirstCheckThatFailsAndWriteNothing) {
  struct Case {
    bool input, output, key;
    const char* check;
  };
  const Case cases[] = {
      {false, true, true, "input != NULL"},   {true, false, true, "output != NULL"},
      {true, true, false, "key != NULL"},     {false, false, false, "input != NULL"},
      {false, true, false, "input != NULL"},  {false, false, true, "input != NULL"},
      {true, false, false, "output != NULL"},
  };
  const Bytes8 block = bytes_of(0x0123456789ABCDEF);
  for (const auto& function : {cipher().encrypt, cipher().decrypt}) {
    for (const Case& given : cases) {
      Bytes8 output;
      output.fill(0xA5);
      const Bytes8 untouched = output;
      LogCapture log;
      EXPECT_EQ(function(given.input ? block.data() : nullptr,
                         given.output ? output.data() : nullptr,
                         given.key ? block.data() : nullptr),
                -1);
      EXPECT_EQ(log.take(), Lines{check_line("g_crypt", given.check)});
      EXPECT_EQ(output, untouched);
    }
  }
}

TEST_P(BlockCipher, LogsNothingWhenAllIsWell) {
  LogCapture log(0);
  cipher().encrypted(Bytes8{}, Bytes8{});
  cipher().decrypted(Bytes8{}, bytes_of(1));
  EXPECT_EQ(log.take(), Lines{});
}

TEST_P(BlockCipher, ThreadsWithKeysOfTheirOwnDoNotDisturbOneAnother) {
  constexpr int kThreads = 4;
  std::array<int, kThreads> wrong{};
  std::vector<std::thread> threads;
  for (int id = 0; id < kThreads; ++id) {
    threads.emplace_back([this, id, &wrong] {
      RandomBytes random(static_cast<uint64_t>(100 + id));
      const Bytes8 keys[] = {random.next(), random.next()};
      const Bytes8 block = random.next();
      const Bytes8 expected[] = {cipher().model(block, keys[0], Direction::kEncrypt),
                                 cipher().model(block, keys[1], Direction::kEncrypt)};
      for (int i = 0; i < 3000; ++i) {
        const int which = i / 3 % 2;
        Bytes8 result{};
        cipher().encrypt(block.data(), result.data(), keys[which].data());
        if (result != expected[which]) ++wrong[static_cast<size_t>(id)];
        cipher().decrypt(result.data(), result.data(), keys[which].data());
        if (result != block) ++wrong[static_cast<size_t>(id)];
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, (std::array<int, kThreads>{}));
}

INSTANTIATE_TEST_SUITE_P(Ciphers, BlockCipher, ::testing::ValuesIn(kCiphers),
                         [](const auto& instance) { return instance.param.name; });

TEST(BlockCiphers, KeepTheirSchedulesApart) {
  const Bytes8 key = bytes_of(0x133457799BBCDFF1);
  const Bytes8 block = bytes_of(0x0123456789ABCDEF);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(kCiphers[0].encrypted(block, key),
              test::variant_des(block, key, Direction::kEncrypt));
    EXPECT_EQ(kCiphers[1].encrypted(block, key),
              mirrored_key_des(block, key, Direction::kEncrypt));
  }
}

TEST(DesVariant, DiffersFromStandardDes) {
  RandomBytes random(6);
  for (int i = 0; i < 200; ++i) {
    const Bytes8 key = random.next();
    const Bytes8 block = random.next();
    EXPECT_NE(kCiphers[0].encrypted(block, key),
              standard_des(block, key, Direction::kEncrypt));
  }
}

TEST(DesVariant, DiffersFromOneWithTheRotationsOfTheStandard) {
  // The first two rounds rotate by 1 and 3, not 1 and 2: a key with one bit shows it.
  const Bytes8 key = bytes_of(0x0000001000000000);
  EXPECT_EQ(kCiphers[0].encrypted(Bytes8{}, key), bytes_of(0x002FC22C18987F55));
}

TEST(D3des, IsStandardDesUnderTheMirroredKey) {
  // The worked example that textbooks print for the key 133457799BBCDFF1.
  const Bytes8 key = test::mirrored(bytes_of(0x133457799BBCDFF1));
  EXPECT_EQ(kCiphers[1].encrypted(bytes_of(0x0123456789ABCDEF), key),
            bytes_of(0x85E813540F0AB405));
}

TEST(D3des, AKeyByteOfOneActsAs0x80DoesInStandardDes) {
  Bytes8 ours{};
  Bytes8 standard{};
  ours[2] = 0x01;
  standard[2] = 0x80;
  const Bytes8 block = bytes_of(0x0123456789ABCDEF);
  EXPECT_EQ(kCiphers[1].encrypted(block, ours),
            standard_des(block, standard, Direction::kEncrypt));
  EXPECT_NE(kCiphers[1].encrypted(block, ours),
            standard_des(block, ours, Direction::kEncrypt));
}

TEST(D3des, MakesOnePassOnly) {
  const Bytes8 key = bytes_of(0x133457799BBCDFF1);
  const Bytes8 block = bytes_of(0x0123456789ABCDEF);
  const Bytes8 once = kCiphers[1].encrypted(block, key);
  EXPECT_NE(kCiphers[1].encrypted(once, key), once);
  EXPECT_EQ(once, mirrored_key_des(block, key, Direction::kEncrypt));
}

}  // namespace
