// Saving by way of the text that is there. The conf's mutex is held for a copy of the model
// only; whoever writes to the conf while the file is being replaced makes it dirty again.
//
// SPDX-License-Identifier: MIT

#include <groundwork/safe.h>

#include <cerrno>
#include <cstring>
#include <string_view>

#include "conf/fingerprint.h"
#include "conf/model.h"
#include "core/cancellation.h"
#include "core/check.h"
#include "safe/conf_edit.h"
#include "safe/conf_file.h"
#include "safe/conf_keys.h"
#include "safe/file_replacement.h"
#include "thread/mutex_lock.h"

using namespace groundwork;

namespace {

bool is_missing(int error) {
  return error == ENOENT || error == ENOTDIR;
}

// Whether the file, whose reading ended with `error`, holds what the conf knows of.
bool is_known(const GConf* conf, int error, const ConfFile& file) {
  const FileContent known = file_content(conf);
  if (known.state == FileContent::kText) {
    return error == 0 && known.text == content_of(file.bytes()).text;
  }
  // Where there was no file there was no text: an empty file holds no more.
  return known.state == FileContent::kNoFile &&
         (is_missing(error) || (error == 0 && file.bytes().empty()));
}

// Reads what the file holds, and asks whether that is what the conf knows of.
int read_known(const GConf* conf, bool force, ConfFile& file) {
  const int error = file.read(conf->filename);
  if (error != 0 && error != EFBIG && !is_missing(error)) return error;
  if (!force && !is_known(conf, error, file)) return ESTALE;
  return error == EFBIG ? EFBIG : 0;
}

// The text for the file to hold.
int new_text(const ConfFile& file, bool force, const ConfSnapshot& model, ConfText& text) {
  std::string_view old_text = file.bytes();
  if (!old_text.empty() && std::memchr(old_text.data(), '\0', old_text.size()) != nullptr) {
    if (!force) return EBADMSG;
    old_text = "";
  }
  if (const int error = edit_conf_text(old_text, model.keys, text); error != 0)
    return error;
  const bool has_duplicates = model.has_duplicates();
  const int error = check_conf_text(text.view(), model.keys);
  return error == 0 && has_duplicates ? EINVAL : error;
}

int fail(int error) {
  errno = error;
  return -1;
}

int save(GConf* conf, const ConfSnapshot& model, bool force) {
  // From here on no other save or replacement comes in between.
  Replacement replacement;
  const int find_error = replacement.find(conf->filename) ? 0 : errno;
  ConfFile file;
  if (const int error = read_known(conf, force, file); error != 0) return fail(error);
  if (find_error != 0) return fail(find_error);
  ConfText text;
  if (const int error = new_text(file, force, model, text); error != 0) return fail(error);
  if (!replacement.create() || !replacement.write(text.view().data(), text.view().size())) {
    return -1;
  }
  const int result = replacement.commit();
  if (result != -1) set_file_content(conf, content_of(text.view()));
  return result;
}

// The flag goes down with the copy: what is written later is not in it.
enum class Taken { kClean, kNoMemory, kTaken };
Taken take_changes(GConf* conf, ConfSnapshot& model) {
  const BriefLock lock(conf->mutex);
  if (!is_dirty(conf)) return Taken::kClean;
  if (!model.take(conf)) return Taken::kNoMemory;
  set_dirty(conf, 0);
  return Taken::kTaken;
}

}  // namespace

extern "C" int g_conf_save(GConf* conf, int force) {
  CHECK_ARG(conf != NULL, (errno = EINVAL, -1));
  const CancellationHeld held;
  const ConfFileLock lock(conf);
  ConfSnapshot model;
  const Taken taken = take_changes(conf, model);
  if (taken == Taken::kClean) return 0;
  if (taken == Taken::kNoMemory) return fail(ENOMEM);
  const int result = save(conf, model, force != 0);
  if (result == -1) set_dirty(conf, 1);
  return result;
}
