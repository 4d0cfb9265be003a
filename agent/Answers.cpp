#include "agent/Answers.h"

#include <chrono>
#include <thread>

namespace DlbAgent {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds patience(patienceSeconds);
constexpr std::chrono::microseconds pause(50);
/// Polls without an answer before the first pause: most hardware answers sooner than a pause ends.
constexpr unsigned pollsAtOnce = 64;

}  // namespace

AnswersEnd awaitAnswers(Asic::Chip& chip, std::function<bool()> const& isDone,
                        std::function<void()> const& onAnswers) {
  auto lastAnswer = Clock::now();
  unsigned idlePolls = 0;
  while (!isDone()) {
    if (chip.poll() > 0) {
      idlePolls = 0;
      lastAnswer = Clock::now();
      onAnswers();
    } else if (chip.answersOutstanding() == 0) {
      return AnswersEnd::nothingOwed;
    } else if (Clock::now() - lastAnswer > patience) {
      return AnswersEnd::silent;
    } else if (++idlePolls > pollsAtOnce) {
      std::this_thread::sleep_for(pause);
    }
  }
  return AnswersEnd::done;
}

}  // namespace DlbAgent
