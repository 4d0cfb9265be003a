// Change publication: a node tells its watchers which element of which collection changed.
//
// Invariants
//  1. When a publication returns, every watcher of the field that was there at its start, and has
//     not been taken away meanwhile, has run exactly once, in the order of subscription.
//  2. A watcher may publish again (the inner publication is told whole before the outer one goes
//     on), subscribe (the new watcher hears of later publications only), and
//     unsubscribe, itself included.
//  3. The publisher may be destroyed by a watcher: the publication under way still ends in order.
//
// A publisher costs two pointers until it is watched. A watcher must not throw: that ends the
// process. Threading: one thread, that of the node's owner.

#pragma once

#include <functional>
#include <memory>

#include "platform/vell/Types.h"

namespace Vell {

/// One change, as a watcher sees it. All pointers are good during the call only.
struct Change {
  using KeyIsEq = bool (*)(void const*, void const*);

  U32 fieldId;           ///< the collection, or the attribute
  void const* key;       ///< the element's key; null for an attribute that is no collection
  void const* previous;  ///< the former value, or null; its type is told by the field's owner
  KeyIsEq keyIsEq;       ///< compares two keys of the collection

  template <class Key>
  Key const& keyAs() const {
    return *static_cast<Key const*>(key);
  }
  template <class Value>
  Value const* previousAs() const {
    return static_cast<Value const*>(previous);
  }
};

/// A watcher's claim on a publisher; the watching ends with it.
class Subscription {
 public:
  Subscription() = default;
  Subscription(Subscription&&) noexcept = default;
  Subscription& operator=(Subscription&& other) noexcept;
  ~Subscription() { end(); }

  /// Ends the watching now. The watcher does not run again, not even in a publication under way.
  void end();

 private:
  friend class Publisher;
  struct Watcher;
  explicit Subscription(std::weak_ptr<Watcher> watcher) : watcher_(std::move(watcher)) {}

  std::weak_ptr<Watcher> watcher_;
};

class Publisher {
 public:
  using Callback = std::function<void(Change const&)>;
  static constexpr U32 everyField = 0xFFFFFFFF;

  Publisher() = default;
  Publisher(Publisher const&) = delete;
  Publisher& operator=(Publisher const&) = delete;

  [[nodiscard]] Subscription watch(U32 fieldId, Callback callback);
  bool hasWatchers() const { return board_ != nullptr && boardHasWatchers(); }

  /// Tells the watchers of `fieldId` that the element at `key` changed; `previous` is the former
  /// value or null. All of them have run when it returns.
  void publishChangeRecursive(U32 fieldId, void const* key, void const* previous,
                              Change::KeyIsEq keyIsEq) {
    if (board_) [[unlikely]]
      tell({fieldId, key, previous, keyIsEq});
  }
  /// The same without a value.
  void publishChange(U32 fieldId, void const* key = nullptr, Change::KeyIsEq keyIsEq = nullptr) {
    publishChangeRecursive(fieldId, key, nullptr, keyIsEq);
  }

 private:
  friend class Subscription;
  struct Board;

  bool boardHasWatchers() const;
  void tell(Change const& change) noexcept;

  std::shared_ptr<Board> board_;
};

}  // namespace Vell
