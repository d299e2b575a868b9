// Block ciphers and Base64 against OpenSSL's. Every pair is checked to give the same result
// before it is measured; the variant of DES has no peer and is set against standard DES.
//
// SPDX-License-Identifier: MIT

#define OPENSSL_SUPPRESS_DEPRECATED
#include <benchmark/benchmark.h>
#include <groundwork/crypt.h>
#include <openssl/des.h>
#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <vector>

namespace {

constexpr std::size_t kKeys = 1024;
constexpr int kTextBytes = 4096 / 3 * 3;  // no rest, where both agree on every byte

using Block = std::array<unsigned char, 8>;

std::vector<Block> random_keys() {
  std::mt19937 random(1);
  std::vector<Block> keys(kKeys);
  for (Block& key : keys) {
    for (unsigned char& byte : key) byte = static_cast<unsigned char>(random());
  }
  return keys;
}

Block mirrored(Block key) {
  for (unsigned char& byte : key) {
    unsigned value = byte;
    unsigned result = 0;
    for (int bit = 0; bit < 8; ++bit, value >>= 1) result = result << 1 | (value & 1);
    byte = static_cast<unsigned char>(result);
  }
  return key;
}

DES_key_schedule openssl_schedule(const Block& key) {
  DES_cblock bytes;
  std::memcpy(bytes, key.data(), sizeof bytes);
  DES_key_schedule schedule;
  DES_set_key_unchecked(&bytes, &schedule);
  return schedule;
}

void openssl_encrypt(Block& block, DES_key_schedule& schedule) {
  DES_cblock bytes;
  std::memcpy(bytes, block.data(), sizeof bytes);
  DES_ecb_encrypt(&bytes, &bytes, &schedule, DES_ENCRYPT);
  std::memcpy(block.data(), bytes, sizeof bytes);
}

[[noreturn]] void differ(const char* what) {
  std::fprintf(stderr, "%s: ours and the peer's results differ\n", what);
  std::exit(1);
}

void check_results() {
  Block ours{};
  Block theirs{};
  for (const Block& key : random_keys()) {
    DES_key_schedule schedule = openssl_schedule(mirrored(key));
    g_crypt_d3des_encrypt(ours.data(), ours.data(), key.data());
    openssl_encrypt(theirs, schedule);
    if (ours != theirs) differ("d3des");
    const Block before = ours;
    g_crypt_des_encrypt(ours.data(), ours.data(), key.data());
    g_crypt_des_decrypt(ours.data(), ours.data(), key.data());
    if (ours != before) differ("des");
  }
}

// One key, or a new one with each block.
template <typename Encrypt>
void run_cipher(benchmark::State& state, Encrypt encrypt) {
  const std::vector<Block> keys = random_keys();
  const std::size_t step = static_cast<std::size_t>(state.range(0));
  Block block{};
  std::size_t at = 0;
  for (auto _ : state) {
    encrypt(block, keys[at]);
    at = (at + step) % kKeys;
    benchmark::DoNotOptimize(block);
  }
}

void BM_D3des(benchmark::State& state) {
  run_cipher(state, [](Block& block, const Block& key) {
    g_crypt_d3des_encrypt(block.data(), block.data(), key.data());
  });
}

void BM_DesVariant(benchmark::State& state) {
  run_cipher(state, [](Block& block, const Block& key) {
    g_crypt_des_encrypt(block.data(), block.data(), key.data());
  });
}

// With one key the peer's schedule is made once, outside.
void BM_OpensslDes(benchmark::State& state) {
  const bool same_key = state.range(0) == 0;
  DES_key_schedule schedule = openssl_schedule(random_keys()[0]);
  run_cipher(state, [same_key, &schedule](Block& block, const Block& key) {
    if (!same_key) schedule = openssl_schedule(key);
    openssl_encrypt(block, schedule);
  });
}

struct Texts {
  std::vector<unsigned char> bytes;
  std::vector<char> text;

  Texts() : bytes(kTextBytes + 1), text(kTextBytes / 3 * 4 + 1) {
    std::mt19937 random(2);
    for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
    EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()), bytes.data(),
                    kTextBytes);
  }
};

void BM_Base64Encode(benchmark::State& state) {
  const Texts texts;
  std::vector<char> out(texts.text.size());
  for (auto _ : state) {
    g_crypt_base64_encode(texts.bytes.data(), out.data(), kTextBytes);
    benchmark::ClobberMemory();
  }
  if (out != texts.text) differ("base64 encode");
}

void BM_OpensslEncode(benchmark::State& state) {
  const Texts texts;
  std::vector<unsigned char> out(texts.text.size());
  for (auto _ : state) {
    EVP_EncodeBlock(out.data(), texts.bytes.data(), kTextBytes);
    benchmark::ClobberMemory();
  }
}

void BM_Base64Decode(benchmark::State& state) {
  const Texts texts;
  std::vector<unsigned char> out(texts.bytes.size());
  for (auto _ : state) {
    g_crypt_base64_decode(texts.text.data(), out.data());
    benchmark::ClobberMemory();
  }
  if (std::memcmp(out.data(), texts.bytes.data(), kTextBytes) != 0) differ("base64 decode");
}

void BM_OpensslDecode(benchmark::State& state) {
  const Texts texts;
  std::vector<unsigned char> out(texts.bytes.size());
  for (auto _ : state) {
    EVP_DecodeBlock(out.data(), reinterpret_cast<const unsigned char*>(texts.text.data()),
                    static_cast<int>(texts.text.size()) - 1);
    benchmark::ClobberMemory();
  }
}

// The argument is the step from key to key: 0 keeps the first.
BENCHMARK(BM_OpensslDes)->ArgName("step")->Arg(0)->Arg(1);
BENCHMARK(BM_D3des)->ArgName("step")->Arg(0)->Arg(1);
BENCHMARK(BM_DesVariant)->ArgName("step")->Arg(0)->Arg(1);
BENCHMARK(BM_OpensslEncode);
BENCHMARK(BM_Base64Encode);
BENCHMARK(BM_OpensslDecode);
BENCHMARK(BM_Base64Decode);

}  // namespace

int main(int argc, char** argv) {
  check_results();
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
