// SPDX-License-Identifier: MIT

#include "crash/crash_states.h"

#include <algorithm>
#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <tuple>
#include <unordered_set>
#include <utility>
#include <vector>

namespace crash {
namespace {

constexpr size_t kSector = 512;
constexpr size_t kBlock = 4096;
constexpr size_t kMostForAllSubsets = 8;

using Names = std::map<std::string, int>;
using Emit = std::function<void(const File&)>;

// A file as a crash may leave it, reduced to what the checks ask about.
struct Variant {
  uint64_t hash;
  bool is_old;  // the target's content before, and after the last step
  bool is_new;
  size_t size;
};
struct Variants {
  std::vector<Variant> coarse;  // with nothing torn
  std::vector<Variant> all;
};

void apply(const Step& step, File& file) {
  switch (step.kind) {
    case Step::kWrite:
      if (file.content.size() < step.offset + step.data.size()) {
        file.content.resize(step.offset + step.data.size());
      }
      file.content.replace(step.offset, step.data.size(), step.data);
      break;
    case Step::kResize:
      file.content.resize(step.size);
      break;
    case Step::kAttributes:
      file.attributes += step.data;
      break;
    default:
      break;
  }
}

// The part [from, to) of a write.
void apply_part(const Step& step, size_t from, size_t to, File& file) {
  if (from >= to) return;
  Step part = step;
  part.offset += from;
  part.data = step.data.substr(from, to - from);
  apply(part, file);
}

void grow(File& file, size_t size) {
  if (file.content.size() < size) file.content.resize(size);
}

// The subsets of so many things; of many those alone that leave one out, have one only, or
// end early.
void for_each_subset(size_t count,
                     const std::function<void(const std::vector<bool>&)>& run) {
  std::vector<bool> chosen(count);
  if (count <= kMostForAllSubsets) {
    for (size_t bits = 0; bits < size_t{1} << count; ++bits) {
      for (size_t i = 0; i < count; ++i) chosen[i] = (bits >> i & 1) != 0;
      run(chosen);
    }
    return;
  }
  for (size_t i = 0; i <= count; ++i) {
    for (size_t j = 0; j < count; ++j) chosen[j] = j < i;
    run(chosen);
    if (i == count) break;
    for (size_t j = 0; j < count; ++j) chosen[j] = j == i;
    run(chosen);
    chosen.flip();
    run(chosen);
  }
}

// --- What may be left of one file: `base` is on the disk, `pending` is not.

using Steps = std::vector<const Step*>;

void posix_subsets(const File& base, const Steps& pending, const Emit& emit) {
  for_each_subset(pending.size(), [&](const std::vector<bool>& chosen) {
    File file = base;
    for (size_t i = 0; i < pending.size(); ++i) {
      if (chosen[i]) apply(*pending[i], file);
    }
    emit(file);
  });
}

// One write torn; before and after it all, nothing, or only what came before.
void posix_torn(const File& base, const Steps& pending, const Emit& emit) {
  for (size_t torn = 0; torn < pending.size(); ++torn) {
    const Step& step = *pending[torn];
    if (step.kind != Step::kWrite) continue;
    const size_t length = step.data.size();
    for (int others = 0; others < 3; ++others) {
      File before = base;
      for (size_t i = 0; i < torn && others != 0; ++i) apply(*pending[i], before);
      const auto finish = [&](File file, size_t size) {
        grow(file, size);
        for (size_t i = torn + 1; i < pending.size() && others == 2; ++i) {
          apply(*pending[i], file);
        }
        emit(file);
      };
      for (size_t cut = 0; cut <= length; ++cut) {
        File file = before;
        apply_part(step, 0, cut, file);
        finish(file, 0);
        finish(file, step.offset + length);  // the size came before the data
        file = before;
        apply_part(step, cut, length, file);
        finish(file, 0);
      }
      for (size_t at = 0; at < length; at += kSector) {
        const size_t end = std::min(at + kSector, length);
        File file = before;
        apply_part(step, at, end, file);
        finish(file, step.offset + length);
        file = before;
        apply_part(step, 0, at, file);
        apply_part(step, end, length, file);
        finish(file, step.offset + length);
      }
    }
  }
}

// How many bytes of each pending step, if it is a write, are on the disk, from its
// beginning; `committed` of the steps are in the journal.
File ext4_file(const File& base, const Steps& pending, size_t committed,
               const std::vector<size_t>& written) {
  File file = base;
  for (size_t i = 0; i < pending.size(); ++i) {
    if (pending[i]->kind == Step::kWrite) {
      apply_part(*pending[i], 0, written[i], file);
    } else if (i < committed) {
      apply(*pending[i], file);
    }
  }
  return file;
}

// The pending writes, by their numbers.
struct Ext4Writes {
  std::vector<size_t> in_place;  // to blocks that are there: these come at any time
  std::vector<size_t> appended;  // the committed others, which come in order
};

Ext4Writes ext4_writes(const File& base, const Steps& pending, size_t committed) {
  Ext4Writes writes;
  size_t allocated = base.content.size();
  for (size_t i = 0; i < pending.size(); ++i) {
    const Step& step = *pending[i];
    if (step.kind == Step::kResize) allocated = std::min(allocated, step.size);
    if (step.kind != Step::kWrite) continue;
    if (step.offset + step.data.size() <= allocated) {
      writes.in_place.push_back(i);
    } else if (i < committed) {
      writes.appended.push_back(i);
    }
  }
  return writes;
}

void ext4_variants(const File& base, const Steps& pending, size_t committed,
                   const Emit& emit) {
  const Ext4Writes writes = ext4_writes(base, pending, committed);
  const std::vector<size_t>& in_place = writes.in_place;
  const auto size_of = [&](size_t write) { return pending[write]->data.size(); };
  std::vector<size_t> written(pending.size());
  const auto emit_file = [&] { emit(ext4_file(base, pending, committed, written)); };
  // None of the chosen overwrites is torn, or one of them at a sector.
  const auto emit_torn = [&] {
    emit_file();
    for (const size_t write : in_place) {
      const size_t size = written[write];
      for (size_t end = 0; end < size; end += kSector) {
        written[write] = end;
        emit_file();
      }
      written[write] = size;
    }
  };
  for_each_subset(in_place.size(), [&](const std::vector<bool>& chosen) {
    for (size_t i = 0; i < in_place.size(); ++i) {
      written[in_place[i]] = chosen[i] ? size_of(in_place[i]) : 0;
    }
    for (const size_t write : writes.appended) written[write] = 0;
    // The appended writes come one after the other, each up to the end of some block.
    for (const size_t write : writes.appended) {
      for (size_t cut = 0; cut < size_of(write); ++cut) {
        if (cut != 0 && (pending[write]->offset + cut) % kBlock != 0) continue;
        written[write] = cut;
        emit_torn();
      }
      written[write] = size_of(write);
    }
    emit_torn();
  });
}

void ubifs_variants(const File& base, const Steps& pending, size_t committed,
                    const Emit& emit) {
  std::set<size_t> touched;
  std::set<size_t> sizes = {0};
  File whole = base;
  for (const Step* const step : pending) {
    apply(*step, whole);
    sizes.insert(whole.content.size());
    if (step->kind != Step::kWrite || step->data.empty()) continue;
    const size_t end = step->offset + step->data.size();
    for (size_t block = step->offset / kBlock; block * kBlock < end; ++block) {
      touched.insert(block);
    }
  }
  const std::vector<size_t> blocks(touched.begin(), touched.end());
  for_each_subset(blocks.size(), [&](const std::vector<bool>& chosen) {
    for (const size_t size : sizes) {
      File file = base;
      for (size_t i = 0; i < pending.size(); ++i) {
        const Step& step = *pending[i];
        if (step.kind != Step::kWrite) {
          if (i < committed) apply(step, file);
          continue;
        }
        for (size_t number = 0; number < blocks.size(); ++number) {
          const size_t start = blocks[number] * kBlock;
          const size_t end = step.offset + step.data.size();
          if (!chosen[number] || end <= start || step.offset >= start + kBlock) continue;
          apply_part(step, std::max<size_t>(start, step.offset) - step.offset,
                     std::min(start + kBlock, end) - step.offset, file);
        }
      }
      grow(file, size);
      emit(file);
    }
  });
}

// --- All of the directory.

bool names_something(const Step& step) {
  return step.kind == Step::kName;
}

void apply_name(const Step& step, Names& names) {
  if (!step.other.empty()) names.erase(step.other);
  if (step.file == kNoFile) {
    names.erase(step.name);
  } else {
    names[step.name] = step.file;
  }
}

class Examination {
 public:
  Examination(const Recording& recording, const Promise& promise, Rules rules)
      : recording_(recording), promise_(promise), rules_(rules) {
    Names names = recording.names;
    files_ = recording.files;
    for (const Step& step : recording.steps) {
      if (static_cast<size_t>(step.file + 1) > files_.size() && step.file != kNoFile) {
        files_.resize(static_cast<size_t>(step.file + 1));
      }
      if (names_something(step)) apply_name(step, names);
    }
    const auto before = recording.names.find(promise.target);
    had_target_ = before != recording.names.end();
    if (had_target_) old_ = files_[static_cast<size_t>(before->second)];
    const auto after = names.find(promise.target);
    has_target_ = after != names.end();
    if (!has_target_) return;
    new_ = files_[static_cast<size_t>(after->second)];
    for (const Step& step : recording.steps) {
      if (step.file == after->second) apply(step, new_);
    }
  }

