// Growing arrays. When memory is exhausted, only the element being added is lost.
//
// SPDX-License-Identifier: MIT
#ifndef GROUNDWORK_CORE_BYTE_ARRAY_H
#define GROUNDWORK_CORE_BYTE_ARRAY_H

#include <cstddef>
#include <cstdlib>
#include <new>
#include <string_view>
#include <type_traits>
#include <utility>

namespace groundwork {

// An array of bytes, and the base of typed arrays.
class ByteArray {
 public:
  ByteArray() = default;
  ~ByteArray() { std::free(bytes_); }
  ByteArray(const ByteArray&) = delete;
  ByteArray& operator=(const ByteArray&) = delete;

  // Makes room for `more` bytes; false when memory is exhausted.
  bool reserve(size_t more);

  // Makes the array longer, by at least one byte. Returns where the new bytes go; null when
  // memory is exhausted.
  char* extend(size_t more) {
    if (more > capacity_ - size_ && !reserve(more)) return nullptr;
    char* const end = bytes_ + size_;
    size_ += more;
    return end;
  }

  // False when memory is exhausted.
  bool add(std::string_view text);

  void cut(size_t size) { size_ = size; }

  // Hands over ownership of the block; null if there is none. The array is then empty.
  char* release() {
    size_ = 0;
    capacity_ = 0;
    return std::exchange(bytes_, nullptr);
  }

  size_t size() const { return size_; }
  char* data() const { return bytes_; }
  std::string_view view() const { return {bytes_, size_}; }

 private:
  char* bytes_ = nullptr;
  size_t size_ = 0;
  size_t capacity_ = 0;
};

// An array of trivially copyable elements.
template <typename T>
class Array : private ByteArray {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  // False when memory is exhausted.
  bool add(const T& item) {
    char* const end = extend(sizeof(T));
    if (end == nullptr) return false;
    new (end) T(item);
    return true;
  }

  // Makes room for one more; false when memory is exhausted.
  bool reserve() { return ByteArray::reserve(sizeof(T)); }

  void cut(size_t size) { ByteArray::cut(size * sizeof(T)); }

  size_t size() const { return ByteArray::size() / sizeof(T); }
  T* begin() const { return reinterpret_cast<T*>(data()); }
  T* end() const { return reinterpret_cast<T*>(data() + ByteArray::size()); }
  T& operator[](size_t at) const { return begin()[at]; }
  T& back() const { return end()[-1]; }
};

}  // namespace groundwork

#endif
