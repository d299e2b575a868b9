// Random texts and random operations against a plain model, which walks vectors and splits
// lines in the most straightforward way.
//
// SPDX-License-Identifier: MIT

#include <strings.h>

#include <algorithm>
#include <random>

#include "conf/conf_support.h"

using namespace test;

namespace {

std::string trimmed(const std::string& text) {
  const char* const blanks = " \t\n\v\f\r";
  const size_t begin = text.find_first_not_of(blanks);
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(blanks) - begin + 1);
}

template <typename Items>
auto find(Items& items, const std::string& name) {
  return std::find_if(items.begin(), items.end(), [&](const auto& item) {
    return strcasecmp(item.first.c_str(), name.c_str()) == 0;
  });
}

class Model {
 public:
  Model() = default;
  explicit Model(const std::string& text) {
    size_t begin = 0;
    Keys* current = nullptr;
    while (begin <= text.size()) {
      const size_t end = std::min(text.find('\n', begin), text.size());
      const std::string line = text.substr(begin, end - begin);
      begin = end + 1;
      if (line[0] == '[') {
        const size_t close = line.find(']');
        if (close != std::string::npos) current = &section(line.substr(1, close - 1));
      } else if (const size_t equals = line.find('=');
                 line[0] != '#' && current != nullptr && equals != std::string::npos) {
        set(*current, trimmed(line.substr(0, equals)), trimmed(line.substr(equals + 1)));
      }
    }
  }

  // The result of a read, "" if there is nothing.
  std::string read(const std::string& name, const std::string& key) {
    const auto found = find(sections, name);
    if (found == sections.end()) return "";
    const auto entry = find(found->second, key);
    return entry == found->second.end() ? "" : entry->second;
  }

  // Whether something changed.
  bool write(const std::string& name, const std::string& key, const std::string& value) {
    if (read(name, key) == value) return false;
    set(section(name), trimmed(key), trimmed(value));
    return true;
  }

  bool remove_key(const std::string& name, const std::string& key) {
    const auto found = find(sections, name);
    if (found == sections.end()) return false;
    const auto entry = find(found->second, key);
    if (entry == found->second.end()) return false;
    found->second.erase(entry);
    return true;
  }

  bool remove_section(const std::string& name) {
    const auto found = find(sections, name);
    if (found == sections.end()) return false;
    sections.erase(found);
    return true;
  }

  std::string text() const {
    std::string text;
    for (const auto& [name, keys] : sections) {
      if (keys.empty()) continue;
      text += "[" + name + "]\n";
      for (const auto& [key, value] : keys) text += key + "=" + value + "\n";
      text += "\n";
    }
    return text;
  }

  Sections sections;

 private:
  Keys& section(const std::string& name) {
    const auto found = find(sections, name);
    if (found != sections.end()) return found->second;
    return sections.emplace_back(name, Keys{}).second;
  }

  static void set(Keys& keys, const std::string& key, const std::string& value) {
    const auto found = find(keys, key);
    if (found != keys.end()) {
      found->second = value;
    } else {
      keys.emplace_back(key, value);
    }
  }
};

class ConfRandom : public testing::Test {
 protected:
  unsigned below(unsigned bound) { return static_cast<unsigned>(random_() % bound); }

  std::string letters(unsigned count, const char* alphabet) {
    const auto size = static_cast<unsigned>(std::string_view(alphabet).size());
    std::string text;
    while (text.size() < count) text += alphabet[below(size)];
    return text;
  }

  // A name out of some two hundred, in random case.
  std::string name(unsigned how_many) {
    std::string text = "name" + std::to_string(below(how_many));
    if (below(3) == 0) {
      for (char& character : text) {
        if (below(2) == 0) character = static_cast<char>(std::toupper(character));
      }
    }
    return text;
  }

  std::mt19937 random_{20260102};
};

TEST_F(ConfRandom, TextsOfMarksAndBlanksLoadAndAreWrittenAsByTheModel) {
  const ConfFile file("");
  for (int round = 0; round < 2000; ++round) {
    const std::string text = letters(below(200), "[[]]==##aAbB\n\n\n\n \t\r\v\f;\xc4");
    file.rewrite(text);
    Model model(text);
    {
      const Conf conf = file.open();
      ASSERT_EQ(content(conf.get()), model.sections) << text;
      // Rewriting a file is slow on many filesystems.
      if (round % 10 != 0) continue;
      g_conf_write_string(conf.get(), "a", "b", "x");
      model.write("a", "b", "x");
    }
    ASSERT_EQ(file.text(), model.text()) << text;
  }
}

// A conf and a model on which the same operations run.
class ConfRandomOperations : public ConfRandom {
 protected:
  void run_random_operation(bool is_with_few_removals) {
    // Sections of every size around those that get an index.
    const std::string section = name(40);
    const std::string key = name(section.back() % 2 == 0 ? 20 : 60);
    switch (below(is_with_few_removals ? 20 : 8)) {
      case 0:
        g_conf_remove_key(conf_.get(), section.c_str(), key.c_str());
        is_dirty_ |= model_.remove_key(section, key);
        break;
      case 1:
        if (below(20) != 0) break;
        g_conf_remove_section(conf_.get(), section.c_str());
        is_dirty_ |= model_.remove_section(section);
        break;
      case 2:
        EXPECT_EQ(g_conf_read_string(conf_.get(), section.c_str(), key.c_str(), ""),
                  model_.read(section, key));
        break;
      case 3:
        if (below(50) != 0) break;
        g_conf_sync(conf_.get());
        expect_written();
        break;
      case 4:
        if (below(200) != 0) break;
        conf_.reset();
        expect_written();
        model_ = Model(file_.text());
        conf_ = file_.open();
        break;
      default:
        write(section, key);
        break;
    }
    EXPECT_EQ(conf_->dirty, is_dirty_ ? 1 : 0);
  }

  void write(const std::string& section, const std::string& key) {
    const std::string value = letters(below(6), "ab \t=[]#");
    const std::string blank_key = below(10) == 0 ? " " + key + "\t" : key;
    g_conf_write_string(conf_.get(), section.c_str(), blank_key.c_str(), value.c_str());
    is_dirty_ |= model_.write(section, blank_key, value);
  }

  void expect_written() {
    if (is_dirty_) {
      EXPECT_EQ(file_.text(), model_.text());
    }
    is_dirty_ = false;
  }

  const ConfFile file_{""};
  Conf conf_ = file_.open();
  Model model_;
  bool is_dirty_ = false;
};

TEST_F(ConfRandomOperations, AgreeWithTheModelAcrossWritingAndLoading) {
  for (int step = 0; step < 30000; ++step) {
    run_random_operation(step % 3000 < 1500);
    if (step % 100 == 0) {
      EXPECT_EQ(content(conf_.get()), model_.sections);
    }
    ASSERT_FALSE(HasFailure()) << "step " << step;
  }
  EXPECT_EQ(content(conf_.get()), model_.sections);
}

}  // namespace
