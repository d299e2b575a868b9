// The public records and lists: what programs see in them, and how look-ups work after a
// program has changed a list itself.
//
// SPDX-License-Identifier: MIT

#include <groundwork/list.h>

#include <strings.h>

#include <clocale>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "conf/conf_support.h"
#include "support/allocation_faults.h"

using namespace test;

namespace {

static_assert(offsetof(GConfEntry, key) == 0 &&
              offsetof(GConfEntry, value) == sizeof(void*));
static_assert(offsetof(GConfSection, name) == 0 &&
              offsetof(GConfSection, entries) == sizeof(void*));
static_assert(offsetof(GConf, filename) == 0 &&
              offsetof(GConf, sections) == sizeof(void*) &&
              offsetof(GConf, dirty) == 2 * sizeof(void*) &&
              offsetof(GConf, mutex) == 3 * sizeof(void*) &&
              offsetof(GConf, callbacks) == 4 * sizeof(void*));

// Shorter than what is walked, and longer.
constexpr int kSizes[] = {1, 5, 8, 9, 10, 12, 13, 24, 25, 100, 1000};

std::string key_name(int number) {
  return "Key" + std::to_string(number);
}

// One section of that many keys, "Key<n>=<n>".
std::string text_of(int keys) {
  std::string text = "[S]\n";
  for (int key = 0; key < keys; ++key) {
    text += key_name(key) + "=" + std::to_string(key) + "\n";
  }
  return text;
}

class ConfLists : public testing::TestWithParam<int> {
 protected:
  GConfSection* section() { return static_cast<GConfSection*>(conf_->sections->data); }
  int read(int key) { return g_conf_read_int(conf_.get(), "s", key_name(key).c_str(), -1); }
  void expect_all_found() {
    for (int key = 0; key < GetParam(); ++key) {
      GConfEntry* const entry =
          g_find_line(section(), ("kEY" + std::to_string(key)).c_str());
      ASSERT_NE(entry, nullptr) << key;
      ASSERT_EQ(entry->key, key_name(key));
    }
    EXPECT_EQ(g_find_line(section(), "key"), nullptr);
    EXPECT_EQ(g_find_line(section(), ("key" + std::to_string(GetParam())).c_str()),
              nullptr);
  }

