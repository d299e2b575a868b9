/* SPDX-License-Identifier: MIT */
#ifndef GROUNDWORK_CPP_CONTAINERS_HPP
#define GROUNDWORK_CPP_CONTAINERS_HPP

#include <groundwork/callback.h>
#include <groundwork/fifo.h>
#include <groundwork/hash.h>
#include <groundwork/list.h>
#include <groundwork/queue.h>
#include <groundwork/safe.h>
#include <groundwork/cpp/mutex.hpp>
#include <groundwork/cpp/owner.hpp>

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <optional>

namespace gw {

/**
 * The elements of a list that is owned elsewhere.
 *
 * @code{.cpp}
 * int numbers[] = {1, 2};
 * GList* list = g_list_append(nullptr, &numbers[0]);
 * list = g_list_append(list, &numbers[1]);
 * for (const int* number : gw::ListView<int>(list)) printf("%d\n", *number);
 * // prints: 1
 * // prints: 2
 * g_list_free(list);
 * @endcode
 */
template <typename T>
class ListView {
 public:
  /** Goes from node to node. */
  class iterator {
   public:
    /** Kind of iterator. */
    using iterator_category = std::forward_iterator_tag;
    /** What it yields. */
    using value_type = T*;
    /** Distance between two. */
    using difference_type = ptrdiff_t;
    /** Not used. */
    using pointer = T* const*;
    /** What it yields. */
    using reference = T*;

    iterator() = default;
    /** @param node the current node; null at the end. */
    explicit iterator(GList* node) : node_(node) {}
    /** @return the element. */
    T* operator*() const { return static_cast<T*>(node_->data); }
    /** @return this, advanced by one. */
    iterator& operator++() {
      node_ = node_->next;
      return *this;
    }
    /** @return a copy from before the advance. */
    iterator operator++(int) {
      iterator before = *this;
      ++*this;
      return before;
    }
    /** @param other of the same list. @return whether both are at the same node. */
    bool operator==(const iterator& other) const { return node_ == other.node_; }
    /** @param other of the same list. @return whether they are at different nodes. */
    bool operator!=(const iterator& other) const { return node_ != other.node_; }

   private:
    GList* node_ = nullptr;
  };

  /** @param list its first node, or null. */
  explicit ListView(GList* list) : list_(list) {}
  /** @return the first element. */
  [[nodiscard]] iterator begin() const { return iterator(list_); }
  /** @return past the last. */
  [[nodiscard]] iterator end() const { return iterator(); }

 private:
  GList* list_;
};

/**
 * A list that owns its nodes, but not its elements.
 *
 * @code{.cpp}
 * const char* const names[] = {"Ada", "Grace"};
 * gw::List<const char> list;
 * for (const char* name : names) list.prepend(name);
 * for (const char* name : list) puts(name);
 * // prints: Grace
 * // prints: Ada
 * @endcode
 */
template <typename T>
class List {
 public:
  List() = default;
  /** Takes ownership of a list. @param list its first node, or null. */
  explicit List(GList* list) : list_(list) {}
  /** Moves the list. @param other empty afterwards. */
  List(List&& other) noexcept : list_(other.release()) {}
  /** @param other empty afterwards. @return this. */
  List& operator=(List&& other) noexcept {
    if (this != &other) {
      g_list_free(list_);
      list_ = other.release();
    }
    return *this;
  }
  ~List() { g_list_free(list_); }

