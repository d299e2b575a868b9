/* SPDX-License-Identifier: MIT */
/**
 * @defgroup list List
 * @ingroup containers
 *
 * Doubly linked list of untyped pointers.
 *
 * A list is a pointer to a node, normally the first; null is the empty list. Functions that may
 * change the first node return the new one, which the caller stores in place of the old one. A list
 * never owns its elements. Elements are compared as pointers.
 *
 * Nothing is checked and nothing is logged: a null list is a valid empty list everywhere. When
 * memory is exhausted, the function that would have added a node returns its list unchanged.
 *
 * Threads: nothing is locked; callers that share a list lock around every call.
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

/**
 * Frees a list: the nodes from `list` to the end, but not their elements.
 *
 * @param list  the first node, invalid afterwards; or null.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, g_strdup("one"));
 * if (list == NULL) return 1;
 * free(list->data); // the elements are the caller's
 * g_list_free(list);
 * @endcode
 */
G_API void g_list_free(GList* list);

/**
 * Finds the position of an element in a list.
 *
 * @param list  the node to count from, or null.
 * @param data  the element to look for.
 * @return zero-based position, counted from `list`, of the first node that holds `data`; -1 if none
 *         does.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *two = "two";
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, two);
 * printf("%d\n", g_list_index(list, two)); // prints: 1
 * g_list_free(list);
 * @endcode
 */
G_API int g_list_index(GList* list, const void* data);

/**
 * Finds a node of a list by its position.
 *
 * @param list  the node to count from, or null.
 * @param n     how many nodes to advance; less than 1 advances none.
 * @return the node `n` places after `list`; null past the end.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * puts(g_list_nth(list, 1)->data); // prints: two
 * puts(g_list_nth(list, 2) == NULL ? "no third" : "third"); // prints: no third
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_nth(GList* list, int n);

/**
 * Finds the last node of a list.
 *
 * @param list  a node, or null.
 * @return the last node; null for a null list.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * puts(g_list_last(list)->data); // prints: two
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_last(GList* list);

/**
 * Finds the first node of a list.
 *
 * @param list  a node, or null.
 * @return the first node; null for a null list.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * GList *last = g_list_last(list);
 * puts(g_list_first(last)->data); // prints: one
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_first(GList* list);

/**
 * Counts the nodes of a list.
 *
 * @param list  the node to count from, or null.
 * @return the number of nodes from `list` to the end; 0 for a null list.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * printf("%u\n", g_list_length(list)); // prints: 2
 * g_list_free(list);
 * @endcode
 */
G_API unsigned g_list_length(GList* list);

/**
 * Calls a function for each element of a list, from `list` to the end.
 *
 * @param list       the node to begin with, or null.
 * @param func       called as `func(data, user_data)`; not null, unchecked. It may free or unlink
 *                   the node that it was given.
 * @param user_data  passed to `func`; stays the caller's; may be null.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * static void print(void *data, void *user_data) {
 *   printf("%s%s\n", (const char *)user_data, (const char *)data);
 * }
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * g_list_foreach(list, print, "- ");
 * // prints: - one
 * // prints: - two
 * g_list_free(list);
 * @endcode
 */
G_API void g_list_foreach(GList* list, GListFunc func, void* user_data);