  Figures run() {
    for (size_t done = 0; done <= recording_.steps.size(); ++done) {
      if (rules_ == Rules::kPosix) {
        examine_independent(done);
      } else {
        for (size_t committed = last_sync(done); committed <= done; ++committed) {
          Names names = recording_.names;
          for (size_t i = 0; i < committed; ++i) {
            if (names_something(recording_.steps[i]))
              apply_name(recording_.steps[i], names);
          }
          examine_files(done, committed, names);
        }
      }
    }
    return figures_;
  }

 private:
  // One past the last step up to `done` that brings the journal to the disk.
  size_t last_sync(size_t done) const {
    size_t last = 0;
    for (size_t i = 0; i < done; ++i) {
      const Step::Kind kind = recording_.steps[i].kind;
      if (kind == Step::kSync || kind == Step::kSyncData || kind == Step::kSyncDirectory) {
        last = i + 1;
      }
    }
    return last;
  }

  // Each name has one of the values that it had since the directory was synced.
  void examine_independent(size_t done) {
    Names names = recording_.names;
    std::map<std::string, std::set<int>> values;
    const auto note = [&](const std::string& name) {
      const auto found = names.find(name);
      values[name].insert(found == names.end() ? kNoFile : found->second);
    };
    for (const auto& [name, file] : names) note(name);
    for (size_t i = 0; i < done; ++i) {
      const Step& step = recording_.steps[i];
      if (step.kind == Step::kSyncDirectory) {
        values.clear();
        for (const auto& [name, file] : names) note(name);
      }
      if (!names_something(step)) continue;
      note(step.name);
      if (!step.other.empty()) note(step.other);
      apply_name(step, names);
      note(step.name);
      if (!step.other.empty()) note(step.other);
    }
    std::vector<Names> combinations = {{}};
    for (const auto& [name, files] : values) {
      std::vector<Names> more;
      for (const Names& combination : combinations) {
        for (const int file : files) {
          more.push_back(combination);
          if (file != kNoFile) more.back()[name] = file;
        }
      }
      combinations = std::move(more);
    }
    for (const Names& combination : combinations) examine_files(done, done, combination);
  }

