#include "agent/Answers.h"

#include <chrono>
#include <thread>

namespace DlbAgent {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::seconds patience(patienceSeconds);
constexpr std::chrono::microseconds pause(50);

}  // namespace

AnswersEnd awaitAnswers(Asic::Chip& chip, std::function<bool()> const& isDone,
                        std::function<void()> const& onAnswers) {
  auto lastAnswer = Clock::now();
  while (!isDone()) {
    if (chip.poll() > 0) {
      lastAnswer = Clock::now();
      onAnswers();
    } else if (chip.answersOutstanding() == 0) {
      return AnswersEnd::nothingOwed;
    } else if (Clock::now() - lastAnswer > patience) {
      return AnswersEnd::silent;
    } else {
      std::this_thread::sleep_for(pause);
    }
  }
  return AnswersEnd::done;
}

}  // namespace DlbAgent
