// Random operations on three tables of groups that share one allocator, two of them with the same
// keys, and random acknowledgements, compared after each step with a reference that knows no table.
// Now and then the process ends and the next one finds the hardware as it was. The seed is printed;
// DLB_MODEL_SEED gives it back.

#include <algorithm>
#include <array>
#include <cstdlib>
#include <random>
#include <set>

#include "Groups.h"

namespace Group {
namespace {

/// Fewer indices than there are keys.
constexpr U32 room = 5;
constexpr U32 keys = 4;
#if defined(DLB_CHECK_INVARIANTS)
constexpr U32 steps = 30'000;
#else
constexpr U32 steps = 400'000;
#endif

/// What must be known of one key of one table.
struct Entry {
  std::optional<U32> mode;  ///< while the entry is there
  bool committed = false;
  std::vector<HandlePtr> held;
  State state = State::unresolved;
  bool isWritten = false;     ///< its row is in the hardware
  U64 unanswered = 0;         ///< its newest write, until that is acknowledged
  U32 handleIndex = noIndex;  ///< as the handle tells it
  bool known() const { return committed || !held.empty(); }
};

/// How often each thing was seen: a run that does not come to one proves nothing of it.
struct Seen {
  U64 success = 0, inProgress = 0, failed = 0, reconciled = 0, dropped = 0, shared = 0;
  U64 quietRestarts = 0, otherRestarts = 0;
};

/// One table beside its part of the reference.
class Side {
 public:
  virtual ~Side() = default;
  virtual HandlePtr write(U32 id, U32 mode, bool commits) = 0;
  virtual void remove(U32 id) = 0;
  virtual U64 acknowledge(U64 write, U32 index, State outcome) = 0;
  virtual U64 newestWrite(U32 index) = 0;
  virtual U32 indexOf(U32 id) = 0;
  virtual U32 usedIndices() = 0;
  virtual void check(std::array<U32, keys> const& indices) = 0;
  virtual void endWarm() = 0;
  virtual void beginAgain(std::map<U32, U32> const& suggestions, bool before) = 0;
  virtual void endReplay() = 0;
  virtual Events take() = 0;
  virtual U64 counted(Status status) = 0;

  std::array<Entry, keys> entries;
  std::vector<std::pair<U64, U32>> late;  ///< write and index of all that may still be answered
};

template <class T>
class SideOf final : public Side {
 public:
  SideOf() {
    start({});
    at_->replayed();
  }

  HandlePtr write(U32 id, U32 mode, bool commits) override {
    return commits ? at_->commit(id, mode) : at_->ref(id, mode);
  }
  void remove(U32 id) override { at_->remove(id); }
  U64 acknowledge(U64 write, U32 index, State outcome) override {
    return at_->acknowledge(write, index, outcome);
  }
  U64 newestWrite(U32 index) override { return at_->hw().newestWrite(index); }
  U32 indexOf(U32 id) override { return at_->indexOf(id); }
  U32 usedIndices() override { return at_->allocator()->totalUsedIndices(); }
  U64 counted(Status status) override { return at_->counted(status); }
  Events take() override { return at_->take(); }