  /** @return the first node, still owned here. */
  [[nodiscard]] GList* get() const { return list_; }
  /** Releases ownership. @return the first node. */
  GList* release() { return std::exchange(list_, nullptr); }
  /** @return whether the list is empty. */
  [[nodiscard]] bool empty() const { return list_ == nullptr; }
  /** @return the number of elements, found by walking the list. */
  [[nodiscard]] unsigned size() const { return g_list_length(list_); }
  /** Adds at the end, which takes a walk. @param element not owned. */
  void append(T* element) { list_ = g_list_append(list_, detail::untyped(element)); }
  /** Adds at the start. @param element not owned. */
  void prepend(T* element) { list_ = g_list_prepend(list_, detail::untyped(element)); }
  /** Removes the first occurrence. @param element the element to remove. */
  void remove(const T* element) { list_ = g_list_remove(list_, element); }
  /** @param element the element to find. @return whether it is in the list. */
  [[nodiscard]] bool contains(const T* element) const {
    return g_list_find(list_, element) != nullptr;
  }
  /** Reverses the order. */
  void reverse() { list_ = g_list_reverse(list_); }
  /** @return the first element. */
  [[nodiscard]] typename ListView<T>::iterator begin() const {
    return ListView<T>(list_).begin();
  }
  /** @return past the last. */
  [[nodiscard]] typename ListView<T>::iterator end() const {
    return ListView<T>(list_).end();
  }

 private:
  GList* list_ = nullptr;
};

/**
 * A thread-safe queue of pointers that does not own its elements; Queue does.
 *
 * @code{.cpp}
 * int numbers[] = {1, 2, 3};
 * gw::PointerQueue<int> queue;
 * for (int& number : numbers) queue.enqueue(&number);
 * int sum = 0;
 * queue.for_each([&sum](const int* number) noexcept { sum += *number; });
 * printf("%d, %d first\n", sum, *queue.dequeue());  // prints: 6, 1 first
 * @endcode
 */
template <typename T>
class PointerQueue {
 public:
  /** Creates a queue; null when memory is exhausted.
   *  @param add as for g_queue_new(). @param release as for g_queue_new(). */
  explicit PointerQueue(GQueueHoldFunc add = nullptr, GQueueHoldFunc release = nullptr)
      : queue_(g_queue_new(add, release)) {}

  /** @return whether there is one. */
  explicit operator bool() const { return queue_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GQueue* get() const { return queue_.get(); }
  /** Adds at the tail. @param element not owned. */
  void enqueue(T* element) { g_queue_enqueue(get(), detail::untyped(element)); }
  /** Removes the head, as g_queue_dequeue(). @param expected null for any element.
   *  @return the element, or null. */
  T* dequeue(const T* expected = nullptr) {
    return static_cast<T*>(g_queue_dequeue(get(), expected));
  }
  /** @return the head, which stays; or null. */
  [[nodiscard]] T* first() const { return static_cast<T*>(g_queue_first(get())); }
  /** @return the tail, which stays; or null. */
  [[nodiscard]] T* last() const { return static_cast<T*>(g_queue_last(get())); }
  /** Adds after an element, as g_queue_insert(). @param sibling the element before; if it is
   *  missing, the new one goes to the tail. @param element not owned. */
  void insert_after(const T* sibling, T* element) {
    g_queue_insert(get(), sibling, detail::untyped(element));
  }
  /** Removes the first occurrence. @param element the element to remove. */
  void remove(const T* element) { g_queue_remove(get(), element); }
  /** Removes all. */
  void clear() { g_queue_clear(get()); }
  /** @return the number of elements, perhaps out of date. */
  [[nodiscard]] uint32_t size() const { return g_queue_count(get()); }
  /** @return whether the queue is empty. */
  [[nodiscard]] bool empty() const { return g_queue_empty(get()) != 0; }
  /** Calls a function from head to tail with the queue locked.
   *  @param function takes a `T *`, and is noexcept; returns nothing, or true to go on. It must
   *                  not use this queue. */
  template <typename Function>
  void for_each(Function&& function) const {
    detail::require_noexcept<std::remove_reference_t<Function>, T*>();
    g_queue_foreach(get(), visit<std::remove_reference_t<Function>>,
                    detail::untyped(std::addressof(function)));
  }
  /** Calls a function from tail to head with the queue locked. @param function takes a `T *`,
   *  and is noexcept; returns nothing, or true to go on. It must not use this queue. */
  template <typename Function>
  void for_each_reverse(Function&& function) const {
    detail::require_noexcept<std::remove_reference_t<Function>, T*>();
    g_queue_foreach_reverse(get(), visit<std::remove_reference_t<Function>>,
                            detail::untyped(std::addressof(function)));
  }

 private:
  template <typename Function>
  static int visit(void* element, void* function) {
    return detail::stops(*static_cast<Function*>(function), static_cast<T*>(element));
  }

  Owner<GQueue, g_queue_free> queue_;
};

/**
 * A thread-safe queue that owns its elements: objects are moved in and out, and those that are
 * left are destroyed with it. It suits move-only types.
 *
 * @code{.cpp}
 * gw::Queue<std::unique_ptr<int>> queue;
 * queue.push(std::make_unique<int>(7));
 * if (const auto number = queue.pop()) printf("%d\n", **number);  // prints: 7
 * puts(queue.pop() ? "more" : "empty");                             // prints: empty
 * @endcode
 */
template <typename T>
class Queue {
 public:
  /** Creates a queue; null when memory is exhausted. */
  Queue() = default;
  /** Moves the queue. @param other empty afterwards. */
  Queue(Queue&& other) noexcept
      : mutex_(std::move(other.mutex_)),
        head_(std::exchange(other.head_, nullptr)),
        tail_(std::exchange(other.tail_, nullptr)),
        size_(std::exchange(other.size_, 0)) {}
  /** Destroys its own objects first. @param other empty afterwards. @return this. */
  Queue& operator=(Queue&& other) noexcept {
    if (this != &other) {
      destroy(std::exchange(head_, std::exchange(other.head_, nullptr)));
      mutex_ = std::move(other.mutex_);
      tail_ = std::exchange(other.tail_, nullptr);
      size_ = std::exchange(other.size_, 0);
    }
    return *this;
  }
  ~Queue() { destroy(head_); }

