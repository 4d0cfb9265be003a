// A counted reference to a node.

#pragma once

#include <concepts>
#include <cstddef>
#include <utility>

namespace Vell {

template <class T>
class Ptr {
 public:
  Ptr() = default;
  Ptr(std::nullptr_t) {}
  /// Takes a use of `node`, which may be null.
  explicit(false) Ptr(T* node) : node_(node) { take(); }
  Ptr(Ptr const& other) : node_(other.node_) { take(); }
  Ptr(Ptr&& other) noexcept : node_(std::exchange(other.node_, nullptr)) {}
  template <class U>
  requires std::convertible_to<U*, T*>
  explicit(false) Ptr(Ptr<U> other) : node_(other.detach()) {}
  /// The old node is let go last, when this pointer already holds the new one: its
  /// end may look here.
  Ptr& operator=(Ptr other) noexcept {
    std::swap(node_, other.node_);
    return *this;
  }
  ~Ptr() {
    if (node_) node_->useDrop();
  }

  T* get() const { return node_; }
  T* operator->() const { return node_; }
  T& operator*() const { return *node_; }
  explicit operator bool() const { return node_ != nullptr; }

  /// Gives the node back without dropping the use, which is the caller's from here on.
  T* detach() { return std::exchange(node_, nullptr); }

  friend bool operator==(Ptr const& a, Ptr const& b) { return a.node_ == b.node_; }
  friend bool operator==(Ptr const& a, std::nullptr_t) { return a.node_ == nullptr; }

 private:
  void take() {
    if (node_) node_->useTake();
  }

  T* node_ = nullptr;
};

}  // namespace Vell