/**
 * Adds an element to a list directly after the node `list`: second, not first and not last.
 *
 * @param list  the node to insert after, or null.
 * @param data  the element; stays the caller's.
 * @return `list`, also when memory is exhausted; the new node when `list` is null (null when memory
 *         is exhausted).
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Notes
 * The element becomes the second one, which the name does not suggest. To add at the start use
 * g_list_prepend(), at the end g_list_append().
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * list = g_list_insert(list, "one and a half");
 * puts(list->next->data); // prints: one and a half
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_insert(GList* list, void* data);

/**
 * Adds an element at the end of a list.
 *
 * @param list  the first node, or null.
 * @param data  the element; stays the caller's.
 * @return `list`, also when memory is exhausted; the new node when `list` is null (null when memory
 *         is exhausted).
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Notes
 * The end is found by walking: appending to a list of n nodes takes n steps.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * puts(g_list_last(list)->data); // prints: two
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_append(GList* list, void* data);

/**
 * Adds an element to a list directly before the node `list`, which may be in the middle.
 *
 * @param list  the node to insert before, or null.
 * @param data  the element; stays the caller's.
 * @return the new node, which is the new first node when `list` was the first; `list` when memory
 *         is exhausted.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_prepend(NULL, "two");
 * list = g_list_prepend(list, "one");
 * puts(list->data); // prints: one
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_prepend(GList* list, void* data);

/**
 * Adds an element to a list at a position.
 *
 * @param list      the first node, or null.
 * @param data      the element; stays the caller's.
 * @param position  zero-based position of the new node, counted from `list`; a negative one, or one
 *                  past the end, appends.
 * @return the new first node; `list` when memory is exhausted.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Notes
 * Despite the name it takes no sibling to insert before, but a position.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * list = g_list_insert_before(list, "one and a half", 1);
 * puts(list->next->data); // prints: one and a half
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_insert_before(GList* list, void* data, int position);

/**
 * Copies a list, but not its elements.
 *
 * @param list  the node to begin with, or null.
 * @return a new list of the same elements in the same order, owned by the caller and released with
 *         g_list_free(); null for a null list, or when memory is exhausted.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * GList *copy = g_list_copy(list);
 * g_list_free(list);
 * if (copy != NULL) puts(copy->data); // prints: one
 * g_list_free(copy);
 * @endcode
 */
G_API GList* g_list_copy(GList* list);

/**
 * Reverses a list in place.
 *
 * @param list  the first node, or null.
 * @return the new first node, which was the last; null for a null list.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * list = g_list_reverse(list);
 * puts(list->data); // prints: two
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_reverse(GList* list);

/**
 * Unlinks a node from its list without freeing it. Its links are cleared; its element stays.
 *
 * @param list  the first node.
 * @param link  a node of that list, which the caller owns afterwards; or null.
 * @return the new first node; null when the list is empty now.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * GList *first = list;
 * list = g_list_remove_link(list, first);
 * puts(list->data); // prints: two
 * g_list_free(first);
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_remove_link(GList* list, GList* link);

/**
 * Unlinks a node from its list and frees it, but not its element.
 *
 * @param list  the first node.
 * @param link  a node of that list, invalid afterwards; or null.
 * @return the new first node; null when the list is empty now.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, "two");
 * list = g_list_delete_link(list, list);
 * puts(list->data); // prints: two
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_delete_link(GList* list, GList* link);

/**
 * Deletes the first node of a list that holds an element. The element is not freed.
 *
 * @param list  the first node, or null.
 * @param data  the element to look for.
 * @return the new first node; `list` when no node holds `data`.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *one = "one";
 * GList *list = g_list_append(NULL, one);
 * list = g_list_append(list, "two");
 * list = g_list_remove(list, one);
 * puts(list->data); // prints: two
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_remove(GList* list, const void* data);

/**
 * Finds the node of an element in a list.
 *
 * @param list  the node to begin with, or null.
 * @param data  the element to look for.
 * @return the first node from `list` on that holds `data`, or null.
 *
 * Threads: no lock; callers that share a list lock around every call.
 *
 * @par Example
 * @code{.c}
 * #include <groundwork/groundwork.h>
 *
 * char *two = "two";
 * GList *list = g_list_append(NULL, "one");
 * list = g_list_append(list, two);
 * GList *found = g_list_find(list, two);
 * if (found != NULL) puts(found->prev->data); // prints: one
 * g_list_free(list);
 * @endcode
 */
G_API GList* g_list_find(GList* list, const void* data);

/** @} */

#ifdef __cplusplus
}
#endif

#endif