  /** @return whether there is one. */
  explicit operator bool() const { return static_cast<bool>(mutex_); }
  /** Adds an object at the tail. @param object moved or copied in.
   *  @return true on success; false when memory is exhausted: `object` is then unchanged. */
  template <typename Given>
  bool push(Given&& object) {
    if (!mutex_) return false;
    auto* const node = static_cast<Node*>(::operator new(sizeof(Node), std::nothrow));
    if (node == nullptr) return false;
    new (node) Node{std::forward<Given>(object), nullptr};
    const Lock lock(mutex_);
    (head_ == nullptr ? head_ : tail_->next) = node;
    tail_ = node;
    ++size_;
    return true;
  }
  /** Removes the object at the head. @return the object; none when the queue is empty. */
  [[nodiscard]] std::optional<T> pop() {
    const std::unique_ptr<Node> node(take());
    if (node == nullptr) return std::nullopt;
    return std::optional<T>(std::move(node->object));
  }
  /** Destroys all objects. */
  void clear() {
    while (Node* const node = take()) delete node;
  }
  /** @return the number of objects, perhaps out of date. */
  [[nodiscard]] size_t size() const {
    if (!mutex_) return 0;
    const Lock lock(mutex_);
    return size_;
  }
  /** @return whether the queue is empty, perhaps out of date. */
  [[nodiscard]] bool empty() const { return size() == 0; }

 private:
  struct Node {
    T object;
    Node* next;
  };

  // Removes the head's node, which the caller then owns; null when the queue is empty.
  Node* take() {
    if (!mutex_) return nullptr;
    const Lock lock(mutex_);
    Node* const node = head_;
    if (node == nullptr) return nullptr;
    head_ = node->next;
    --size_;
    return node;
  }
  static void destroy(Node* node) {
    while (node != nullptr) delete std::exchange(node, node->next);
  }