  // Each file torn in all ways, with the others in those where nothing is torn.
  void examine_files(size_t done, size_t committed, const Names& names) {
    std::set<int> numbers;
    for (const auto& [name, file] : names) numbers.insert(file);
    if (numbers.empty()) check(done, names, {});
    for (const int torn : numbers) {
      std::vector<std::map<int, const Variant*>> states = {{}};
      for (const int number : numbers) {
        const Variants& variants = variants_of(number, done, committed);
        const std::vector<Variant>& choice =
            number == torn ? variants.all : variants.coarse;
        std::vector<std::map<int, const Variant*>> more;
        for (const auto& state : states) {
          for (const Variant& variant : choice) {
            more.push_back(state);
            more.back()[number] = &variant;
          }
        }
        states = std::move(more);
      }
      for (const auto& state : states) check(done, names, state);
    }
  }

  const Variants& variants_of(int number, size_t done, size_t committed) {
    File base = files_[static_cast<size_t>(number)];
    Steps pending;
    size_t committed_here = 0;
    size_t last = 0;
    for (size_t i = 0; i < done; ++i) {
      const Step& step = recording_.steps[i];
      if (step.file != number || names_something(step)) continue;
      last = i + 1;
      if (step.kind == Step::kSync) {
        for (const Step* const one : pending) apply(*one, base);
        pending.clear();
        committed_here = 0;
      } else if (step.kind == Step::kSyncData) {
        Steps rest;
        for (const Step* const one : pending) {
          if (one->kind == Step::kAttributes) {
            rest.push_back(one);
          } else {
            apply(*one, base);
          }
        }
        pending = rest;
        committed_here = pending.size();
      } else {
        pending.push_back(&step);
        if (i < committed) committed_here = pending.size();
      }
    }
    const auto [place, is_new] = cache_.try_emplace({number, last, committed_here});
    Variants& variants = place->second;
    if (!is_new) return variants;
    std::unordered_set<uint64_t> seen;
    const auto into = [&](std::vector<Variant>& list) {
      return [&](const File& file) {
        const uint64_t hash = std::hash<std::string>()(file.content) * 31 +
                              std::hash<std::string>()(file.attributes);
        if (!seen.insert(hash).second) return;
        list.push_back({hash, had_target_ && file == old_, has_target_ && file == new_,
                        file.content.size()});
      };
    };
    switch (rules_) {
      case Rules::kPosix:
        posix_subsets(base, pending, into(variants.coarse));
        variants.all = variants.coarse;
        posix_torn(base, pending, into(variants.all));
        break;
      case Rules::kExt4:
        ext4_variants(base, pending, committed_here, into(variants.coarse));
        variants.all = variants.coarse;
        break;
      case Rules::kUbifs:
        ubifs_variants(base, pending, committed_here, into(variants.coarse));
        variants.all = variants.coarse;
        break;
    }
    return variants;
  }