  void check(std::array<U32, keys> const& indices) override {
    U32 known = 0, rows = 0, unanswered = 0;
    for (U32 id = 0; id < keys; ++id) {
      auto const& wanted = entries[id];
      auto const handle = at_->table->entryHandle(at_->key(id));
      ASSERT_EQ(static_cast<bool>(handle), wanted.known()) << id;
      ASSERT_EQ(at_->table->resolvedEntry(at_->key(id)).has_value(), wanted.known()) << id;
      if (!handle) continue;
      ++known;
      ASSERT_EQ(handle->useCount(), 1 + wanted.held.size() + wanted.committed);
      ASSERT_EQ(handle->entryType(), wanted.committed ? Type::committed : Type::referenceOnly);
      ASSERT_EQ(at_->table->entry(at_->key(id)).lbMode, wanted.mode);
      ASSERT_EQ(handle->entryState(), wanted.state) << id;
      ASSERT_EQ(handle->resolvedEntryState(), wanted.state) << id;
      ASSERT_EQ(handle->hwIndex().value(), wanted.handleIndex) << id;
      unanswered += wanted.unanswered != 0;
      if (!wanted.isWritten) continue;
      ++rows;
      ASSERT_EQ(at_->util->rows.at(indices[id]), at_->entry(*wanted.mode)) << id;
      ASSERT_EQ(at_->usesOf(indices[id]), 1u) << id;
      ASSERT_EQ(at_->hw().newestWrite(indices[id]), wanted.unanswered) << id;
    }
    ASSERT_EQ(at_->table->entrys(), known);
    ASSERT_EQ(at_->util->rows.size(), rows);
    ASSERT_EQ(at_->hw().unansweredWrites(), unanswered);
    ASSERT_EQ(at_->tracker().indices(), rows);
  }

  /// The process ends without a destructor: nothing reaches the hardware.
  void endWarm() override {
    rows_ = at_->util->rows;
    at_->table->utilIs(nullptr);
    for (auto& each : entries) each.held.clear();
    at_.reset();
    late.clear();
  }
  void beginAgain(std::map<U32, U32> const& suggestions, bool before) override {
    start(rows_);
    for (U32 id = 0; id < keys; ++id) {
      if (!entries[id].committed) continue;
      auto const found = suggestions.find(id);
      auto const tell = [&](HandlePtr const& handle) {
        if (found != suggestions.end() && handle->entryState() == State::unresolved)
          suggest(handle, {found->second});
      };
      if (before) tell(at_->table->entryHandleIs(at_->key(id), at_->table.get()));
      auto const handle = at_->commit(id, *entries[id].mode);
      if (!before) tell(handle);
    }
  }
  void endReplay() override {
    at_->table->doInitComplete();
    at_->table->purgeStaleEntries();
    // What became of each entry is not predicted here; that it is sound is checked after.
    for (U32 id = 0; id < keys; ++id) {
      auto& each = entries[id];
      if (!each.committed) continue;
      auto const handle = at_->table->entryHandle(at_->key(id));
      auto const index = at_->indexOf(id);
      each.state = handle->entryState();
      each.isWritten = each.state != State::failedNoIndex;
      each.unanswered = each.isWritten ? at_->hw().newestWrite(index) : 0;
      each.handleIndex = handle->hwIndex().value();
      if (each.unanswered) late.emplace_back(each.unanswered, index);
      EXPECT_NE(each.state, State::unresolved);
      EXPECT_TRUE(each.state != State::inProgress || each.unanswered) << "it ends";
      EXPECT_TRUE(each.state != State::indexReconciled || each.handleIndex == index);
    }
  }

 private:
  void start(std::map<U32, Zarn::Optional<typename T::Entry>> const& rows) {
    at_.emplace(room);
    at_->util->rows = rows;
    at_->table->syncEntries();
    at_->take();
  }
  std::optional<Groups<T>> at_;
  std::map<U32, Zarn::Optional<typename T::Entry>> rows_;
};

class Model {
 public:
  explicit Model(U64 seed) : random_(seed) {
    for (auto& kind : indices_) kind.fill(noIndex);
    sides_[0] = std::make_unique<SideOf<Ecmp>>();
    sides_[1] = std::make_unique<SideOf<Ecmp>>();
    sides_[2] = std::make_unique<SideOf<Vxlan>>();
  }

  void step() {
    U32 const number = random_() % sides_.size(), id = random_() % keys;
    auto& side = *sides_[number];
    auto& entry = side.entries[id];
    auto const operation = random_() % 1000;
    if (operation < 400) {
      write(number, id);
    } else if (operation < 550) {
      side.remove(id);
      entry.committed = false;
    } else if (operation < 700) {
      if (!entry.held.empty()) entry.held.pop_back();
    } else if (operation < 998) {
      acknowledge(side);
    } else {
      restart();
    }
    settle();
    check();
  }