  mutable Mutex mutex_;
  Node* head_ = nullptr;
  Node* tail_ = nullptr;  // valid while there is a head
  size_t size_ = 0;
};

/**
 * A hash table of pointers that owns neither keys nor values.
 *
 * Keys that point to text (`const char`) or numbers (`const int32_t`) are compared by value,
 * others as pointers.
 *
 * @code{.cpp}
 * int ports[] = {80, 22};
 * gw::Hash<const char, int> services;
 * services.insert("http", &ports[0]);
 * services.insert("ssh", &ports[1]);
 * if (const int* port = services.find("ssh")) printf("%d\n", *port);  // prints: 22
 * int sum = 0;
 * for (const auto [name, port] : services) sum += *port;
 * printf("%d\n", sum);  // prints: 102
 * @endcode
 */
template <typename Key, typename Value>
class Hash {
 public:
  /** Creates a table; null when memory is exhausted.
   *  @param slots as for g_hash_new(). @param destroy as for g_hash_new(). */
  explicit Hash(unsigned slots = 16, GHashDestroyFunc destroy = nullptr)
      : hash_(g_hash_new(slots, hash_func(), equal_func(), destroy)) {}

  /** @return whether there is one. */
  explicit operator bool() const { return hash_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GHash* get() const { return hash_.get(); }
  /** Stores a pair, as g_hash_insert(). @param key must be valid as long as it is stored.
   *  @param value not owned. @return true on success. */
  bool insert(Key* key, Value* value) {
    return g_hash_insert(get(), detail::untyped(key), detail::untyped(value)) == 0;
  }
  /** @param key the key to find. @return its value, or null. */
  [[nodiscard]] Value* find(const Key* key) const {
    return static_cast<Value*>(g_hash_find(get(), key));
  }
  /** Removes the entry that find() would find. @param key the key to remove.
   *  @return whether there was one. */
  bool remove(const Key* key) { return g_hash_remove(get(), key) == 0; }
  /** @return the number of entries. */
  [[nodiscard]] unsigned size() const { return g_hash_count(get()); }
  /** Calls a function for each entry, as g_hash_foreach().
   *  @param function takes a `Key *` and a `Value *`, and is noexcept; returns nothing, or true
   *                  to go on. It may remove any entry, and must not insert. */
  template <typename Function>
  void for_each(Function&& function) const {
    detail::require_noexcept<std::remove_reference_t<Function>, Key*, Value*>();
    g_hash_foreach(get(), visit<std::remove_reference_t<Function>>,
                   detail::untyped(std::addressof(function)));
  }

  /** An entry. */
  struct Entry {
    Key* key;     /**< as inserted */
    Value* value; /**< as inserted */
  };
  /** The entries at the time it was created: the table may change afterwards. */
  class Entries {
   public:
    /** @param hash a table; null for none. */
    explicit Entries(GHash* hash) {
      if (hash == nullptr) return;
      const unsigned count = g_hash_count(hash);
      entries_.reset(static_cast<Entry*>(std::malloc((count + 1) * sizeof(Entry))));
      if (entries_ != nullptr) g_hash_foreach(hash, collect, this);
    }
    /** @return the entry. */
    const Entry& operator*() const { return entries_.get()[index_]; }
    /** @return this, advanced by one. */
    Entries& operator++() {
      ++index_;
      return *this;
    }
    /** @return whether this is not past the last entry. */
    bool operator!=(std::nullptr_t) const { return index_ < count_; }

   private:
    static int collect(void* key, void* value, void* data) {
      auto& all = *static_cast<Entries*>(data);
      all.entries_.get()[all.count_++] = {static_cast<Key*>(key),
                                          static_cast<Value*>(value)};
      return 0;
    }

    Owner<Entry, std::free> entries_;
    size_t count_ = 0;
    size_t index_ = 0;
  };
  /** For range-based `for`: the entries in the order of their slots, each a `key` and a `value`.
   *  They are collected first, so the loop may change the table. There are none when memory is
   *  exhausted; for_each() needs no memory. @return the first. */
  [[nodiscard]] Entries begin() const { return Entries(get()); }
  /** @return past the last. */
  [[nodiscard]] std::nullptr_t end() const { return nullptr; }

 private:
  template <typename Function>
  static int visit(void* key, void* value, void* function) {
    return detail::stops(*static_cast<Function*>(function), static_cast<Key*>(key),
                         static_cast<Value*>(value));
  }
  using Plain = std::remove_const_t<Key>;
  static GHashFunc hash_func() {
    if constexpr (std::is_same_v<Plain, char>) return g_hash_str;
    if constexpr (std::is_same_v<Plain, int32_t>) return g_hash_int;
    return g_hash_direct;
  }
  static GEqualFunc equal_func() {
    if constexpr (std::is_same_v<Plain, char>) return g_hash_str_equal;
    if constexpr (std::is_same_v<Plain, int32_t>) return g_hash_int_equal;
    return g_hash_direct_equal;
  }

  Owner<GHash, g_hash_free> hash_;
};

/**
 * A ring buffer for one producer and one consumer that does not own its elements.
 *
 * @code{.cpp}
 * int sample = 21;
 * gw::Fifo<int> samples(64);
 * if (!samples.put(&sample)) puts("full");
 * if (const int* oldest = samples.take()) printf("%d\n", *oldest);  // prints: 21
 * @endcode
 */
template <typename T>
class Fifo {
 public:
  /** Creates a ring buffer; null when memory is exhausted. @param capacity at least 1. */
  explicit Fifo(int capacity) : fifo_(g_fifo_new(capacity)) {}

