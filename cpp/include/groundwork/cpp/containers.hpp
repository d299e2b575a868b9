/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_CONTAINERS_HPP
#define GROUNDWORK_CPP_CONTAINERS_HPP

#include <groundwork/callback.h>
#include <groundwork/cpp/owner.hpp>
#include <groundwork/fifo.h>
#include <groundwork/hash.h>
#include <groundwork/list.h>
#include <groundwork/queue.h>

#include <cstddef>
#include <cstdint>
#include <iterator>

namespace gw {

/** The elements of a list that somebody else owns. */
template <typename T>
class ListView {
 public:
  /** Goes from node to node. */
  class iterator {
   public:
    /** Kind of iterator. */
    using iterator_category = std::forward_iterator_tag;
    /** What it yields. */
    using value_type = T *;
    /** Distance of two. */
    using difference_type = std::ptrdiff_t;
    /** Not used. */
    using pointer = T *const *;
    /** What it yields. */
    using reference = T *;

    iterator() = default;
    /** @param node where it stands; null at the end. */
    explicit iterator(GList *node) : node_(node) {}
    /** @return the element. */
    T *operator*() const { return static_cast<T *>(node_->data); }
    /** @return this, one further. */
    iterator &operator++() {
      node_ = node_->next;
      return *this;
    }
    /** @return where it stood. */
    iterator operator++(int) {
      iterator before = *this;
      ++*this;
      return before;
    }
    /** @param other of the same list. @return whether both stand at one node. */
    bool operator==(const iterator &other) const { return node_ == other.node_; }
    /** @param other of the same list. @return whether they stand apart. */
    bool operator!=(const iterator &other) const { return node_ != other.node_; }

   private:
    GList *node_ = nullptr;
  };

  /** @param list its first node, or null. */
  explicit ListView(GList *list) : list_(list) {}
  /** @return the first element. */
  iterator begin() const { return iterator(list_); }
  /** @return behind the last. */
  iterator end() const { return iterator(); }

 private:
  GList *list_;
};

/** A list that owns its nodes, but not its elements. */
template <typename T>
class List {
 public:
  List() = default;
  /** Takes a list over. @param list its first node, or null. */
  explicit List(GList *list) : list_(list) {}
  /** Takes over what another owns. @param other empty afterwards. */
  List(List &&other) noexcept : list_(other.release()) {}
  /** @param other empty afterwards. @return this. */
  List &operator=(List &&other) noexcept {
    if (this != &other) {
      g_list_free(list_);
      list_ = other.release();
    }
    return *this;
  }
  ~List() { g_list_free(list_); }

  /** @return the first node, still owned here. */
  GList *get() const { return list_; }
  /** Gives the nodes up. @return the first. */
  GList *release() { return std::exchange(list_, nullptr); }
  /** @return whether there is no element. */
  bool empty() const { return list_ == nullptr; }
  /** @return the number of elements, counted. */
  unsigned size() const { return g_list_length(list_); }
  /** Adds at the end, walking there. @param element not owned. */
  void append(T *element) { list_ = g_list_append(list_, detail::untyped(element)); }
  /** Adds at the start. @param element not owned. */
  void prepend(T *element) { list_ = g_list_prepend(list_, detail::untyped(element)); }
  /** Removes the first occurrence. @param element what is looked for. */
  void remove(const T *element) { list_ = g_list_remove(list_, element); }
  /** @param element what is looked for. @return whether it is there. */
  bool contains(const T *element) const { return g_list_find(list_, element) != nullptr; }
  /** Turns the order round. */
  void reverse() { list_ = g_list_reverse(list_); }
  /** @return the first element. */
  typename ListView<T>::iterator begin() const { return ListView<T>(list_).begin(); }
  /** @return behind the last. */
  typename ListView<T>::iterator end() const { return ListView<T>(list_).end(); }

 private:
  GList *list_ = nullptr;
};

/** A thread-safe queue; it does not own its elements. */
template <typename T>
class Queue {
 public:
  /** Makes one; null when memory is exhausted.
   *  @param add as for g_queue_new(). @param release as for g_queue_new(). */
  explicit Queue(GQueueHoldFunc add = nullptr, GQueueHoldFunc release = nullptr)
      : queue_(g_queue_new(add, release)) {}

  /** @return whether there is one. */
  explicit operator bool() const { return queue_ != nullptr; }
  /** @return the handle, still owned here. */
  GQueue *get() const { return queue_.get(); }
  /** Adds at the tail. @param element not owned. */
  void enqueue(T *element) { g_queue_enqueue(get(), detail::untyped(element)); }
  /** Takes the head, as g_queue_dequeue(). @param expected null for any element.
   *  @return it, or null. */
  T *dequeue(const T *expected = nullptr) {
    return static_cast<T *>(g_queue_dequeue(get(), expected));
  }
  /** @return the head, which stays; or null. */
  T *first() const { return static_cast<T *>(g_queue_first(get())); }
  /** @return the tail, which stays; or null. */
  T *last() const { return static_cast<T *>(g_queue_last(get())); }
  /** Adds behind an element, as g_queue_insert(). @param sibling as there.
   *  @param element not owned. */
  void insert_after(const T *sibling, T *element) {
    g_queue_insert(get(), sibling, detail::untyped(element));
  }
  /** Removes the first occurrence. @param element what is looked for. */
  void remove(const T *element) { g_queue_remove(get(), element); }
  /** Removes all. */
  void clear() { g_queue_clear(get()); }
  /** @return the number of elements, perhaps out of date. */
  std::uint32_t size() const { return g_queue_count(get()); }
  /** @return whether there is no element. */
  bool empty() const { return g_queue_empty(get()) != 0; }
  /** Calls a function from head to tail with the queue locked.
   *  @param function takes a `T *`; returns nothing, or true to go on. Must not throw. */
  template <typename Function>
  void for_each(Function &&function) const {
    g_queue_foreach(get(), visit<std::remove_reference_t<Function>>,
                    detail::untyped(std::addressof(function)));
  }
  /** As for_each(), from tail to head. @param function as there. */
  template <typename Function>
  void for_each_reverse(Function &&function) const {
    g_queue_foreach_reverse(get(), visit<std::remove_reference_t<Function>>,
                            detail::untyped(std::addressof(function)));
  }