  /// Everything goes again.
  void end() {
    for (auto& side : sides_)
      for (U32 id = 0; id < keys; ++id) {
        side->remove(id);
        side->entries[id].committed = false;
        side->entries[id].held.clear();
      }
    settle();
    check();
    EXPECT_EQ(used(), 0u);
  }
  Seen seen;

 private:
  static U32 kindOf(U32 number) { return number / 2; }
  bool oneIn(U32 chances) { return random_() % chances == 0; }
  U32 used() const {
    U32 count = 0;
    for (auto const& kind : indices_)
      count += static_cast<U32>(std::ranges::count_if(kind, [](U32 at) { return at != noIndex; }));
    return count;
  }

  // ---- operations ----

  void write(U32 number, U32 id) {
    auto& side = *sides_[number];
    auto& entry = side.entries[id];
    auto& index = indices_[kindOf(number)][id];
    U32 const mode = random_() % 3;
    bool const commits = !oneIn(3);
    auto handle = side.write(id, mode, commits);
    entry.committed = entry.committed || commits;
    if (entry.mode != mode) {
      entry.mode = mode;
      // Which index it is, is the allocator's affair; that there is one, is not.
      if (index == noIndex && used() < room) index = taken(side.indexOf(id));
      entry.isWritten = index != noIndex;
      entry.state = entry.isWritten ? State::inProgress : State::failedNoIndex;
      if (entry.isWritten) side.late.emplace_back(side.newestWrite(index), index);
      auto const before = std::exchange(entry.unanswered, 0);
      if (entry.isWritten) entry.unanswered = side.late.back().first;
      EXPECT_TRUE(!entry.isWritten || entry.unanswered > before) << "each write has its number";
    }
    if (oneIn(2)) entry.held.push_back(std::move(handle));
  }
  U32 taken(U32 index) const {
    for (auto const& kind : indices_) EXPECT_EQ(std::ranges::count(kind, index), 0) << index;
    EXPECT_LT(index, room);
    return index;
  }

  /// In any order, twice, late, or never.
  void acknowledge(Side& side) {
    if (side.late.empty()) return;
    auto const at = side.late.begin() + static_cast<long>(random_() % side.late.size());
    auto const [write, index] = *at;
    if (!oneIn(4) || side.late.size() > 20) side.late.erase(at);
    if (oneIn(10)) return;
    auto const outcome = oneIn(5) ? Asic::WriteResponse::refused : State::success;
    auto const of = std::ranges::find(side.entries, write, &Entry::unanswered);
    bool const isAwaited = of != side.entries.end();
    EXPECT_EQ(side.acknowledge(write, index, outcome), isAwaited);
    if (!isAwaited) {
      ++seen.dropped;
      return;
    }
    of->unanswered = 0;
    of->state = outcome;
    if (outcome == State::success) of->handleIndex = index;
  }