  /** @return whether there is one. */
  explicit operator bool() const { return fifo_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GFifo* get() const { return fifo_.get(); }
  /** Appends. @param element not null. @return false when the ring is full. */
  [[nodiscard]] bool put(T* element) {
    return g_fifo_put(get(), detail::untyped(element)) == 0;
  }
  /** Removes the oldest element. @return the element; null when the ring is empty. */
  T* take() { return static_cast<T*>(g_fifo_get(get())); }
  /** @return the number of elements. */
  [[nodiscard]] int size() const { return g_fifo_count(get()); }
  /** @return whether the ring is empty. */
  [[nodiscard]] bool empty() const { return g_fifo_empty(get()) != 0; }
  /** @return whether the ring is full. */
  [[nodiscard]] bool full() const { return g_fifo_full(get()) != 0; }

 private:
  Owner<GFifo, g_fifo_free> fifo_;
};

/**
 * Functions that are called one after another with the same argument.
 *
 * @code{.cpp}
 * gw::Callbacks<int> callbacks;
 * auto twice = [](int& number) noexcept { number *= 2; };
 * auto more = [](int& number) noexcept { number += 1; };
 * callbacks.add(more, 2);
 * callbacks.add(twice, 1);
 * int number = 5;
 * callbacks.execute(number);
 * printf("%d\n", number);  // prints: 11
 * @endcode
 */
template <typename Argument>
class Callbacks {
 public:
  /** Creates an empty list; null when memory is exhausted. */
  Callbacks() : callbacks_(g_callback_new()) {}

  /** @return whether there is one. */
  explicit operator bool() const { return callbacks_ != nullptr; }
  /** @return the handle, still owned here. */
  [[nodiscard]] GCallback* get() const { return callbacks_.get(); }
  /** Adds a function, which is not copied and must live as long as it is in the list.
   *  @param function takes an `Argument &`, and is noexcept; returns nothing, or true to go on.
   *  @param priority lower runs earlier. @return true on success. */
  template <typename Function>
  bool add(Function& function, int priority = 0) {
    detail::require_noexcept<Function, Argument&>();
    return g_callback_add(get(), call<Function>, detail::untyped(&function), priority) == 0;
  }
  /** Removes a function. @param function as added. */
  template <typename Function>
  void remove(Function& function) {
    g_callback_remove(get(), call<Function>, detail::untyped(&function));
  }
  /** Calls the functions in order. @param argument passed to each.
   *  @return whether all ran. */
  bool execute(Argument& argument) {
    return g_callback_execute(get(), detail::untyped(&argument)) == 0;
  }

 private:
  template <typename Function>
  static int call(void* argument, void* function) {
    return detail::stops(*static_cast<Function*>(function),
                         *static_cast<Argument*>(argument));
  }

  Owner<GCallback, g_callback_free> callbacks_;
};

}  // namespace gw

#endif