  void check(size_t done, const Names& names, const std::map<int, const Variant*>& state) {
    const bool is_end = done == recording_.steps.size() && promise_.ends_durable;
    uint64_t hash = is_end ? 1 : 0;
    int temporaries = 0;
    bool is_bystander_lost = false;
    for (const auto& [name, file] : names) {
      const Variant& variant = *state.at(file);
      hash = (hash * 1'000'003 + std::hash<std::string>()(name)) * 1'000'003 + variant.hash;
      if (name != promise_.target && !is_bystander(name)) ++temporaries;
    }
    if (!seen_.insert(hash).second) return;
    for (const auto& [name, file] : recording_.names) {
      is_bystander_lost |= is_bystander(name) && !names.contains(name);
    }
    const auto found = names.find(promise_.target);
    const Variant* const target = found == names.end() ? nullptr : state.at(found->second);
    const bool is_old = target == nullptr ? !had_target_ : target->is_old;
    const bool is_new = target == nullptr ? !has_target_ : target->is_new;
    const bool is_good = (is_new || (is_old && !is_end)) && !is_bystander_lost &&
                         temporaries <= promise_.most_temporaries;
    ++figures_.states;
    if (is_good) return;
    if (figures_.bad++ == 0) describe(done, names, state);
  }

  // What was there before and is not a temporary file.
  bool is_bystander(const std::string& name) const {
    return name != promise_.target && !name.starts_with(".") &&
           recording_.names.contains(name);
  }

  void describe(size_t done, const Names& names,
                const std::map<int, const Variant*>& state) {
    std::ostringstream text;
    text << "after " << done << " of " << recording_.steps.size() << " steps:";
    for (const auto& [name, file] : names) {
      const Variant& variant = *state.at(file);
      text << ' ' << name << " (" << variant.size << " bytes"
           << (variant.is_old   ? ", old"
               : variant.is_new ? ", new"
                                : "")
           << ')';
    }
    if (names.empty()) text << " nothing";
    figures_.example = text.str();
  }

  const Recording& recording_;
  const Promise& promise_;
  const Rules rules_;
  std::vector<File> files_;
  bool had_target_ = false;
  bool has_target_ = false;
  File old_;
  File new_;
  std::map<std::tuple<int, size_t, size_t>, Variants> cache_;
  std::unordered_set<uint64_t> seen_;
  Figures figures_;
};

}  // namespace

const char* name_of(Rules rules) {
  switch (rules) {
    case Rules::kPosix:
      return "POSIX";
    case Rules::kExt4:
      return "ext4";
    case Rules::kUbifs:
      return "UBIFS";
  }
  return "";
}

Figures examine(const Recording& recording, const Promise& promise, Rules rules) {
  return Examination(recording, promise, rules).run();
}

}  // namespace crash
