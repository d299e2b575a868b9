// Reads, line readers, seeks and limits on files, on views of memory, and on streams of a
// module that lacks some of the operations, against a model.
//
// SPDX-License-Identifier: MIT

#include <groundwork/url.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "fuzz/support/buffer.h"
#include "fuzz/support/check.h"
#include "fuzz/support/directory.h"
#include "fuzz/support/input.h"
#include "fuzz/url/stream_model.h"
#include "fuzz/url/stream_operations.h"

namespace {

using fuzz::StreamModel;

// --- A module of our own. Its streams are models; a second one is what they should be.

struct OwnStream {
  URL_record common;
  StreamModel* model;
};

StreamModel& own(URL url) {
  return *reinterpret_cast<OwnStream*>(url)->model;
}

int32_t own_read(URL url, void* buffer, int32_t n) {
  std::string bytes(static_cast<size_t>(n), '\0');
  const int32_t count = own(url).read_slot(bytes, 0, n);
  if (count == -1) errno = EINTR;
  if (count > 0) std::memcpy(buffer, bytes.data(), static_cast<size_t>(count));
  return count;
}

char* own_gets(URL url, char* buffer, int32_t n) {
  std::string bytes(buffer, static_cast<size_t>(n));
  if (!own(url).gets_slot(bytes, n)) return nullptr;
  std::memcpy(buffer, bytes.data(), bytes.size());
  return buffer;
}

int32_t own_fgetc(URL url) {
  return own(url).fgetc_slot();
}
int64_t own_seek(URL url, int64_t offset, int32_t whence) {
  return own(url).seek_slot(offset, whence);
}
int64_t own_tell(URL url) {
  return own(url).position;
}
void own_close(URL url) {
  std::free(url);
}

URL own_stream(StreamModel& model) {
  const URL url = alloc_url(sizeof(OwnStream));
  REQUIRE(url != nullptr);
  reinterpret_cast<OwnStream*>(url)->model = &model;
  url->type = 77;
  url->read = own_read;
  url->gets = model.has_gets ? own_gets : nullptr;
  url->fgetc = model.has_fgetc ? own_fgetc : nullptr;
  url->seek = model.has_seek ? own_seek : nullptr;
  url->tell = model.has_tell ? own_tell : nullptr;
  url->close = own_close;
  return url;
}

// --- Files, whose view may be set.

URL file_stream(StreamModel& model, const fuzz::Buffer& view) {
  static const fuzz::Directory directory;
  static const std::string path = directory / "file";
  fuzz::write_file(path, model.bytes);
  const URL url = url_file_open(("file:" + path).c_str());
  REQUIRE(url != nullptr);
  model.limit = static_cast<uint32_t>(model.bytes.size());
  if (model.kind == StreamModel::kView) {
    auto* const file = reinterpret_cast<URL_file*>(url);
    file->data = reinterpret_cast<const uint8_t*>(view.data());
    file->size = static_cast<uint32_t>(view.size());
  }
  return url;
}

// Texts of some length from short inputs, to go beyond the pieces that files are read in.
std::string grown(const std::string& text, uint8_t times) {
  std::string bytes;
  for (unsigned i = 0; i <= times && bytes.size() < 20000; ++i) bytes += text;
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  const uint8_t options = input.byte();
  const uint8_t slots = input.byte();
  const uint8_t times = (slots & 0x80) != 0 ? input.byte() : 0;
  fuzz::Input operations = [&] {
    static std::string kept;
    kept = input.bytes(input.byte());
    return fuzz::Input(reinterpret_cast<const uint8_t*>(kept.data()), kept.size());
  }();
  StreamModel model;
  constexpr StreamModel::Kind kKinds[] = {StreamModel::kFile, StreamModel::kView,
                                          StreamModel::kOwn};
  model.kind = kKinds[options % 3];
  model.bytes = grown(input.rest(), times);
  const fuzz::Buffer view{std::string_view(model.bytes)};
  url_newline_code = model.newline;

  if (model.kind == StreamModel::kOwn) {
    model.has_gets = (slots & 1) == 0;
    model.has_fgetc = (slots & 2) == 0;
    model.has_seek = (slots & 4) == 0;
    model.has_tell = (slots & 8) == 0;
    model.longest_read = 1 + (options >> 2) * 3;
    // Never every time: the callers that try again would never end.
    model.interrupted_every = (slots >> 4 & 7) == 1 ? 2 : slots >> 4 & 7;
  }
  StreamModel twin = model;
  const URL url =
      model.kind == StreamModel::kOwn ? own_stream(twin) : file_stream(model, view);
  fuzz::compare_state(url, model);
  while (!operations.empty()) fuzz::run_operation(operations, url, model);
  url_close(url);
  return 0;
}
