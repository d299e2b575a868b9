// Strings and formatted allocation against the C library's.
//
// SPDX-License-Identifier: MIT

#include <groundwork/str.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "support/job.h"

using namespace groundwork::bench;

namespace {

uint32_t digest_of(const char* text) {
  Digest digest;
  digest.add(text);
  return digest.value();
}

// Measures `make`, which returns a new string.
template <typename Make>
void make_and_free(State& state, Make make) {
  char* const text = make();
  const uint32_t digest = digest_of(text);
  std::free(text);
  for (auto _ : state) {
    char* const copy = make();
    DoNotOptimize(copy);
    std::free(copy);
  }
  report(state, 1, digest);
}

// --- copy ---

template <char* (*copy)(const char*)>
void duplicate(State& state) {
  const std::string text(static_cast<size_t>(state.range(0)), 'x');
  make_and_free(state, [&text] { return copy(text.c_str()); });
}

char* libc_strdup(const char* text) {
  return strdup(text);
}

// The end is found and the bytes are copied, without an allocation.
void duplicate_floor(State& state) {
  const std::string text(static_cast<size_t>(state.range(0)), 'x');
  std::string room(text.size() + 1, '\0');
  const char* from = text.c_str();
  for (auto _ : state) {
    DoNotOptimize(from);
    std::memcpy(room.data(), from, std::strlen(from) + 1);
    benchmark::ClobberMemory();
  }
  report(state, 1);
}

// --- split ---

// What a program would write: finds each piece by strchr and copies it into a vector that
// doubles.
char** split_by_strchr(const char* text) {
  size_t room = 8;
  size_t count = 0;
  char** pieces = static_cast<char**>(std::malloc(room * sizeof(char*)));
  for (bool more = true; more;) {
    const char* const end = std::strchr(text, ',');
    const size_t length =
        end != nullptr ? static_cast<size_t>(end - text) : std::strlen(text);
    char* const piece = static_cast<char*>(std::malloc(length + 1));
    std::memcpy(piece, text, length);
    piece[length] = '\0';
    if (count + 1 == room) {
      room *= 2;
      pieces = static_cast<char**>(std::realloc(pieces, room * sizeof(char*)));
    }
    pieces[count++] = piece;
    more = end != nullptr;
    if (more) text = end + 1;
  }
  pieces[count] = nullptr;
  return pieces;
}

char** split_ours(const char* text) {
  return g_strsplit(text, ",", 0);
}

void free_pieces(char** pieces) {
  for (char** piece = pieces; *piece != nullptr; ++piece) std::free(*piece);
  std::free(pieces);
}

template <char** (*split_text)(const char*), void (*free_vector)(char**)>
void split(State& state) {
  std::string text = "piece number 1";
  for (int i = 2; i <= state.range(0); ++i) text += ",piece number " + std::to_string(i);
  Digest digest;
  char** const pieces = split_text(text.c_str());
  for (char** piece = pieces; *piece != nullptr; ++piece) digest.add(*piece);
  free_vector(pieces);
  for (auto _ : state) {
    char** const vector = split_text(text.c_str());
    DoNotOptimize(vector);
    free_vector(vector);
  }
  report(state, static_cast<double>(state.range(0)), digest.value());
}

// --- formatted allocation ---

void assignment_ours(State& state) {
  make_and_free(state, [] { return g_strdup_printf("%s=%s\n", "address", "192.168.0.1"); });
}

void assignment_asprintf(State& state) {
  make_and_free(state, [] {
    char* text = nullptr;
    return asprintf(&text, "%s=%s\n", "address", "192.168.0.1") < 0 ? nullptr : text;
  });
}

// The same bytes by the shortest way.
void assignment_floor(State& state) {
  const char* key = "address";
  const char* value = "192.168.0.1";
  make_and_free(state, [&] {
    DoNotOptimize(key);
    DoNotOptimize(value);
    const size_t key_length = std::strlen(key);
    const size_t value_length = std::strlen(value);
    char* const text = static_cast<char*>(std::malloc(key_length + value_length + 3));
    std::memcpy(text, key, key_length);
    text[key_length] = '=';
    std::memcpy(text + key_length + 1, value, value_length);
    std::memcpy(text + key_length + 1 + value_length, "\n", 2);
    return text;
  });
}

#define MIXED_NUMBERS \
  "%d %u 0x%08x %5d %ld %c", -12345, 4000000000U, 48879, 42, 123456789L, 'x'

void numbers_ours(State& state) {
  make_and_free(state, [] { return g_strdup_printf(MIXED_NUMBERS); });
}

void numbers_asprintf(State& state) {
  make_and_free(state, [] {
    char* text = nullptr;
    return asprintf(&text, MIXED_NUMBERS) < 0 ? nullptr : text;
  });
}

}  // namespace

void groundwork::bench::register_jobs() {
  for (const int size : {10, 100, 1000, 10000}) {
    job("strdup", "ours", duplicate<g_strdup>)->Arg(size);
    job("strdup", "strdup", duplicate<libc_strdup>)->Arg(size);
    job("strdup", "floor", duplicate_floor)->Arg(size);
  }
  for (const int size : {10, 1000, 100000}) {
    job("strsplit", "ours", split<split_ours, g_strfreev>)->Arg(size);
    job("strsplit", "strchr+malloc", split<split_by_strchr, free_pieces>)->Arg(size);
  }
  job("printf.assignment", "ours", assignment_ours);
  job("printf.assignment", "asprintf", assignment_asprintf);
  job("printf.assignment", "floor", assignment_floor);
  job("printf.numbers", "ours", numbers_ours);
  job("printf.numbers", "asprintf", numbers_asprintf);
}
