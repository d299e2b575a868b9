// Block ciphers and Base64 against OpenSSL's and nettle's. Our variant of DES has no peer
// and is set against standard DES, so of it only the way there and back is compared.
//
// SPDX-License-Identifier: MIT

#define OPENSSL_SUPPRESS_DEPRECATED
#include <groundwork/crypt.h>
#include <nettle/base64.h>
#include <openssl/des.h>
#include <openssl/evp.h>

#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string_view>
#include <vector>

#include "support/job.h"

using namespace groundwork::bench;

namespace {

// --- ciphers: each has use(key), encrypt(block) and decrypt(block) ---

using Block = std::array<unsigned char, 8>;

constexpr size_t kKeys = 1024;

std::vector<Block> random_keys() {
  std::mt19937 random(1);
  std::vector<Block> keys(kKeys);
  for (Block& key : keys) {
    for (unsigned char& byte : key) byte = static_cast<unsigned char>(random());
  }
  return keys;
}

class D3des {
 public:
  void use(const Block& key) { key_ = &key; }
  void encrypt(Block& block) {
    g_crypt_d3des_encrypt(block.data(), block.data(), key_->data());
  }
  void decrypt(Block& block) {
    g_crypt_d3des_decrypt(block.data(), block.data(), key_->data());
  }

 private:
  const Block* key_ = nullptr;
};

class DesVariant {
 public:
  void use(const Block& key) { key_ = &key; }
  void encrypt(Block& block) {
    g_crypt_des_encrypt(block.data(), block.data(), key_->data());
  }
  void decrypt(Block& block) {
    g_crypt_des_decrypt(block.data(), block.data(), key_->data());
  }

 private:
  const Block* key_ = nullptr;
};

// A new key costs its key schedule; ours keep the last key schedule themselves.
class OpensslDes {
 public:
  void use(const Block& key) {
    if (key_ == &key) return;
    key_ = &key;
    DES_cblock bytes;
    std::memcpy(bytes, key.data(), sizeof bytes);
    DES_set_key_unchecked(&bytes, &schedule_);
  }
  void encrypt(Block& block) { run(block, DES_ENCRYPT); }
  void decrypt(Block& block) { run(block, DES_DECRYPT); }

 private:
  void run(Block& block, int direction) {
    DES_cblock bytes;
    std::memcpy(bytes, block.data(), sizeof bytes);
    DES_ecb_encrypt(&bytes, &bytes, &schedule_, direction);
    std::memcpy(block.data(), bytes, sizeof bytes);
  }

  const Block* key_ = nullptr;
  DES_key_schedule schedule_;
};

// d3des takes the bits of each byte of a key the other way round.
std::vector<Block> mirrored(std::vector<Block> keys) {
  for (Block& key : keys) {
    for (unsigned char& byte : key) {
      unsigned result = 0;
      for (int bit = 0; bit < 8; ++bit) result = result << 1 | (byte >> bit & 1U);
      byte = static_cast<unsigned char>(result);
    }
  }
  return keys;
}

void add(Digest& digest, const Block& block) {
  digest.add(std::string_view(reinterpret_cast<const char*>(block.data()), block.size()));
}

// The same key, or a new one for each block.
template <typename Cipher>
void encrypt(State& state, std::vector<Block> keys, bool changing, bool there_and_back) {
  if (!changing) keys.resize(1);
  Cipher cipher;
  Block block{};
  Digest digest;
  for (const Block& key : keys) {
    cipher.use(key);
    cipher.encrypt(block);
    if (there_and_back) cipher.decrypt(block);
    add(digest, block);
  }
  size_t at = 0;
  for (auto _ : state) {
    cipher.use(keys[at]);
    cipher.encrypt(block);
    at = at + 1 == keys.size() ? 0 : at + 1;
  }
  DoNotOptimize(block);
  report(state, 1, digest.value());
}

void register_ciphers() {
  const std::vector<Block> keys = random_keys();
  for (const bool changing : {false, true}) {
    const std::string kind = changing ? ".changing" : ".same";
    job("d3des" + kind, "ours",
        [=](State& state) { encrypt<D3des>(state, keys, changing, false); });
    job("d3des" + kind, "OpenSSL",
        [=](State& state) { encrypt<OpensslDes>(state, mirrored(keys), changing, false); });
    job("des" + kind, "ours",
        [=](State& state) { encrypt<DesVariant>(state, keys, changing, true); });
    job("des" + kind, "OpenSSL",
        [=](State& state) { encrypt<OpensslDes>(state, keys, changing, true); });
  }
}

// --- Base64: encoders and decoders fill `out` and return how many bytes they made ---

std::vector<unsigned char> random_bytes(size_t size) {
  std::mt19937 random(2);
  std::vector<unsigned char> bytes(size);
  for (unsigned char& byte : bytes) byte = static_cast<unsigned char>(random());
  return bytes;
}

std::vector<char> base64_of(const std::vector<unsigned char>& bytes) {
  std::vector<char> text(bytes.size() / 3 * 4 + 5);
  const int length = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                                     bytes.data(), static_cast<int>(bytes.size()));
  text.resize(static_cast<size_t>(length) + 1);
  return text;
}

