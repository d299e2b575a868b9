// Operations on a list, through its head and through nodes in its middle, against a model
// that knows every node: none may move, and data must stay where it was put.
//
// SPDX-License-Identifier: MIT

#include <groundwork/list.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "fuzz/support/check.h"
#include "fuzz/support/input.h"

namespace {

struct Node {
  GList* at;
  void* data;
};

struct Lists {
  GList* list = nullptr;
  std::vector<Node> model;
};

void* element(uint8_t number) {
  static char elements[8];
  return number % 9 == 8 ? nullptr : &elements[number % 9];
}

GList* node_at(const std::vector<Node>& model, size_t position) {
  return position < model.size() ? model[position].at : nullptr;
}

// The list must hold the model's nodes. A node that the model does not know yet, its `at`
// null, is taken from the list.
void compare(GList* list, std::vector<Node>& model) {
  GList* previous = nullptr;
  for (Node& node : model) {
    REQUIRE(list != nullptr);
    if (node.at == nullptr) {
      node.at = list;
    }
    REQUIRE_EQUAL(list, node.at);
    REQUIRE_EQUAL(list->data, node.data);
    REQUIRE_EQUAL(list->prev, previous);
    previous = list;
    list = list->next;
  }
  REQUIRE(list == nullptr);
}

std::vector<void*> visited;

void note_visited(void* data, void* user_data) {
  REQUIRE(user_data == &visited);
  visited.push_back(data);
}

void insert_model(std::vector<Node>& model, size_t position, void* data) {
  model.insert(model.begin() + static_cast<ptrdiff_t>(position), Node{nullptr, data});
}

// The operations that only read. `from` is a position in the list, or its end for a null
// list.
void look(const Lists& lists, size_t from, void* data, int n) {
  const std::vector<Node>& model = lists.model;
  GList* const start = node_at(model, from);
  const auto first = model.begin() + static_cast<ptrdiff_t>(from);
  const auto found = std::find_if(first, model.end(),
                                  [data](const Node& node) { return node.data == data; });
  const bool has = found != model.end();
  REQUIRE_EQUAL(g_list_index(start, data), has ? static_cast<int>(found - first) : -1);
  REQUIRE_EQUAL(g_list_find(start, data), has ? found->at : nullptr);
  REQUIRE_EQUAL(g_list_length(start), model.size() - from);
  REQUIRE_EQUAL(g_list_last(start), start != nullptr ? model.back().at : nullptr);
  REQUIRE_EQUAL(g_list_first(start), start != nullptr ? model.front().at : nullptr);
  REQUIRE_EQUAL(g_list_nth(start, n),
                n < 1 ? start : node_at(model, from + static_cast<size_t>(n)));

  visited.clear();
  g_list_foreach(start, note_visited, &visited);
  REQUIRE_EQUAL(visited.size(), model.size() - from);
  for (size_t i = from; i < model.size(); ++i) {
    REQUIRE_EQUAL(visited[i - from], model[i].data);
  }

  std::vector<Node> copied;
  for (size_t i = from; i < model.size(); ++i) copied.push_back({nullptr, model[i].data});
  GList* const copy = g_list_copy(start);
  compare(copy, copied);
  for (const Node& node : copied) {
    for (const Node& original : model) REQUIRE(node.at != original.at);
  }
  g_list_free(copy);
}

// Adds through `start`, the node at `from`. A result that is a new node before the head
// becomes the list.
void add(Lists& lists, unsigned how, size_t from, void* data, int position) {
  std::vector<Node>& model = lists.model;
  GList* const start = node_at(model, from);
  const size_t after = model.size() - from;  // nodes from `start` on
  size_t at;
  GList* result;
  switch (how) {
    case 0:
      result = g_list_insert(start, data);
      at = start != nullptr ? from + 1 : from;
      break;
    case 1:
      result = g_list_append(start, data);
      at = model.size();
      break;
    case 2:
      result = g_list_prepend(start, data);
      at = from;
      break;
    default:
      result = g_list_insert_before(start, data, position);
      at = position < 0 || static_cast<size_t>(position) >= after
               ? model.size()
               : from + static_cast<size_t>(position);
      if (position == 0) at = from;
      break;
  }
  insert_model(model, at, data);
  if (at == from) {
    // The result is the new node, wherever it is in memory.
    REQUIRE(result != nullptr);
    model[at].at = result;
  } else {
    REQUIRE_EQUAL(result, start);
  }
  if (at == 0) lists.list = result;
}

// Takes away through `start`, the node at `from`, the node at `which` or the first of
// `data`.
void take(Lists& lists, unsigned how, size_t from, size_t which, void* data) {
  std::vector<Node>& model = lists.model;
  GList* const start = node_at(model, from);
  GList* link = node_at(model, which);
  if (how == 2) {
    which = from;
    while (which < model.size() && model[which].data != data) ++which;
    link = node_at(model, which);
  }
  GList* result;
  if (how == 0) {
    result = g_list_remove_link(start, link);
  } else if (how == 1) {
    result = g_list_delete_link(start, link);
  } else {
    result = g_list_remove(start, data);
  }
  REQUIRE_EQUAL(result,
                link != nullptr && link == start ? node_at(model, from + 1) : start);
  if (link == nullptr) return;
  if (how == 0) {
    REQUIRE(link->next == nullptr && link->prev == nullptr);
    REQUIRE_EQUAL(link->data, model[which].data);
    g_list_free(link);
  }
  model.erase(model.begin() + static_cast<ptrdiff_t>(which));
  lists.list = node_at(model, 0);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::Input input(data, size);
  Lists lists;
  while (!input.empty()) {
    const uint8_t operation = input.byte();
    void* const item = element(input.byte());
    const uint8_t places = input.byte();
    // One operation in two goes through the head.
    const size_t from =
        (operation & 0x80) != 0 ? (places & 15) % (lists.model.size() + 1) : 0;
    const size_t which = (places >> 4) % (lists.model.size() + 1);
    const int position = (places >> 4) - 2;
    // Adding through the end of the list, a null pointer, makes a new list.
    const bool can_add = lists.model.empty() || from < lists.model.size();
    switch (operation % 9) {
      case 0:
      case 1:
      case 2:
      case 3:
        if (can_add) add(lists, operation % 9, from, item, position);
        break;
      case 4:
      case 5:
      case 6:
        if (from < lists.model.size()) take(lists, operation % 9 - 4U, from, which, item);
        break;
      case 7:
        lists.list = g_list_reverse(lists.list);
        std::reverse(lists.model.begin(), lists.model.end());
        break;
      default:
        look(lists, from, item, position);
        break;
    }
    compare(lists.list, lists.model);
  }
  g_list_free(lists.list);
  return 0;
}
