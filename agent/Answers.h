// Waiting for the hardware's answers.

#pragma once

#include <functional>

#include "platform/asic/Chip.h"

namespace DlbAgent {

enum class AnswersEnd {
  done,         ///< what was waited for has come
  nothingOwed,  ///< it has not, and the hardware owes no more answers
  silent,       ///< it has not, and the hardware, which owes some, was silent for `patienceSeconds`
};

/// Hardware that owes answers and brings none for so long will not bring them any more.
inline constexpr unsigned patienceSeconds = 10;

/// Polls the chip until `isDone`, or until nothing will come any more; tells `onAnswers` whenever
/// some have come. Passes on what the handlers of answers throw.
AnswersEnd awaitAnswers(Asic::Chip& chip, std::function<bool()> const& isDone,
                        std::function<void()> const& onAnswers);

}  // namespace DlbAgent