int ours_encode(const std::vector<unsigned char>& bytes, char* out) {
  return g_crypt_base64_encode(bytes.data(), out, static_cast<int>(bytes.size()));
}

int openssl_encode(const std::vector<unsigned char>& bytes, char* out) {
  return EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out), bytes.data(),
                         static_cast<int>(bytes.size()));
}

int nettle_encode(const std::vector<unsigned char>& bytes, char* out) {
  base64_encode_raw(out, bytes.size(), bytes.data());
  return static_cast<int>(BASE64_ENCODE_RAW_LENGTH(bytes.size()));
}

int ours_decode(const std::vector<char>& text, unsigned char* out) {
  return g_crypt_base64_decode(text.data(), out);
}

int openssl_decode(const std::vector<char>& text, unsigned char* out) {
  return EVP_DecodeBlock(out, reinterpret_cast<const unsigned char*>(text.data()),
                         static_cast<int>(text.size()) - 1);
}

int nettle_decode(const std::vector<char>& text, unsigned char* out) {
  base64_decode_ctx context;
  base64_decode_init(&context);
  size_t length = 0;
  base64_decode_update(&context, &length, out, text.size() - 1, text.data());
  return base64_decode_final(&context) != 0 ? static_cast<int>(length) : -1;
}

// Texts without padding, where all agree on every byte and on the count.
template <typename Element, typename Source, typename Convert>
void convert(State& state, const Source& source, Convert run) {
  std::vector<Element> out(source.size() * 2);
  int length = 0;
  for (auto _ : state) {
    length = run(source, out.data());
    benchmark::ClobberMemory();
  }
  Digest digest;
  digest.add(std::string_view(reinterpret_cast<const char*>(out.data()),
                              length < 0 ? 0 : static_cast<size_t>(length)));
  report(state, 1, digest.value());
}

void register_base64() {
  const std::vector<unsigned char> bytes = random_bytes(4096 / 3 * 3);
  const std::vector<char> text = base64_of(bytes);
  const auto encoder = [=](auto run) {
    return [=](State& state) { convert<char>(state, bytes, run); };
  };
  const auto decoder = [=](auto run) {
    return [=](State& state) { convert<unsigned char>(state, text, run); };
  };
  job("base64.encode", "ours", encoder(ours_encode));
  job("base64.encode", "OpenSSL", encoder(openssl_encode));
  job("base64.encode", "nettle", encoder(nettle_encode));
  job("base64.decode", "ours", decoder(ours_decode));
  job("base64.decode", "OpenSSL", decoder(openssl_decode));
  job("base64.decode", "nettle", decoder(nettle_decode));
}

}  // namespace

void groundwork::bench::register_jobs() {
  register_ciphers();
  register_base64();
}
