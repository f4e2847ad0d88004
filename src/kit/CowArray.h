// CowArray<T>: an array with value semantics whose copies cost O(1) (copy-on-write), like the
// platform's own arrays. Copies share storage; appending at the end of the shared storage
// extends it in place, so a writer that hands out a copy after each append does linear work
// in all. Any other change, or an append to a copy that has fallen behind, first copies the
// elements into storage of its own.
//
// Thread safety: one CowArray object is not safe for concurrent use (like std::vector), but
// distinct objects that share storage may be used from different threads at once, as long as
// each was handed over with a happens-before edge (a queue hop or an AtomicShared).
// T must be default-constructible and copyable.
#pragma once

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <initializer_list>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "kit/Fatal.h"

namespace kit {

template <class T>
class CowArray {
  static constexpr std::size_t kChunk = 256;
  using Chunk = std::vector<T>;
  using Directory = std::vector<std::shared_ptr<Chunk>>;
  // Slots claimed in the shared storage; a slot is written once, by the one who claimed it,
  // before any array that counts it is handed to another thread.
  struct Storage {
    std::atomic<std::size_t> length{0};
  };

 public:
  class const_iterator {
   public:
    using iterator_category = std::random_access_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = const T*;
    using reference = const T&;
    const_iterator() = default;
    const_iterator(const CowArray* a, std::size_t i) : a_(a), i_(i) {}
    reference operator*() const { return (*a_)[i_]; }
    pointer operator->() const { return &(*a_)[i_]; }
    const_iterator& operator++() { ++i_; return *this; }
    const_iterator operator++(int) { auto t = *this; ++i_; return t; }
    const_iterator& operator--() { --i_; return *this; }
    const_iterator& operator+=(difference_type n) { i_ += n; return *this; }
    const_iterator operator+(difference_type n) const { return {a_, i_ + n}; }
    difference_type operator-(const const_iterator& o) const {
      return static_cast<difference_type>(i_) - static_cast<difference_type>(o.i_);
    }
    bool operator==(const const_iterator& o) const { return i_ == o.i_; }
    bool operator!=(const const_iterator& o) const { return i_ != o.i_; }

   private:
    const CowArray* a_ = nullptr;
    std::size_t i_ = 0;
  };

  CowArray() = default;
  CowArray(std::initializer_list<T> items) {
    for (const T& item : items) append(item);
  }
  explicit CowArray(const std::vector<T>& items) {
    for (const T& item : items) append(item);
  }

  std::size_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  // The element at `i`; out of range is a fatal error.
  const T& operator[](std::size_t i) const {
    if (i >= count_) fatal("index " + std::to_string(i) + " out of range of " + std::to_string(count_));
    return (*(*dir_)[i / kChunk])[i % kChunk];
  }
  const T& front() const { return (*this)[0]; }
  const T& back() const { return (*this)[count_ - 1]; }
  const_iterator begin() const { return {this, 0}; }
  const_iterator end() const { return {this, count_}; }

  // True when some element equals `value` (for pointers: the same object).
  bool contains(const T& value) const { return std::find(begin(), end(), value) != end(); }
  std::vector<T> toVector() const { return std::vector<T>(begin(), end()); }

  void append(T value) {
    if (!storage_ || !claimNextSlot()) {
      detach();
      storage_->length.store(count_ + 1);
    }
    std::size_t chunk = count_ / kChunk, offset = count_ % kChunk;
    if (chunk == dir_->size()) {
      auto grown = std::make_shared<Directory>(*dir_);
      grown->push_back(std::make_shared<Chunk>(kChunk));
      dir_ = std::move(grown);
    }
    (*(*dir_)[chunk])[offset] = std::move(value);
    ++count_;
  }

  // Changes other than appending work on a private copy.
  void removeAt(std::size_t i) {
    std::vector<T> items = toVector();
    if (i >= items.size()) fatal("index " + std::to_string(i) + " out of range of " + std::to_string(items.size()));
    items.erase(items.begin() + static_cast<std::ptrdiff_t>(i));
    *this = CowArray(items);
  }
  void set(std::size_t i, T value) {
    std::vector<T> items = toVector();
    if (i >= items.size()) fatal("index " + std::to_string(i) + " out of range of " + std::to_string(items.size()));
    items[i] = std::move(value);
    *this = CowArray(items);
  }
  template <class Pred>
  void removeIf(Pred pred) {
    std::vector<T> items = toVector();
    std::erase_if(items, pred);
    *this = CowArray(items);
  }
  void removeAll() { *this = CowArray(); }

  // True when the first `n` elements of this array and of `other` are known to be the same
  // slots of one shared storage (so equal without looking at them): both hold at least `n`
  // elements and neither has been changed apart from the other but by appending.
  bool sharesPrefixWith(const CowArray& other, std::size_t n) const {
    return storage_ && storage_ == other.storage_ && n <= count_ && n <= other.count_;
  }

  bool operator==(const CowArray& other) const {
    return count_ == other.count_ && std::equal(begin(), end(), other.begin());
  }

 private:
  // Claims slot count_ of the shared storage when this array is at its end.
  bool claimNextSlot() {
    std::size_t expected = count_;
    return storage_->length.compare_exchange_strong(expected, count_ + 1);
  }
  // Gives this array storage of its own holding its elements.
  void detach() {
    auto storage = std::make_shared<Storage>();
    auto dir = std::make_shared<Directory>();
    for (std::size_t i = 0; i < count_; i += kChunk) {
      auto chunk = std::make_shared<Chunk>(kChunk);
      std::size_t n = std::min(kChunk, count_ - i);
      std::copy_n((*(*dir_)[i / kChunk]).begin(), n, chunk->begin());
      dir->push_back(std::move(chunk));
    }
    storage->length.store(count_);
    storage_ = std::move(storage);
    dir_ = std::move(dir);
  }

  std::shared_ptr<Storage> storage_;
  std::shared_ptr<const Directory> dir_ = std::make_shared<const Directory>();
  std::size_t count_ = 0;
};

}  // namespace kit
