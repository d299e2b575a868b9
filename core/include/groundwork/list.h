/* SPDX-License-Identifier: MIT */
/**
 * @defgroup list List
 * @ingroup containers
 *
 * Doubly linked list of untyped pointers.
 *
 * A list is a pointer to a node, normally the first; null is the empty list. Functions
 * that may change the first node return the new one, which the caller stores in place of
 * the old. A list never owns its data. Elements are compared as pointers.
 *
 * Nothing is checked and nothing is logged: a null list is a valid empty list everywhere.
 * When memory is exhausted, the function that would have added a node returns its list
 * unchanged.
 *
 * Threads: callers that share a list lock around it.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = NULL;
 * list = g_list_append(list, "two");
 * list = g_list_prepend(list, "one");
 * for (GList *node = list; node != NULL; node = node->next) puts(node->data);
 * // prints: one
 * // prints: two
 * g_list_free(list); // the nodes; the elements stay the caller's
 * @endcode
 *
 * @{
 */
#ifndef GROUNDWORK_LIST_H
#define GROUNDWORK_LIST_H

#include <groundwork/export.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One node. */
typedef struct GList {
  struct GList* next; /**< following node, null at the end */
  struct GList* prev; /**< preceding node, null at the start */
  void* data;         /**< the caller's element; never dereferenced by the list */
} GList;

/** Called by g_list_foreach(). @param data the element. @param user_data the caller's. */
typedef void (*GListFunc)(void* data, void* user_data);

/** Frees a list, that is, the nodes from `list` to the end, not their data.
 *  @param list a node, or null. */
G_API void g_list_free(GList* list);

/** Tells the position of an element in a list.
 *  @param list a node, or null. @param data the element to look for.
 *  @return zero-based position, counted from `list`, of the first node that holds `data`;
 *          -1 if none does. */
G_API int g_list_index(GList* list, const void* data);

/** Goes on in a list by a number of nodes.
 *  @param list a node, or null. @param n how many nodes to go on.
 *  @return the node `n` places after `list`, null past the end; `list` itself when `n` is
 *          less than 1. */
G_API GList* g_list_nth(GList* list, int n);

/** Finds the end of a list. @param list a node, or null. @return the last node; null for a null
 *  list. */
G_API GList* g_list_last(GList* list);

/** Finds the start of a list. @param list a node, or null. @return the first node; null for a null
 *  list. */
G_API GList* g_list_first(GList* list);

/** Counts the nodes of a list. @param list a node, or null. @return how many there are from `list`
 *  to the end. */
G_API unsigned g_list_length(GList* list);

/** Visits the elements of a list: calls `func(data, user_data)` for each node from `list` to the
 *  end. The function may free or unlink the node that it was given.
 *  @param list a node, or null. @param func not null. @param user_data passed on. */
G_API void g_list_foreach(GList* list, GListFunc func, void* user_data);

/** Adds an element directly after the node `list`: second, not first and not last.
 *  @param list a node, or null. @param data the element.
 *  @return `list`; the new node when `list` is null. */
G_API GList* g_list_insert(GList* list, void* data);

/** Adds an element at the end of a list.
 *  @param list a node, or null. @param data the element.
 *  @return `list`; the new node when `list` is null. */
G_API GList* g_list_append(GList* list, void* data);

/** Adds an element directly before the node `list`, which may stand in the middle.
 *  @param list a node, or null. @param data the element.
 *  @return the new node; `list` when memory is exhausted. */
G_API GList* g_list_prepend(GList* list, void* data);

/**
 * Adds an element at an index of a list. Despite the name no sibling is given.
 *
 * @param list      a node, or null.
 * @param data      the element.
 * @param position  index counted from `list`; negative or past the end appends.
 * @return the new head.
 */
G_API GList* g_list_insert_before(GList* list, void* data, int position);

/** Copies a list, not its data. @param list a node, or null.
 *  @return a new list of the same elements in the same order; null for a null list, or
 *          when memory is exhausted. The caller frees it with g_list_free(). */
G_API GList* g_list_copy(GList* list);

/** Reverses a list, that is, the nodes from `list` to the end, in place.
 *  @param list the first node, or null. @return the new head, once the last node. */
G_API GList* g_list_reverse(GList* list);

/** Unlinks a node from its list without freeing it; its links are cleared, its data is kept.
 *  @param list the head. @param link a node of that list, or null.
 *  @return the new head. */
G_API GList* g_list_remove_link(GList* list, GList* link);

/** Unlinks a node from its list and frees it, not its data.
 *  @param list the head. @param link a node of that list, or null.
 *  @return the new head. */
G_API GList* g_list_delete_link(GList* list, GList* link);

/** Deletes the first node of a list that holds an element.
 *  @param list the head, or null. @param data the element to look for.
 *  @return the new head; `list` when no node holds `data`. */
G_API GList* g_list_remove(GList* list, const void* data);

/** Finds the node of an element in a list.
 *  @param list a node, or null. @param data the element to look for.
 *  @return the first node from `list` that holds `data`, or null. */
G_API GList* g_list_find(GList* list, const void* data);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
