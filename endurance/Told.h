// What watchers must hear, worked out apart from the publisher (platform/vell/Publisher.h):
//
//  - A publication is told to each watcher of its field that was there at its start and has not left
//    meanwhile, once, in the order of subscription, with the same change.
//  - One that comes in the midst of another is told whole before that one goes on, and every one is
//    told whole before the call that made it returns.
//  - The former values that are told of one value form a chain without a gap: what was changed in the
//    midst of a change is told before it.
//
// The first watcher of each publisher, who never leaves, tells that a publication begins.

#pragma once

#include <string>
#include <vector>

#include "platform/vell/Publisher.h"
#include "platform/vell/Types.h"

namespace Endurance {

/// The first thing that was found wrong. Watchers must not throw, so it waits here.
struct Finding {
  std::string text;

  bool found() const { return !text.empty(); }
  template <class... Parts>
  void add(Parts const&... parts) {
    if (text.empty()) text = Vell::concatenate(parts...);
  }
};

/// The watchers of one publisher in the order of subscription, behind the first one.
struct Audience {
  struct Seat {
    U32 fieldId;
    bool ended = false;
  };
  std::string name;
  std::vector<Seat> seats;
};

/// Who must be told next, of all publications under way.
class Hearing {
 public:
  explicit Hearing(Finding& finding) : finding_(finding) {}

  void begins(Audience const& audience, Vell::Change const& change) {
    publications_.push_back({&audience, change, 0, audience.seats.size()});
  }
  void heard(Audience const& audience, std::size_t seat, Vell::Change const& change) {
    while (publications_.size() > base_ && isWhole(publications_.back())) publications_.pop_back();
    if (publications_.size() == base_) {
      finding_.add(audience.name, ": a watcher heard once more, or of nothing, of field ",
                   change.fieldId);
      return;
    }
    auto& told = publications_.back();
    if (told.audience != &audience || told.next != seat || !isSame(told.change, change))
      finding_.add(audience.name, ": watcher ", seat, " heard of field ", change.fieldId,
                   " when it was the turn of watcher ", told.next, " of ", told.audience->name,
                   " to hear of field ", told.change.fieldId);
    else
      ++told.next;
  }

  /// Stands around a call: what is told in it is told whole at its end.
  class Scope {
   public:
    explicit Scope(Hearing& hearing) : hearing_(hearing), outer_(hearing.base_) {
      hearing.base_ = hearing.publications_.size();
    }
    Scope(Scope const&) = delete;
    Scope& operator=(Scope const&) = delete;
    ~Scope() {
      auto& told = hearing_.publications_;
      for (; told.size() > hearing_.base_; told.pop_back())
        if (!isWhole(told.back()))
          hearing_.finding_.add(told.back().audience->name, ": watcher ", told.back().next,
                                " did not hear of field ", told.back().change.fieldId);
      hearing_.base_ = outer_;
    }

   private:
    Hearing& hearing_;
    std::size_t outer_;
  };

 private:
  struct Publication {
    Audience const* audience;
    Vell::Change change;
    std::size_t next;  ///< whose turn it is, unless that one is not concerned
    std::size_t end;
  };

  /// Goes on to the next one who is concerned; true if there is none.
  static bool isWhole(Publication& told) {
    for (; told.next < told.end; ++told.next) {
      auto const& seat = told.audience->seats[told.next];
      if (!seat.ended &&
          (seat.fieldId == told.change.fieldId || seat.fieldId == Vell::Publisher::everyField))
        return false;
    }
    return true;
  }
  static bool isSame(Vell::Change const& a, Vell::Change const& b) {
    return a.fieldId == b.fieldId && a.key == b.key && a.previous == b.previous &&
           a.keyIsEq == b.keyIsEq;
  }

  Finding& finding_;
  std::vector<Publication> publications_;
  std::size_t base_ = 0;  ///< publications below are of calls further out, which wait
};

/// What was told of one value, as numbers: 0 is an absent one, `empty` one that is there without a
/// value; former values are told without that difference.
class Chain {
 public:
  static constexpr U64 empty = 1;

  Chain() = default;
  explicit Chain(U64 known) : known_(known) {}

  /// Looks at the value, so that a change which is still to be told is not taken for another.
  void seen(U64 now) {
    if (now == known_) return;
    owed_.push_back(known_);
    known_ = now;
  }
  void told(U64 former, U64 now) {
    seen(now);
    if (!owed_.empty() && isSame(owed_.back(), former))
      owed_.pop_back();
    else
      isBroken_ = true;
  }
  /// The same of a value that goes to `now`, its end, inside of the change that brought the former one: that
  /// one is told later, and nobody has seen what it brought.
  void toldEnd(U64 former, U64 now) {
    seen(now);
    if (!owed_.empty() && isSame(owed_.back(), former)) owed_.pop_back();
  }
  /// Whether each change was told once, and the last that was told is what there is now.
  bool isWhole(U64 now) const { return isWhole() && known_ == now; }
  bool isWhole() const { return owed_.empty() && !isBroken_; }
  bool isBroken() const { return isBroken_; }

 private:
  static bool isSame(U64 a, U64 b) { return a == b || (a <= empty && b <= empty); }

  U64 known_ = 0;
  bool isBroken_ = false;  ///< a former value was told that nobody had seen
  std::vector<U64> owed_;  ///< former values, the innermost change last
};

}  // namespace Endurance