  /// If it is quiet, every entry that stays is suggested its own row: then nothing is written.
  void restart() {
    bool const isQuiet = oneIn(2);
    ++(isQuiet ? seen.quietRestarts : seen.otherRestarts);
    std::array<std::map<U32, U32>, 3> suggestions;
    std::array<U64, 3> stale{}, staying{};
    for (auto& side : sides_) side->endWarm();
    for (U32 number = 0; number < sides_.size(); ++number)
      for (U32 id = 0; id < keys; ++id) {
        auto& entry = sides_[number]->entries[id];
        bool const hadRow = entry.isWritten;
        auto const index = indices_[kindOf(number)][id];
        if (!entry.committed || (isQuiet ? !hadRow : oneIn(4))) {
          entry = {};
          stale[number] += hadRow;
          continue;
        }
        ++staying[number];
        if (!isQuiet && oneIn(3)) entry.mode = random_() % 3;
        if (isQuiet || !oneIn(4))
          suggestions[number][id] = hadRow && (isQuiet || !oneIn(4)) ? index : random_() % room;
      }
    for (U32 number = 0; number < sides_.size(); ++number)
      sides_[number]->beginAgain(suggestions[number], oneIn(2));
    for (U32 number = 0; number < sides_.size(); ++number) {
      auto& side = *sides_[number];
      side.endReplay();
      auto const is = [](std::string_view what) {
        return [=](std::string const& event) { return event.starts_with(what); };
      };
      auto const events = side.take();
      if (isQuiet) {
        EXPECT_TRUE(std::ranges::none_of(events, is("write")));
        EXPECT_EQ(std::ranges::count_if(events, is("delete")), stale[number]);
        EXPECT_EQ(side.counted(Status::reconcileMatched), staying[number]);
      }
      EXPECT_EQ(side.counted(Status::reconcileMatched) + side.counted(Status::reconcileRewritten) +
                    side.counted(Status::reconcileAdded),
                staying[number]);
    }
    findIndices();
  }
  void findIndices() {
    for (auto& kind : indices_) kind.fill(noIndex);
    for (U32 number = 0; number < sides_.size(); ++number)
      for (U32 id = 0; id < keys; ++id) {
        auto& index = indices_[kindOf(number)][id];
        auto const found = sides_[number]->entries[id].mode ? sides_[number]->indexOf(id) : noIndex;
        if (found != noIndex && index == noIndex) index = taken(found);
      }
  }

  // ---- what must follow ----

  void settle() {
    for (U32 number = 0; number < sides_.size(); ++number)
      for (U32 id = 0; id < keys; ++id) {
        auto& entry = sides_[number]->entries[id];
        if (!entry.mode || entry.known()) continue;
        entry = {};
        bool const isShared = number < 2 && sides_[1 - number]->entries[id].mode;
        if (!isShared) indices_[kindOf(number)][id] = noIndex;
      }
  }
  void check() {
    for (U32 number = 0; number < sides_.size(); ++number) {
      sides_[number]->take();
      sides_[number]->check(indices_[kindOf(number)]);
      for (auto const& each : sides_[number]->entries) {
        seen.success += each.state == State::success;
        seen.inProgress += each.state == State::inProgress;
        seen.failed += each.known() && !each.isWritten;
        seen.reconciled += each.state == State::indexReconciled;
      }
    }
    for (U32 id = 0; id < keys; ++id)
      seen.shared += sides_[0]->entries[id].isWritten && sides_[1]->entries[id].isWritten;
    EXPECT_EQ(sides_[0]->usedIndices(), used());
  }

  std::mt19937_64 random_;
  std::array<std::unique_ptr<Side>, 3> sides_;
  std::array<std::array<U32, keys>, 2> indices_;  ///< by kind of key
};

TEST(GroupModel, agreesAfterEveryStep) {
  char const* const given = std::getenv("DLB_MODEL_SEED");
  U64 const seed = given ? std::strtoull(given, nullptr, 0) : std::random_device()();
  SCOPED_TRACE(Vell::concatenate("DLB_MODEL_SEED=", seed));
  auto const live = [] {
    return Ecmp::EntryHandle::memAllocationTracker_.live() +
           Vxlan::EntryHandle::memAllocationTracker_.live();
  };
  auto const before = live();
  {
    Model model(seed);
    for (U32 i = 0; i < steps; ++i) {
      model.step();
      if (HasFailure()) FAIL() << "at step " << i << " of seed " << seed;
    }
    auto const& seen = model.seen;
    EXPECT_GT(std::min({seen.success, seen.inProgress, seen.failed, seen.reconciled, seen.dropped,
                        seen.shared, seen.quietRestarts, seen.otherRestarts}),
              0u);
    model.end();
  }
  EXPECT_EQ(live(), before);
}

}  // namespace
}  // namespace Group
