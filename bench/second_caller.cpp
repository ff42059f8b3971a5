// The second thread gives its commands beside the first, and does not read their answers.
#include "second_caller.h"

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>

#include "data.h"
#include "stopwatch.h"
#include "velmora/velmora.h"

namespace bench {

namespace {

void select(int key) {
  const std::string text = renderText(selectItemByKey.velmora, {key});
  ExecuteQuery(text.c_str());
}

}  // namespace

double longestSelectDuring(int rows, const std::function<void()>& work) {
  std::atomic<bool> isUnderWay = false;
  std::atomic<bool> isDone = false;
  std::atomic<int> answered = 0;
  double longest = 0;
  std::thread second([&] {
    while (!isDone) {
      const Stopwatch watch;
      select(1 + scatterBelow(rows, answered, 15));
      if (isUnderWay) longest = std::max(longest, watch.seconds());
      ++answered;
    }
  });
  // What it needs at first, memory above all, is not the work's doing.
  while (answered < 1000) std::this_thread::yield();
  isUnderWay = true;
  work();
  isDone = true;
  second.join();
  return longest;
}

}  // namespace bench
