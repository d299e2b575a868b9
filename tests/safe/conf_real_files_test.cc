// Files that people wrote and programs read: one value changes, one key comes, and a diff
// shows just that. The files of this machine are taken, and those below
// $GROUNDWORK_REAL_FILES (scripts/real-files unpacks some thousands).
//
// SPDX-License-Identifier: MIT

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "safe/conf_support.h"

using namespace test;
namespace fs = std::filesystem;

namespace {

constexpr const char* kPlaces[] = {"/etc",
                                   "/usr/lib/systemd",
                                   "/lib/systemd",
                                   "/usr/share/applications",
                                   "/usr/lib/tmpfiles.d",
                                   "/usr/share/dbus-1",
                                   "/usr/share/glib-2.0",
                                   "/usr/lib/python3"};
constexpr std::string_view kKinds[] = {
    ".automount", ".cfg",     ".cnf",    ".conf",     ".desktop", ".directory", ".ini",
    ".link",      ".mount",   ".netdev", ".network",  ".path",    ".preset",    ".profile",
    ".rc",        ".ruleset", ".scope",  ".service",  ".slice",   ".socket",    ".spec",
    ".swap",      ".target",  ".theme",  ".tilespec", ".timer",   ".types"};
constexpr char kAdded[] = "x-groundwork-added";
constexpr char kChanged[] = "groundwork changed this";

std::vector<fs::path> files_below(const fs::path& place) {
  std::vector<fs::path> found;
  std::error_code ignored;
  fs::recursive_directory_iterator at(place, fs::directory_options::skip_permission_denied,
                                      ignored);
  for (; !ignored && at != fs::recursive_directory_iterator(); at.increment(ignored)) {
    const std::string kind = at->path().extension().string();
    if (std::find(std::begin(kKinds), std::end(kKinds), kind) != std::end(kKinds) &&
        fs::is_regular_file(at->symlink_status(ignored))) {
      found.push_back(at->path());
    }
  }
  return found;
}

std::vector<fs::path> all_files() {
  std::set<fs::path> files;
  const auto add = [&files](const fs::path& place) {
    const std::vector<fs::path> found = files_below(place);
    files.insert(found.begin(), found.end());
  };
  for (const char* const place : kPlaces) add(place);
  if (const char* const more = std::getenv("GROUNDWORK_REAL_FILES")) add(more);
  return {files.begin(), files.end()};
}

Lines lines_of(const std::string& text) {
  Lines lines;
  for (size_t start = 0; start < text.size();) {
    const size_t newline = text.find('\n', start);
    const size_t end = newline == text.npos ? text.size() : newline + 1;
    lines.push_back(text.substr(start, end - start));
    start = end;
  }
  return lines;
}

std::string without_end(std::string line) {
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  return line;
}

bool has_changed_value(const std::string& before, const std::string& after) {
  const size_t place = after.find(kChanged);
  return place != after.npos && before.find('=') < place &&
         before.compare(0, place, after, 0, place) == 0 &&
         without_end(after).ends_with(kChanged) &&
         before.substr(without_end(before).size()) ==
             after.substr(without_end(after).size());
}

// How many lines were changed, added, and anything else.
struct Difference {
  int changed = 0;
  int added = 0;
  int other = 0;
};

Difference difference(const std::string& before, const std::string& after) {
  const Lines old_lines = lines_of(before);
  Difference found;
  size_t at = 0;
  for (const std::string& line : lines_of(after)) {
    const bool is_last = at + 1 == old_lines.size();
    if (without_end(line) == std::string(kAdded) + "=1") {
      ++found.added;
    } else if (at == old_lines.size()) {
      ++found.other;
    } else {
      const std::string& old_line = old_lines[at++];
      if (line == old_line) continue;
      // A last line may get a line end.
      if (is_last && !old_line.ends_with('\n') && line.starts_with(old_line) &&
          without_end(line) == old_line) {
        continue;
      }
      if (has_changed_value(old_line, line) ||
          (is_last && has_changed_value(old_line, without_end(line)))) {
        ++found.changed;
      } else {
        ++found.other;
      }
    }
  }
  found.other += static_cast<int>(old_lines.size() - at);
  return found;
}

// An entry somewhere in the conf.
const GConfEntry* pick(GConf* conf, std::mt19937& random,
                       const GConfSection** its_section) {
  std::vector<std::pair<const GConfSection*, const GConfEntry*>> all;
  for (const GList* node = conf->sections; node != nullptr; node = node->next) {
    const auto* const section = static_cast<const GConfSection*>(node->data);
    for (const GList* line = section->entries; line != nullptr; line = line->next) {
      all.emplace_back(section, static_cast<const GConfEntry*>(line->data));
    }
  }
  if (all.empty()) return nullptr;
  const auto& [section, entry] = all[random() % all.size()];
  *its_section = section;
  return entry;
}

TEST(ConfRealFiles, ADiffShowsTheChangedAndTheAddedLineOnly) {
  std::mt19937 random(1);
  int saved = 0;
  int without_keys = 0;
  for (const fs::path& path : all_files()) {
    std::ifstream stream(path, std::ios::binary);
    const std::string before{std::istreambuf_iterator<char>(stream), {}};
    if (!stream || before.find('\0') != before.npos) continue;
    SCOPED_TRACE(path.string());
    const ConfFile file(before);
    const Conf conf = file.open();
    const GConfSection* section = nullptr;
    const GConfEntry* const entry = pick(conf.get(), random, &section);
    if (entry == nullptr) {
      ++without_keys;
      continue;
    }
    set(conf.get(), section->name, entry->key, kChanged);
    set(conf.get(), section->name, kAdded, "1");
    ASSERT_EQ(g_conf_save(conf.get(), 0), 0) << std::strerror(errno);
    const std::string after = file.text();
    const Difference found = difference(before, after);
    EXPECT_EQ(found.changed, 1);
    EXPECT_EQ(found.added, 1);
    EXPECT_EQ(found.other, 0);
    EXPECT_EQ(readings(file.open().get()), readings(conf.get()));
    ++saved;
    if (HasFailure()) break;
  }
  std::printf("%d files saved, %d without a key\n", saved, without_keys);
  if (saved == 0) GTEST_SKIP() << "there are no configuration files with sections here";
}

}  // namespace
