// The offsets of the fields of the public records. Programs and their modules are compiled
// separately from the library and access these records.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_URL_RECORD_LAYOUT_H
#define GROUNDWORK_URL_RECORD_LAYOUT_H

#include <groundwork/url.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <type_traits>

namespace groundwork {

struct FieldOffset {
  size_t actual;
  size_t with_32_bit_pointers;
  size_t with_64_bit_pointers;
};

constexpr FieldOffset kFieldOffsets[] = {
    {offsetof(URL_record, type), 0, 0},         {offsetof(URL_record, read), 4, 8},
    {offsetof(URL_record, gets), 8, 16},        {offsetof(URL_record, fgetc), 12, 24},
    {offsetof(URL_record, seek), 16, 32},       {offsetof(URL_record, tell), 20, 40},
    {offsetof(URL_record, close), 24, 48},      {offsetof(URL_record, nread), 28, 56},
    {offsetof(URL_record, readlimit), 32, 60},  {offsetof(URL_record, eof), 36, 64},
    {offsetof(URL_file, common), 0, 0},         {offsetof(URL_file, data), 40, 72},
    {offsetof(URL_file, size), 44, 80},         {offsetof(URL_file, position), 48, 88},
    {offsetof(URL_file, fd), 56, 96},           {offsetof(URL_http, common), 0, 0},
    {offsetof(URL_http, peer_address), 40, 72}, {offsetof(URL_http, stream), 44, 80},
    {offsetof(URL_module, type), 0, 0},         {offsetof(URL_module, name_check), 4, 8},
    {offsetof(URL_module, init), 8, 16},        {offsetof(URL_module, open), 12, 24},
    {offsetof(URL_module, next), 16, 32},
};
static_assert(std::all_of(std::begin(kFieldOffsets), std::end(kFieldOffsets),
                          [](const FieldOffset& field) {
                            return field.actual == (sizeof(void*) == 4
                                                        ? field.with_32_bit_pointers
                                                        : field.with_64_bit_pointers);
                          }));
static_assert(std::is_standard_layout_v<URL_record> &&
              std::is_standard_layout_v<URL_file> && std::is_standard_layout_v<URL_http> &&
              std::is_standard_layout_v<URL_module>);

}  // namespace groundwork

#endif