 private:
  template <typename Function>
  static int visit(void *element, void *function) {
    return detail::stops(*static_cast<Function *>(function), static_cast<T *>(element));
  }

  Owner<GQueue, g_queue_free> queue_;
};

/**
 * A hash table of pointers; it owns neither keys nor values.
 *
 * Keys are compared by what they point to where that is text (`const char`) or a number
 * (`const std::int32_t`), else as pointers.
 */
template <typename Key, typename Value>
class Hash {
 public:
  /** Makes one; null when memory is exhausted.
   *  @param slots as for g_hash_new(). @param destroy as for g_hash_new(). */
  explicit Hash(unsigned slots = 16, GHashDestroyFunc destroy = nullptr)
      : hash_(g_hash_new(slots, hash_func(), equal_func(), destroy)) {}

  /** @return whether there is one. */
  explicit operator bool() const { return hash_ != nullptr; }
  /** @return the handle, still owned here. */
  GHash *get() const { return hash_.get(); }
  /** Stores a pair, as g_hash_insert(). @param key valid as long as it is stored.
   *  @param value not owned. @return whether it is stored. */
  bool insert(Key *key, Value *value) {
    return g_hash_insert(get(), detail::untyped(key), detail::untyped(value)) == 0;
  }
  /** @param key what is looked for. @return its value, or null. */
  Value *find(const Key *key) const { return static_cast<Value *>(g_hash_find(get(), key)); }
  /** Removes the entry that find() would find. @param key what is looked for.
   *  @return whether there was one. */
  bool remove(const Key *key) { return g_hash_remove(get(), key) == 0; }
  /** @return the number of entries. */
  unsigned size() const { return g_hash_count(get()); }

 private:
  using Plain = std::remove_const_t<Key>;
  static GHashFunc hash_func() {
    if constexpr (std::is_same_v<Plain, char>) return g_hash_str;
    if constexpr (std::is_same_v<Plain, std::int32_t>) return g_hash_int;
    return g_hash_direct;
  }
  static GEqualFunc equal_func() {
    if constexpr (std::is_same_v<Plain, char>) return g_hash_str_equal;
    if constexpr (std::is_same_v<Plain, std::int32_t>) return g_hash_int_equal;
    return g_hash_direct_equal;
  }

  Owner<GHash, g_hash_free> hash_;
};

/** A ring buffer for one producer and one consumer; it does not own its elements. */
template <typename T>
class Fifo {
 public:
  /** Makes one; null when memory is exhausted. @param capacity at least 1. */
  explicit Fifo(int capacity) : fifo_(g_fifo_new(capacity)) {}

  /** @return whether there is one. */
  explicit operator bool() const { return fifo_ != nullptr; }
  /** @return the handle, still owned here. */
  GFifo *get() const { return fifo_.get(); }
  /** Appends. @param element not null. @return false when the ring is full. */
  bool put(T *element) { return g_fifo_put(get(), detail::untyped(element)) == 0; }
  /** Takes the oldest. @return it; null when there is none. */
  T *take() { return static_cast<T *>(g_fifo_get(get())); }
  /** @return the number of elements held. */
  int size() const { return g_fifo_count(get()); }
  /** @return whether nothing is held. */
  bool empty() const { return g_fifo_empty(get()) != 0; }
  /** @return whether no slot is free. */
  bool full() const { return g_fifo_full(get()) != 0; }

 private:
  Owner<GFifo, g_fifo_free> fifo_;
};

/** Functions that are called one after the other with one argument. */
template <typename Argument>
class Callbacks {
 public:
  /** Makes an empty list; null when memory is exhausted. */
  Callbacks() : callbacks_(g_callback_new()) {}

  /** @return whether there is one. */
  explicit operator bool() const { return callbacks_ != nullptr; }
  /** @return the handle, still owned here. */
  GCallback *get() const { return callbacks_.get(); }
  /** Adds a function, which is not copied: it must live as long as it is here.
   *  @param function takes an `Argument &`; returns nothing, or true to go on. Must not throw.
   *  @param priority smaller runs earlier. @return whether it was added. */
  template <typename Function>
  bool add(Function &function, int priority = 0) {
    return g_callback_add(get(), call<Function>, detail::untyped(&function), priority) == 0;
  }
  /** Removes a function. @param function as added. */
  template <typename Function>
  void remove(Function &function) {
    g_callback_remove(get(), call<Function>, detail::untyped(&function));
  }
  /** Calls the functions in order. @param argument passed to each.
   *  @return whether all ran. */
  bool execute(Argument &argument) {
    return g_callback_execute(get(), detail::untyped(&argument)) == 0;
  }

 private:
  template <typename Function>
  static int call(void *argument, void *function) {
    return detail::stops(*static_cast<Function *>(function), *static_cast<Argument *>(argument));
  }

  Owner<GCallback, g_callback_free> callbacks_;
};

}  // namespace gw

#endif