  ConfFile file_{text_of(GetParam())};
  Conf conf_ = file_.open();
};

INSTANTIATE_TEST_SUITE_P(Sizes, ConfLists, testing::ValuesIn(kSizes));

TEST_P(ConfLists, EveryKeyIsFoundIgnoringCaseAndNoOther) {
  expect_all_found();
}

TEST_P(ConfLists, NodesAndRecordsStayWhereTheyAreThroughChanges) {
  std::vector<const void*> before;
  for (const GList* node = section()->entries; node != nullptr; node = node->next) {
    before.push_back(node);
    before.push_back(node->data);
  }
  for (int key = 0; key < GetParam(); ++key) {
    g_conf_write_int(conf_.get(), "s", key_name(key).c_str(), key + 1);
  }
  for (int key = 0; key < 100; ++key) {
    g_conf_write_int(conf_.get(), "s", ("more" + std::to_string(key)).c_str(), key);
  }
  size_t at = 0;
  for (const GList* node = section()->entries; at < before.size(); node = node->next) {
    EXPECT_EQ(node, before[at++]);
    EXPECT_EQ(node->data, before[at++]);
  }
}

TEST_P(ConfLists, RemovingFromEitherEndAndTheMiddleKeepsOrderAndLookUps) {
  Keys expected = keys_of(section());
  for (int turn = 0; !expected.empty(); ++turn) {
    const size_t at = turn % 3 == 0   ? 0
                      : turn % 3 == 1 ? expected.size() - 1
                                      : expected.size() / 2;
    const std::string key = expected[at].first;
    g_conf_remove_key(conf_.get(), "s", key.c_str());
    expected.erase(expected.begin() + static_cast<ptrdiff_t>(at));
    ASSERT_EQ(keys_of(section()), expected);
    ASSERT_EQ(g_find_line(section(), key.c_str()), nullptr);
    for (const auto& [left, value] : expected) {
      ASSERT_NE(g_find_line(section(), left.c_str()), nullptr) << left;
      if (expected.size() > 50) break;
    }
  }
  g_conf_write_int(conf_.get(), "s", "again", 1);
  EXPECT_EQ(keys_of(section()), (Keys{{"again", "1"}}));
}

TEST_P(ConfLists, AReversedListIsSearchedAsItIs) {
  section()->entries = g_list_reverse(section()->entries);
  expect_all_found();
  g_conf_write_int(conf_.get(), "s", "new", 1);
  EXPECT_EQ(keys_of(section()).back().first, "new");
  EXPECT_EQ(keys_of(section()).front().first, key_name(GetParam() - 1));
  expect_all_found();
  g_conf_remove_key(conf_.get(), "s", key_name(0).c_str());
  EXPECT_EQ(g_find_line(section(), key_name(0).c_str()), nullptr);
  EXPECT_EQ(keys_of(section()).size(), static_cast<size_t>(GetParam()));
}

TEST_P(ConfLists, RecordsThatChangedPlacesAreRemovedFromWhereTheyAre) {
  Keys expected = keys_of(section());
  const size_t size = expected.size();
  if (size < 4) return;
  // The nodes stay where they are, as when a program sorts a list by its data.
  GList* const second = section()->entries->next;
  std::swap(second->data, second->next->data);
  std::swap(expected[1], expected[2]);
  for (const size_t at : {2u, 1u}) {
    const std::string key = expected[at].first;
    g_conf_remove_key(conf_.get(), "s", key.c_str());
    expected.erase(expected.begin() + static_cast<ptrdiff_t>(at));
    EXPECT_EQ(keys_of(section()), expected);
    EXPECT_EQ(g_find_line(section(), key.c_str()), nullptr);
  }
}

TEST_P(ConfLists, ANodeTakenOffTheFrontIsNotFound) {
  GList* const first = section()->entries;
  section()->entries = g_list_remove_link(first, first);
  EXPECT_EQ(read(0), -1);
  if (GetParam() > 1) {
    EXPECT_EQ(read(1), 1);
  }
  // Given back, it is found again.
  section()->entries = g_list_append(section()->entries, first->data);
  std::free(first);
  EXPECT_EQ(read(0), 0);
  g_conf_write_int(conf_.get(), "s", "new", 1);
  g_conf_remove_key(conf_.get(), "s", key_name(0).c_str());
  EXPECT_EQ(read(0), -1);
  EXPECT_EQ(keys_of(section()).back().first, "new");
}

TEST_P(ConfLists, AnEmptiedListIsEmpty) {
  GList* const entries = section()->entries;
  section()->entries = nullptr;
  EXPECT_EQ(read(0), -1);
  g_conf_remove_key(conf_.get(), "s", key_name(0).c_str());
  EXPECT_EQ(conf_->dirty, 0);
  section()->entries = entries;
  expect_all_found();
}

TEST_P(ConfLists, ACopiedListServesAsWell) {
  GList* const original = section()->entries;
  section()->entries = g_list_copy(original);
  g_list_free(original);
  expect_all_found();
  for (int key = 0; key < GetParam(); ++key) {
    g_conf_remove_key(conf_.get(), "s", key_name(key).c_str());
  }
  EXPECT_EQ(section()->entries, nullptr);
}

GConfEntry* own_entry(const char* key, const char* value) {
  auto* const entry = static_cast<GConfEntry*>(std::malloc(sizeof(GConfEntry)));
  *entry = {strdup(key), strdup(value)};
  return entry;
}

TEST_P(ConfLists, RecordsOfTheProgramsOwnAreFoundChangedRemovedAndFreed) {
  section()->entries = g_list_append(section()->entries, own_entry("Own", "1"));
  section()->entries = g_list_prepend(section()->entries, own_entry("first", "2"));
  EXPECT_EQ(g_conf_read_int(conf_.get(), "s", "own", -1), 1);
  EXPECT_EQ(g_conf_read_int(conf_.get(), "s", "FIRST", -1), 2);
  EXPECT_EQ(g_conf_read_int(conf_.get(), "s", "none", -1), -1);
  g_conf_write_int(conf_.get(), "s", "own", 3);
  g_conf_write_int(conf_.get(), "s", "new", 4);
  EXPECT_EQ(g_conf_read_int(conf_.get(), "s", "own", -1), 3);
  expect_all_found();
  g_conf_remove_key(conf_.get(), "s", "first");
  EXPECT_EQ(keys_of(section()).front().first, key_name(0));
  expect_all_found();
  g_conf_sync(conf_.get());
  EXPECT_EQ(file_.text(), text_of(GetParam()) + "Own=3\nnew=4\n\n");
}

TEST_P(ConfLists, ARecordOfTheProgramsOwnAfterTheLastIsFound) {
  g_list_append(section()->entries, own_entry("Own", "1"));
  EXPECT_EQ(g_conf_read_int(conf_.get(), "s", "own", -1), 1);
  expect_all_found();
}

TEST_P(ConfLists, SectionsAreFoundAsKeysAre) {
  std::string text;
  for (int section = 0; section < GetParam(); ++section)
    text += "[" + key_name(section) + "]\n";
  const ConfFile file(text);
  const Conf conf = file.open();
  for (int section = 0; section < GetParam(); ++section) {
    GConfSection* const found =
        g_find_section(conf.get(), ("kEY" + std::to_string(section)).c_str());
    ASSERT_NE(found, nullptr);
    EXPECT_EQ(found->name, key_name(section));
  }
  EXPECT_EQ(g_find_section(conf.get(), "key"), nullptr);

  conf->sections = g_list_reverse(conf->sections);
  EXPECT_NE(g_find_section(conf.get(), "key0"), nullptr);
  EXPECT_EQ(g_find_section(conf.get(), "none"), nullptr);
  auto* const own = static_cast<GConfSection*>(std::malloc(sizeof(GConfSection)));
  *own = {strdup("Own"), nullptr};
  conf->sections = g_list_append(conf->sections, own);
  EXPECT_EQ(g_find_section(conf.get(), "OWN"), own);
  for (int key = 0; key < 40; ++key) {
    g_conf_write_int(conf.get(), "own", std::to_string(key).c_str(), key);
  }
  g_conf_remove_key(conf.get(), "own", "7");
  EXPECT_EQ(g_list_length(own->entries), 39u);
  EXPECT_EQ(g_conf_read_int(conf.get(), "own", "39", -1), 39);
  EXPECT_EQ(g_conf_read_int(conf.get(), "own", "7", -1), -1);
  g_conf_remove_section(conf.get(), "key0");
  EXPECT_EQ(g_find_section(conf.get(), "key0"), nullptr);
  g_conf_write_int(conf.get(), "last", "k", 1);
  EXPECT_EQ(content(conf.get()).back().first, "last");
  if (GetParam() % 2 == 0) g_conf_remove_section(conf.get(), "own");
  EXPECT_EQ(g_find_section(conf.get(), "own") == nullptr, GetParam() % 2 == 0);
}

// One name of the file has the same hash, or a thousand have one of their own, so that the
// slower hash is in use.
TEST(ConfRecords, OfTheProgramsOwnAreFoundPastNamesWithTheSameHash) {
  for (const int colliding : {0, 1024}) {
    std::string text = text_of(20) + "ab`d=1\n";
    for (int key = 0; key < colliding; ++key) {
      for (int bit = 0; bit < 12; ++bit) text += (key >> bit & 1) != 0 ? '@' : '`';
      text += "=v\n";
    }
    const ConfFile file(text);
    const Conf conf = file.open();
    auto* const section = static_cast<GConfSection*>(conf->sections->data);
    GConfEntry* const own = own_entry("ab@d", "2");
    g_list_append(section->entries, own);
    EXPECT_EQ(g_find_line(section, "ab@d"), own);
    EXPECT_EQ(g_find_line(section, "AB@D"), own);
    EXPECT_STREQ(g_conf_read_string(conf.get(), "s", "AB`D", ""), "1");
  }
}

TEST(ConfRecords, OfTheProgramsOwnMayBeSearchedWherever) {
  char key[] = "Key";
  char value[] = "v";
  char name[] = "Name";
  GConfEntry entry = {key, value};
  GList entry_node = {nullptr, nullptr, &entry};
  GConfSection section = {name, &entry_node};
  GList section_node = {nullptr, nullptr, &section};
  GConf conf = {};
  conf.sections = &section_node;
  EXPECT_EQ(g_find_section(&conf, "nAME"), &section);
  EXPECT_EQ(g_find_section(&conf, "none"), nullptr);
  EXPECT_EQ(g_find_line(&section, "kEY"), &entry);
  EXPECT_EQ(g_find_line(&section, "none"), nullptr);
  section.entries = nullptr;
  EXPECT_EQ(g_find_line(&section, "key"), nullptr);
}

// Every byte against every other, in names that are compared byte by byte, in words, and in
// words that overlap.
TEST(ConfNames, AreTheSameWhenStrcasecmpOfTheCLocaleSaysSo) {
  ASSERT_STREQ(std::setlocale(LC_CTYPE, nullptr), "C");
  for (const std::string frame : {"?", "b?c", "?bcd", "b?cd", "bc?d", "bcd?", "abcd?g"}) {
    std::string key = frame;
    std::string probe = frame;
    const size_t at = frame.find('?');
    char value[] = "v";
    GConfEntry entry = {key.data(), value};
    GList node = {nullptr, nullptr, &entry};
    GConfSection section = {value, &node};
    for (int own = 1; own < 256; ++own) {
      key[at] = static_cast<char>(own);
      for (int other = 1; other < 256; ++other) {
        probe[at] = static_cast<char>(other);
        const bool same = strcasecmp(key.c_str(), probe.c_str()) == 0;
        ASSERT_EQ(g_find_line(&section, probe.c_str()) != nullptr, same)
            << frame << " " << own << " " << other;
      }
    }
  }
}

TEST(ConfNames, OfManyKeysAreFoldedAsThoseOfFew) {
  for (const std::string frame : {"?", "b?c", "?bcd", "b?cd", "bc?d", "bcd?", "abcd?g"}) {
    const ConfFile file;
    const Conf conf = file.open();
    std::string key = frame;
    size_t entries = 0;
    for (int byte = 1; byte < 256; ++byte) {
      key[frame.find('?')] = static_cast<char>(byte);
      const char* const spelt = key.c_str();
      // At an end it would be trimmed.
      const bool is_blank = byte == ' ' || (byte >= '\t' && byte <= '\r');
      if (is_blank && (frame.front() == '?' || frame.back() == '?')) continue;
      g_conf_write_int(conf.get(), "s", spelt, byte);
      entries += byte >= 'a' && byte <= 'z' ? 0 : 1;
      ASSERT_EQ(g_conf_read_int(conf.get(), "s", spelt, -1), byte) << frame;
    }
    EXPECT_EQ(g_list_length(g_find_section(conf.get(), "s")->entries), entries);
    key[frame.find('?')] = 'Q';
    EXPECT_EQ(g_conf_read_int(conf.get(), "s", key.c_str(), -1), 'q');
  }
}

TEST(ConfNames, ThatBeginOrContinueAnotherAreOthers) {
  std::string name;
  const ConfFile file;
  const Conf conf = file.open();
  for (int length = 0; length < 40; ++length, name += 'x') {
    EXPECT_EQ(g_conf_read_int(conf.get(), name.c_str(), name.c_str(), -1), -1);
    g_conf_write_int(conf.get(), name.c_str(), name.c_str(), length);
    g_conf_write_int(conf.get(), "s", name.c_str(), length);
  }
  EXPECT_EQ(g_list_length(conf->sections), 41u);
  EXPECT_EQ(g_list_length(g_find_section(conf.get(), "S")->entries), 40u);
}

TEST(ConfRecords, AValueReadStaysWhereItIsWhileOtherKeysChange) {
  const ConfFile file("[s]\nloaded=1\n");
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "s", "written", "2");
  g_conf_write_string(conf.get(), "s", "replaced", "x");
  g_conf_write_string(conf.get(), "s", "replaced", "3");
  const char* const loaded_value = g_conf_read_string(conf.get(), "s", "loaded", nullptr);
  const char* const written = g_conf_read_string(conf.get(), "s", "written", nullptr);
  const char* const replaced = g_conf_read_string(conf.get(), "s", "replaced", nullptr);
  for (int key = 0; key < 200; ++key) {
    g_conf_write_int(conf.get(), "s", key_name(key).c_str(), key);
    g_conf_write_int(conf.get(), key_name(key).c_str(), "k", key);
  }
  for (int key = 0; key < 200; ++key) {
    g_conf_remove_key(conf.get(), "s", key_name(key).c_str());
    g_conf_remove_section(conf.get(), key_name(key).c_str());
  }
  g_conf_sync(conf.get());
  g_conf_write_string(conf.get(), "s", "loaded", "1");  // equal: no change
  EXPECT_STREQ(loaded_value, "1");
  EXPECT_STREQ(written, "2");
  EXPECT_STREQ(replaced, "3");
  EXPECT_EQ(g_conf_read_string(conf.get(), "s", "loaded", nullptr), loaded_value);
  EXPECT_EQ(g_conf_read_string(conf.get(), "s", "written", nullptr), written);
  EXPECT_EQ(g_conf_read_string(conf.get(), "s", "replaced", nullptr), replaced);
}

