// Saving by editing the existing text. The conf's mutex is held while the new text is made,
// but not while files are read and written.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>
#include <string_view>

#include <fcntl.h>

#include "conf/fingerprint.h"
#include "conf/line.h"
#include "conf/model.h"
#include "core/byte_array.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "safe/conf_edit.h"
#include "safe/conf_file.h"
#include "safe/failure.h"
#include "safe/file_replacement.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

namespace {

bool is_missing(int error) {
  return error == ENOENT || error == ENOTDIR;
}

// Returns whether the file, whose reading ended with `error`, has the content that the conf
// knows.
bool is_known(const GConf* conf, int error, const ConfFile& file) {
  const FileContent known = file_content(conf);
  if (known.state == FileContent::kText) {
    return error == 0 && known.text == content_of(file.bytes()).text;
  }
  // A missing file has no text, and neither has an empty one.
  return known.state == FileContent::kNoFile &&
         (is_missing(error) || (error == 0 && file.bytes().empty()));
}

// Reads the file that will be replaced, if it was found, and not what the path may lead to
// by now. Checks whether it has the content that the conf knows.
int read_known(const GConf* conf, bool force, const Replacement* found, ConfFile& file) {
  const int error = found != nullptr ? file.read(found->directory(), found->name())
                                     : file.read(AT_FDCWD, conf->filename);
  if (error != 0 && error != EFBIG && !is_missing(error)) return error;
  if (!force && !is_known(conf, error, file)) return ESTALE;
  return error == EFBIG ? EFBIG : 0;
}

// Makes the new text. Later writes to the conf are not in it, and make the conf dirty
// again.
int take_text(GConf* conf, const ConfFile& file, bool force, ByteArray& text) {
  std::string_view old_text = file.bytes();
  if (position_of(old_text, '\0') != old_text.size()) {
    if (!force) return EBADMSG;
    old_text = "";
  }
  const BriefLock lock(conf->mutex);
  const int error = edit_conf_text(old_text, conf, text);
  if (error == 0) set_dirty(conf, 0);
  return error;
}

int replace(GConf* conf, Replacement& replacement, std::string_view text) {
  if (!replacement.create() || !replacement.write(text.data(), text.size())) return -1;
  const int result = replacement.commit();
  if (result != -1) set_file_content(conf, content_of(text));
  return result;
}

int save(GConf* conf, bool force) {
  // From here on no other save or replacement can interfere.
  Replacement replacement;
  const int find_error = replacement.find(conf->filename) ? 0 : errno;
  ConfFile file;
  const Replacement* const found = find_error == 0 ? &replacement : nullptr;
  if (const int error = read_known(conf, force, found, file); error != 0) {
    return fail(error);
  }
  if (find_error != 0) return fail(find_error);
  ByteArray text;
  if (const int error = take_text(conf, file, force, text); error != 0) return fail(error);
  const int result = replace(conf, replacement, text.view());
  if (result == -1) set_dirty(conf, 1);
  return result;
}

}  // namespace

extern "C" int g_conf_save(GConf* conf, int force) {
  CHECK_ARG(conf != NULL, fail(EINVAL));
  const CancellationHeld held;
  const ConfFileLock lock(conf);
  return is_dirty(conf) ? save(conf, force != 0) : 0;
}
