#include "platform/vell/Publisher.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace Vell {

struct Subscription::Watcher {
  std::weak_ptr<Publisher::Board> board;
  U32 fieldId;
  Publisher::Callback callback;
  bool ended = false;
};

// The watchers of one publisher in the order of subscription. It outlives the publisher while a
// publication is under way.
struct Publisher::Board {
  std::vector<std::shared_ptr<Subscription::Watcher>> watchers;
  U32 live = 0;
  U32 depth = 0;

  void tell(Change const& change) {
    ++depth;
    // By index up to the count at the start: the vector may grow underneath, and later watchers
    // hear of later publications only. Ended watchers keep their place until no publication is
    // under way. NOLINTNEXTLINE(modernize-loop-convert)
    for (std::size_t i = 0, n = watchers.size(); i < n; ++i) {
      auto const watcher = watchers[i];
      if (watcher->ended) continue;
      if (watcher->fieldId == change.fieldId || watcher->fieldId == everyField)
        watcher->callback(change);
    }
    if (--depth == 0) sweep();
  }
  void sweep() {
    if (live == watchers.size()) return;
    auto const firstEnded = std::stable_partition(
        watchers.begin(), watchers.end(), [](auto const& watcher) { return !watcher->ended; });
    // Out of the list first: what an ended watcher had captured may end others as it goes.
    std::vector const ended(std::make_move_iterator(firstEnded),
                            std::make_move_iterator(watchers.end()));
    watchers.erase(firstEnded, watchers.end());
  }
};

Subscription& Subscription::operator=(Subscription&& other) noexcept {
  if (this != &other) {
    end();
    watcher_ = std::move(other.watcher_);
  }
  return *this;
}

void Subscription::end() {
  auto const watcher = std::exchange(watcher_, {}).lock();
  if (!watcher || watcher->ended) return;
  watcher->ended = true;
  auto const board = watcher->board.lock();
  if (!board) return;
  --board->live;
  if (board->depth != 0) return;  // it may be running
  // What it had captured ends now; its place goes when most places are empty, so that ending many
  // watchers one by one costs each of them little.
  auto const callback = std::exchange(watcher->callback, {});
  if (2 * board->live <= board->watchers.size()) board->sweep();
}

Subscription Publisher::watch(U32 fieldId, Callback callback) {
  if (!board_) board_ = std::make_shared<Board>();
  auto watcher = std::make_shared<Subscription::Watcher>(
      Subscription::Watcher{board_, fieldId, std::move(callback)});
  board_->watchers.push_back(watcher);
  ++board_->live;
  return Subscription(watcher);
}

bool Publisher::boardHasWatchers() const { return board_->live != 0; }

void Publisher::tell(Change const& change) noexcept {
  auto const board = board_;  // held: a watcher may destroy this publisher
  board->tell(change);
}

}  // namespace Vell
