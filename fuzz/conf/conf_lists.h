// The public lists of a configuration against those of a model.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_FUZZ_CONF_CONF_LISTS_H
#define GROUNDWORK_FUZZ_CONF_CONF_LISTS_H

#include <groundwork/conf.h>

#include <string>
#include <vector>

#include "fuzz/support/check.h"

namespace fuzz {

// A Section has a `name` and `entries`, each with `key` and `value`, as texts.
template <typename Section>
void compare_lists(const GConf* conf, const std::vector<Section>& sections) {
  const GList* section_node = conf->sections;
  for (const Section& section : sections) {
    REQUIRE(section_node != nullptr);
    const auto* const found = static_cast<const GConfSection*>(section_node->data);
    REQUIRE_EQUAL(std::string(found->name), section.name);
    const GList* entry_node = found->entries;
    for (const auto& entry : section.entries) {
      REQUIRE(entry_node != nullptr);
      const auto* const line = static_cast<const GConfEntry*>(entry_node->data);
      REQUIRE_EQUAL(std::string(line->key), entry.key);
      REQUIRE_EQUAL(std::string(line->value), entry.value);
      entry_node = entry_node->next;
    }
    REQUIRE(entry_node == nullptr);
    section_node = section_node->next;
  }
  REQUIRE(section_node == nullptr);
}

}  // namespace fuzz

#endif