TEST(ConfRecords, AValueReplacedByTheLibraryIsFreed) {
  const ConfFile file("[s]\nk=v\n");
  const Conf conf = file.open();
  g_conf_write_string(conf.get(), "s", "k", "0");
  AllocationFaults blocks(0);
  for (int value = 1; value < 100; ++value) g_conf_write_int(conf.get(), "s", "k", value);
  EXPECT_EQ(blocks.outstanding(), 1);
  g_conf_remove_key(conf.get(), "s", "k");
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST(ConfRecords, OfTheProgramsOwnAreFreedWithAllTheirStrings) {
  const ConfFile file("[s]\nk=v\n");
  Conf conf = file.open();
  AllocationFaults blocks(0);
  GConfSection* const section = g_find_section(conf.get(), "s");
  section->entries = g_list_append(section->entries, own_entry("removed", "1"));
  g_conf_remove_key(conf.get(), "s", "removed");
  EXPECT_EQ(blocks.outstanding(), 0);
  section->entries = g_list_append(section->entries, own_entry("closed", "1"));
  auto* const own = static_cast<GConfSection*>(std::malloc(sizeof(GConfSection)));
  *own = {strdup("own"), g_list_append(nullptr, own_entry("k", "v"))};
  conf->sections = g_list_append(conf->sections, own);
  blocks.disarm();
  conf.reset();
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST(ConfRecords, AFileNameOfTheProgramsOwnIsWrittenToAndFreed) {
  const ConfFile file("[s]\nk=v\n");
  const std::string other = file.directory() / "other.conf";
  AllocationFaults blocks(0);
  Conf conf(g_conf_open(file.path().c_str()));
  conf->filename = strdup(other.c_str());
  g_conf_write_int(conf.get(), "new", "k", 1);
  blocks.disarm();
  EXPECT_STREQ(g_conf_read_string(conf.get(), "NEW", "k", ""), "1");
  conf.reset();
  EXPECT_EQ(blocks.outstanding(), 0);
  EXPECT_EQ(read_file(other), "[s]\nk=v\n\n[new]\nk=1\n\n");
  EXPECT_EQ(file.text(), "[s]\nk=v\n");
}

// What programs must not do. It may cost memory and failed look-ups, and nothing worse.
class ConfReplacedStrings : public testing::TestWithParam<int> {
 protected:
  const ConfFile file_{text_of(GetParam())};
};

INSTANTIATE_TEST_SUITE_P(Sizes, ConfReplacedStrings, testing::Values(2, 8, 9, 100));

TEST_P(ConfReplacedStrings, AKeyBelongsToTheConfAndTheValueBesideTheOldOneIsNotFreed) {
  AllocationFaults blocks(0);
  Conf conf = file_.open();
  GConfSection* const section = g_find_section(conf.get(), "s");
  for (GList* node = section->entries; node != nullptr; node = node->next) {
    auto* const entry = static_cast<GConfEntry*>(node->data);
    entry->key = strdup(("new" + std::string(entry->value)).c_str());
  }
  EXPECT_EQ(keys_of(section).front(), (std::pair<std::string, std::string>("new0", "0")));
  blocks.disarm();
  conf.reset();
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST_P(ConfReplacedStrings, ARecordWithAnotherKeyIsChangedAndRemovedAfterAWalk) {
  AllocationFaults blocks(0);
  Conf conf = file_.open();
  GConfSection* const section = g_find_section(conf.get(), "s");
  auto* const entry = static_cast<GConfEntry*>(section->entries->next->data);
  entry->key = strdup("renamed");
  section->entries = g_list_reverse(section->entries);  // noticed, and so walked
  EXPECT_EQ(g_find_line(section, "Renamed"), entry);
  g_conf_write_string(conf.get(), "s", "renamed", "x");
  EXPECT_STREQ(entry->value, "x");
  g_conf_remove_key(conf.get(), "s", "renamed");
  EXPECT_EQ(g_find_line(section, "renamed"), nullptr);
  EXPECT_EQ(g_list_length(section->entries), static_cast<unsigned>(GetParam() - 1));
  EXPECT_NE(g_find_line(section, "key0"), nullptr);
  conf->dirty = 0;
  blocks.disarm();
  conf.reset();
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST_P(ConfReplacedStrings, TheIndexOfARenamedSectionMayLeak) {
  in_child([this] {  // which leaves without a look at what has leaked
    AllocationFaults blocks(0);
    Conf conf = file_.open();
    GConfSection* const section = g_find_section(conf.get(), "s");
    section->name = strdup("renamed");
    EXPECT_EQ(g_conf_read_int(conf.get(), "renamed", "key1", -1), 1);
    g_conf_remove_key(conf.get(), "renamed", "key1");
    g_conf_write_int(conf.get(), "renamed", "more", 7);
    EXPECT_EQ(g_conf_read_int(conf.get(), "renamed", "key1", -1), -1);
    EXPECT_EQ(g_conf_read_int(conf.get(), "renamed", "more", -1), 7);
    conf->dirty = 0;
    blocks.disarm();
    conf.reset();
    EXPECT_EQ(blocks.outstanding(), GetParam() > 8 ? 1 : 0);
  });
}

TEST_P(ConfReplacedStrings, ValuesThatChangedPlacesAreNotFreedByThemselves) {
  AllocationFaults blocks(0);
  Conf conf = file_.open();
  GConfSection* const section = g_find_section(conf.get(), "s");
  auto* const first = static_cast<GConfEntry*>(section->entries->data);
  auto* const second = static_cast<GConfEntry*>(section->entries->next->data);
  std::swap(first->value, second->value);
  EXPECT_EQ(g_conf_read_int(conf.get(), "s", "key0", -1), 1);
  g_conf_write_int(conf.get(), "s", "key0", 5);
  EXPECT_EQ(g_conf_read_int(conf.get(), "s", "key1", -1), 0);
  conf->dirty = 0;
  blocks.disarm();
  conf.reset();
  EXPECT_EQ(blocks.outstanding(), 0);
}

// Texts of every length, so that every alignment occurs.
TEST(ConfRecords, TheTextsOfARecordAreFreedWithItWhateverTheirLengths) {
  std::string text = "[s]\n";
  for (size_t length = 1; length < 40; ++length) {
    text += std::string(length, 'k') + "=" + std::string(length % 7, 'v') + "\n";
  }
  const ConfFile file(text);
  AllocationFaults blocks(0);
  Conf conf = file.open();
  for (size_t length = 1; length < 40; length += 2) {
    const std::string key(length, 'k');
    EXPECT_EQ(g_conf_read_string(conf.get(), "s", key.c_str(), ""),
              std::string(length % 7, 'v'));
    g_conf_write_string(conf.get(), "s", key.c_str(), "new");
    g_conf_write_string(conf.get(), "s", key.c_str(), "newer");
    if (length % 3 == 0) g_conf_remove_key(conf.get(), "s", key.c_str());
  }
  conf->dirty = 0;
  blocks.disarm();
  conf.reset();
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST(ConfRecords, AMissingMutexIsReportedByEachUseAndTheWorkIsDone) {
  const ConfFile file("[s]\nk=v\n");
  const Conf conf = file.open();
  GMutex* const mutex = conf->mutex;
  conf->mutex = nullptr;
  LogCapture log;
  EXPECT_STREQ(g_conf_read_string(conf.get(), "s", "k", ""), "v");
  EXPECT_EQ(log.take(), (Lines{check_line("g_thread", "mutex != NULL"),
                               check_line("g_thread", "mutex != NULL")}));
  conf->mutex = mutex;
}

TEST(ConfRecords, KeysThatComeAndGoCostTheirRecordAndNodeAlone) {
  const ConfFile file(text_of(20));
  const Conf conf = file.open();
  const auto come_and_go = [&] {
    for (int round = 0; round < 1000; ++round) {
      g_conf_write_int(conf.get(), "s", "new", 1);
      g_conf_remove_key(conf.get(), "s", "new");
    }
  };
  // A key that always meets a long run makes the index change its hash, once. Whether this
  // one does depends on the seed of the process.
  come_and_go();
  AllocationFaults blocks(0);
  come_and_go();
  blocks.disarm();
  EXPECT_EQ(blocks.calls(), 2 * 1000);
  EXPECT_EQ(blocks.outstanding(), 0);
}

TEST(ConfRecords, EveryBlockIsFreedByRemovalAndClose) {
  AllocationFaults blocks(0);
  {
    const ConfFile file(text_of(100));
    Conf conf = file.open();
    blocks.disarm();
    const int opened = blocks.outstanding();
    g_conf_remove_section(conf.get(), "s");
    EXPECT_LE(blocks.outstanding(), opened - 200);
  }
  EXPECT_EQ(blocks.outstanding(), 0);
}

}  // namespace
