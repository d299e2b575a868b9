/*
 * Ciphers and Base64: turns a text into one line that can be mailed, and back again.
 *
 *   ciphers KEY TEXT        prints the line
 *   ciphers -d KEY LINE     prints the text
 *
 * The cipher is DES. Its keys are so short that they can be found by trying all of them:
 * use it to read existing data, not to keep anything secret.
 *
 * SPDX-License-Identifier: MIT
 */
#include <groundwork/groundwork.h>

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* The cipher takes blocks of 8 bytes. Base64 preserves all bytes only if their number is a
 * multiple of 3, or one more. A multiple of 24 suits both. */
enum { BLOCK = 8, UNIT = 24 };

struct block {
  unsigned char bytes[BLOCK];
};

/* g_crypt_d3des_encrypt() reads the bits of each byte of the key in reverse order.
 * Mirroring the key once more makes it standard DES. */
static struct block make_key(const char* text) {
  struct block key = {{0}};

  for (int i = 0; i < BLOCK && text[i] != '\0'; ++i) {
    for (int bit = 0; bit < 8; ++bit) {
      if ((unsigned char)text[i] & 1u << bit) key.bytes[i] |= (unsigned char)(0x80 >> bit);
    }
  }
  return key;
}

static void xor_block(struct block* block, const struct block* with) {
  for (int i = 0; i < BLOCK; ++i) block->bytes[i] ^= with->bytes[i];
}

/* The library encrypts single blocks; this chains them (CBC), so that equal blocks do not
 * look equal. A real program would start with a random block. */
static void encrypt(struct block* blocks, size_t n, const struct block* key) {
  struct block last = {{0}};

  for (size_t i = 0; i < n; ++i) {
    xor_block(&blocks[i], &last);
    g_crypt_d3des_encrypt(&blocks[i], &blocks[i], key); /* in place */
    last = blocks[i];
  }
}

static void decrypt(struct block* blocks, size_t n, const struct block* key) {
  struct block last = {{0}};

  for (size_t i = 0; i < n; ++i) {
    struct block encrypted = blocks[i];

    g_crypt_d3des_decrypt(&blocks[i], &blocks[i], key);
    xor_block(&blocks[i], &last);
    last = encrypted;
  }
}

static int seal(const char* text, const struct block* key) {
  /* At least one zero follows the text, to mark its end. */
  unsigned size = ((unsigned)strlen(text) / UNIT + 1) * UNIT;
  void* data = g_malloc0(size);
  char* line = g_malloc(size / 3 * 4 + 1); /* 4 characters per 3 bytes, and a NUL */
  int done = data != NULL && line != NULL;

  if (done) {
    memcpy(data, text, strlen(text));
    encrypt(data, size / BLOCK, key);
    g_crypt_base64_encode(data, line, (int)size);
    printf("%s\n", line);
  }
  free(data);
  free(line);
  return done ? 0 : 1;
}

static int unseal(const char* line, const struct block* key) {
  char* text = g_malloc((unsigned)strlen(line) / 4 * 3 + 1);
  int size = text == NULL ? -1 : g_crypt_base64_decode(line, text);
  int done = size > 0 && size % UNIT == 0; /* -1: not Base64 */

  if (done) {
    decrypt((struct block*)text, (size_t)size / BLOCK, key);
    done = text[size - 1] == '\0';
  }
  if (done) {
    printf("%s\n", text);
  } else {
    fprintf(stderr, "ciphers: not an encrypted line, or the wrong key\n");
  }
  free(text);
  return done ? 0 : 1;
}

int main(int argc, char** argv) {
  int decrypts = argc == 4 && strcmp(argv[1], "-d") == 0;
  struct block key, none = {{0}}, scratch = none;
  int status;

  if (argc != 3 && !decrypts) {
    fprintf(stderr, "usage: ciphers [-d] KEY TEXT\n");
    return 2;
  }
  key = make_key(argv[argc - 2]);
  status = decrypts ? unseal(argv[3], &key) : seal(argv[2], &key);

  /* The library keeps a thread's last key until another one is used. */
  g_crypt_d3des_encrypt(&scratch, &scratch, &none);
  return status;
}
