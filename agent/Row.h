// One entry of a table with its key, as it travels through the reflection interface.

#pragma once

#include <map>
#include <string>

#include "platform/vell/Value.h"

namespace DlbAgent {

/// A key as a table tells it: a number for an index, the text form for anything else.
class Key {
 public:
  explicit Key(Vell::Value value) : value_(std::move(value)) {}

  Vell::Value const& value() const { return value_; }
  std::string text() const { return number() ? std::to_string(*number()) : *value_.text(); }

  /// Indices by number, other keys by text.
  friend bool operator<(Key const& a, Key const& b) {
    if (a.number() && b.number()) return *a.number() < *b.number();
    return a.text() < b.text();
  }

 private:
  U64 const* number() const { return value_.number(); }

  Vell::Value value_;
};

/// Entries by key. A record is a copy of its own, which no table changes.
using Rows = std::map<Key, Vell::Record>;

}  // namespace DlbAgent
