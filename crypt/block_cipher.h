// What the two block ciphers share at run time: the key schedule of the last key, and the
// entry points.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CRYPT_BLOCK_CIPHER_H
#define GROUNDWORK_CRYPT_BLOCK_CIPHER_H

#include <array>
#include <cstddef>

#include "core/check.h"
#include "crypt/des_common.h"

// Thread-local storage that exists from the start of the thread and is accessed without a
// call. With the dynamic model glibc would allocate it on a thread's first access, and
// abort on failure. musl allocates it before a thread starts, with every model, and refuses
// to dlopen() a library that uses this one.
#ifdef __GLIBC__
#define PRESENT_FROM_START [[gnu::tls_model("initial-exec")]]
#else
#define PRESENT_FROM_START
#endif

namespace groundwork::des {

// A cipher of sixteen rounds. Cipher provides:
//   Subkey                          the round key
//   expand(key, schedule)           computes the subkeys of all rounds
//   transform(block, subkey, step)  sixteen rounds; their subkeys begin at `subkey`, `step`
//                                   apart
//
// Each thread keeps the schedule of its last key, so that a run of blocks under one key
// computes it once. Threads share no state.
template <typename Cipher>
class BlockCipher {
 public:
  static int encrypt(const void* input, void* output, const void* key) {
    return run(input, output, key, 0, 1);
  }
  static int decrypt(const void* input, void* output, const void* key) {
    return run(input, output, key, kRounds - 1, -1);
  }

 private:
  using Schedule = std::array<typename Cipher::Subkey, kRounds>;

  // Correct when zero-initialised: the key of zeros has a schedule of zeros.
  struct LastKey {
    Block key;
    Schedule schedule;
  };

  static int run(const void* input, void* output, const void* key, size_t first,
                 ptrdiff_t step) {
    constexpr char kSource[] = "g_crypt";
    CHECK_ARG(input != NULL, -1);
    CHECK_ARG(output != NULL, -1);
    CHECK_ARG(key != NULL, -1);
    const auto* const subkey = &schedule_of(key)[first];
    store_block(output, Cipher::transform(load_block(input), subkey, step));
    return 0;
  }

  static const Schedule& schedule_of(const void* key_bytes) {
    const Block key = load_block(key_bytes);
    if (key != last_key_.key) change_key(key);
    return last_key_.schedule;
  }

  [[gnu::noinline]] static void change_key(const Block& key) {
    last_key_.key = key;
    Cipher::expand(key, last_key_.schedule);
  }

  PRESENT_FROM_START static constinit inline thread_local LastKey last_key_{};
};

}  // namespace groundwork::des

#endif
