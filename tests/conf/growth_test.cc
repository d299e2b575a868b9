// What many keys cost, and keys whose names were made to collide. Nothing here depends on
// how fast the machine is: costs are compared with one another, in processor time of the
// thread, the least of several runs.
//
// SPDX-License-Identifier: MIT

#include <groundwork/list.h>

#include <cstdint>
#include <random>

#include "conf/conf_support.h"
#include "support/processor_time.h"

using namespace test;

namespace {

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

// The ratio that measure() returns. A machine that was busy with something else is given
// another chance where that may have made the difference.
template <typename Measure>
double settled_ratio(double limit, Measure measure) {
  double ratio = 0;
  for (int attempt = 0; attempt < 5; ++attempt) {
    ratio = measure();
    if (ratio < limit || ratio > 1.5 * limit) break;
  }
  return ratio;
}

// work(n) does something with n keys. Four times the keys may cost four times as much, and
// more where they leave the processor's caches; with a walk for each key it would be
// sixteen times.
template <typename Work>
void expect_no_walks(Work work) {
  const double ratio = settled_ratio(8, [&] {
    const double few = least_seconds(3, [&] { work(2000); });
    return least_seconds(3, [&] { work(8000); }) / few;
  });
  EXPECT_LT(ratio, 8) << "for four times the keys";
}

TEST(ConfGrowth, LoadingReadingWritingAndRemovingAKeyCostTheSameAmongMany) {
  expect_no_walks([](int keys) {
    const ConfFile file(text_of(keys));
    const Conf conf = file.open();
    for (int key = 0; key < keys; ++key) {
      ASSERT_EQ(g_conf_read_int(conf.get(), "s", key_name(key).c_str(), -1), key);
      ASSERT_EQ(g_conf_read_int(conf.get(), "s", ("x" + key_name(key)).c_str(), -1), -1);
    }
    for (int key = 0; key < keys; ++key) {
      g_conf_write_int(conf.get(), "s", ("new" + key_name(key)).c_str(), key);
      g_conf_remove_key(conf.get(), "s", key_name(key).c_str());
    }
    conf->dirty = 0;
  });
}

TEST(ConfGrowth, ASectionCostsTheSameAmongMany) {
  expect_no_walks([](int sections) {
    const ConfFile file;
    const Conf conf = file.open();
    for (int section = 0; section < sections; ++section) {
      g_conf_write_int(conf.get(), key_name(section).c_str(), "k", section);
      ASSERT_EQ(g_conf_read_int(conf.get(), ("x" + key_name(section)).c_str(), "k", -1),
                -1);
    }
    for (int section = 0; section < sections; ++section) {
      ASSERT_EQ(g_conf_read_int(conf.get(), key_name(section).c_str(), "k", -1), section);
    }
    for (int section = 0; section < sections; ++section) {
      g_conf_remove_section(conf.get(), key_name(section).c_str());
    }
    EXPECT_EQ(conf->sections, nullptr);
    conf->dirty = 0;
  });
}

TEST(ConfGrowth, AReorderedListCostsOneWalkAtTheNextChange) {
  expect_no_walks([](int keys) {
    const ConfFile file(text_of(keys));
    const Conf conf = file.open();
    GConfSection* const section = g_find_section(conf.get(), "s");
    section->entries = g_list_reverse(section->entries);
    for (int key = 0; key < keys; ++key) {
      g_conf_remove_key(conf.get(), "s", key_name(key).c_str());
    }
    EXPECT_EQ(section->entries, nullptr);
    conf->dirty = 0;
  });
}

TEST(ConfMany, AHundredThousandKeysInOneSection) {
  constexpr int kKeys = 100000;
  const ConfFile file(text_of(kKeys) + text_of(kKeys));
  const Conf conf = file.open();
  EXPECT_EQ(g_list_length(g_find_section(conf.get(), "s")->entries), 100000u);
  for (int key = 0; key < kKeys; ++key) {
    ASSERT_EQ(g_conf_read_int(conf.get(), "s", key_name(key).c_str(), -1), key);
  }
}

// So many pairs of names that some share whatever 32 bits they are hashed to.
TEST(ConfMany, ANameIsNotTakenForAnotherThatHashesAlike) {
  std::mt19937 random(20261120);
  char key[] = "----------";
  const auto next_key = [&] {
    uint64_t bits = random();
    bits = bits << 32 | random();
    for (int at = 0; at < 10; ++at, bits >>= 4)
      key[at] = static_cast<char>('a' + bits % 16);
    return key;
  };
  std::string text = "[s]\n";
  for (int stored = 0; stored < 100000; ++stored) text += std::string(next_key()) + "=v\n";
  const ConfFile file(text);
  const Conf conf = file.open();
  for (int other = 0; other < 300000; ++other) {
    ASSERT_EQ(g_conf_read_string(conf.get(), "s", next_key(), nullptr), nullptr) << key;
  }
}

TEST(ConfMany, TenThousandSectionsOfTenKeys) {
  constexpr int kSections = 10000;
  std::string text;
  for (int section = 0; section < kSections; ++section) {
    text += "[section " + std::to_string(section) + "]\n" + text_of(10).substr(4);
  }
  const ConfFile file(text);
  const Conf conf = file.open();
  for (int section = 0; section < kSections; ++section) {
    const std::string name = "Section " + std::to_string(section);
    for (int key = 0; key < 10; ++key) {
      ASSERT_EQ(g_conf_read_int(conf.get(), name.c_str(), key_name(key).c_str(), -1), key);
    }
    ASSERT_EQ(g_conf_read_int(conf.get(), name.c_str(), "none", -1), -1);
    ASSERT_EQ(g_conf_read_int(conf.get(), (name + "x").c_str(), "Key0", -1), -1);
  }
}

// Names of equal lengths, one for each number.
struct Family {
  const char* what;
  std::string (*name)(unsigned number);
};

constexpr int kBits = 13;

const Family kPlain = {"plain", [](unsigned number) {
                         std::string name = "key." + std::to_string(number);
                         name.resize(8 * kBits, 'x');
                         return name;
                       }};

// What an attacker would try. Each collided fully under some quick hash.
const Family kCollidings[] = {
    {"differ in the bit by which the cases of letters differ",
     [](unsigned number) {
       std::string name;
       for (int bit = 0; bit < kBits; ++bit) {
         name += std::string(7, 'x') + ((number >> bit & 1) != 0 ? '^' : '~');
       }
       return name;
     }},
    {"differ in the top bits of words, which multiplying leaves alone",
     [](unsigned number) {
       std::string name;
       for (int bit = 0; bit < kBits; ++bit) {
         name += (number >> bit & 1) != 0 ? "xxx\xf8xxy\xf8" : "xxxxxxxx";
       }
       return name;
     }},
    {"differ in one word",
     [](unsigned number) {
       std::string name(8 * kBits, 'x');
       name.replace(8 * kBits - 4, 4, std::to_string(1000 + number % 9000));
       if (number >= 9000) name[0] = 'y';
       return name;
     }},
};

using Names = std::vector<std::string>;

Names names_of(const Family& family) {
  Names names;
  for (unsigned number = 0; number < 1u << kBits; ++number) {
    names.push_back(family.name(number));
  }
  return names;
}

// Loads, reads and removes keys of these names, and sections.
void use(const Names& names, const ConfFile& keys, const ConfFile& sections) {
  for (const ConfFile* file : {&keys, &sections}) {
    const bool of_keys = file == &keys;
    const Conf conf = file->open();
    for (const std::string& name : names) {
      const char* const section = of_keys ? "s" : name.c_str();
      const char* const key = of_keys ? name.c_str() : "k";
      ASSERT_STREQ(g_conf_read_string(conf.get(), section, key, ""), "v");
      if (of_keys) {
        g_conf_remove_key(conf.get(), section, key);
      } else {
        g_conf_remove_section(conf.get(), section);
      }
      ASSERT_EQ(g_conf_read_string(conf.get(), section, key, nullptr), nullptr);
    }
    conf->dirty = 0;
  }
}

double seconds_to_use(const Names& names) {
  std::string keys = "[s]\n";
  std::string sections;
  for (const std::string& name : names) {
    keys += name + "=v\n";
    sections += "[" + name + "]\nk=v\n";
  }
  const ConfFile keys_file(keys);
  const ConfFile sections_file(sections);
  return least_seconds(3, [&] { use(names, keys_file, sections_file); });
}

TEST(ConfCollidingNames, CostAtMostThreeTimesWhatPlainNamesCost) {
  const Names plain = names_of(kPlain);
  for (const Family& family : kCollidings) {
    const Names colliding = names_of(family);
    const double ratio = settled_ratio(3, [&] {
      const double usual = seconds_to_use(plain);
      return seconds_to_use(colliding) / usual;
    });
    EXPECT_LT(ratio, 3) << family.what;
  }
}

TEST(ConfCollidingNames, OfAReorderedListCostOneWalkAtTheNextChange) {
  const Names names = names_of(kCollidings[0]);
  expect_no_walks([&](size_t keys) {
    std::string text = "[s]\n";
    for (size_t at = 0; at < keys; ++at) text += names[at] + "=v\n";
    const ConfFile file(text);
    const Conf conf = file.open();
    GConfSection* const section = g_find_section(conf.get(), "s");
    section->entries = g_list_reverse(section->entries);
    for (size_t at = 0; at < keys; ++at) {
      g_conf_remove_key(conf.get(), "s", names[at].c_str());
    }
    EXPECT_EQ(section->entries, nullptr);
    conf->dirty = 0;
  });
}

// So few among so many hardly change what an insertion costs on average.
TEST(ConfCollidingNames, CostNoMoreThanThePlainOnesAmongWhichTheyHide) {
  constexpr unsigned kKeys = 50000;
  constexpr unsigned kHidden = 300;
  const Family& colliding = kCollidings[0];
  std::string text = "[s]\n";
  for (unsigned number = 0; number < kKeys; ++number) text += kPlain.name(number) + "=v\n";
  for (unsigned number = 0; number < kHidden; ++number)
    text += colliding.name(number) + "=v\n";
  const ConfFile file(text);
  const Conf conf = file.open();
  // A miss probes all that collide.
  const auto seconds_to_miss = [&](const std::string& name) {
    return least_seconds(3, [&] {
      for (int times = 0; times < 100; ++times) {
        ASSERT_EQ(g_conf_read_string(conf.get(), "s", name.c_str(), nullptr), nullptr);
      }
    });
  };
  const double ratio = settled_ratio(3, [&] {
    const double usual = seconds_to_miss(kPlain.name(kKeys));
    return seconds_to_miss(colliding.name(kHidden)) / usual;
  });
  EXPECT_LT(ratio, 3);
}

TEST(ConfCollidingNames, AreFoundIgnoringCaseAndDistinguishedFromOthers) {
  for (const Family& family : kCollidings) {
    const ConfFile file;
    const Conf conf = file.open();
    const Names names = names_of(family);
    for (size_t at = 0; at < names.size(); at += 2) {
      g_conf_write_int(conf.get(), "s", names[at].c_str(), static_cast<int>(at));
    }
    for (size_t at = 0; at < names.size(); ++at) {
      std::string name = names[at];
      for (char& c : name) c = c == 'x' ? 'X' : c;
      const int expected = at % 2 == 0 ? static_cast<int>(at) : -1;
      ASSERT_EQ(g_conf_read_int(conf.get(), "s", name.c_str(), -1), expected)
          << family.what;
    }
    conf->dirty = 0;
  }
}

}  // namespace
