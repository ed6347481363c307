// What the library's threads hand the tests (events, calls, log lines), and waits for it.
#pragma once

#include <windows.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <iterator>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

// State that other threads change: each change runs under the one lock and wakes the waiters.
class Monitor {
 public:
  template <typename F>
  auto Locked(F change) const {
    std::lock_guard<std::mutex> lock(mutex_);
    changed_.notify_all();
    return change();
  }
  template <typename F>
  bool Wait(F done, DWORD timeout_ms = 5000) const {
    std::unique_lock<std::mutex> lock(mutex_);
    return changed_.wait_for(lock, std::chrono::milliseconds(timeout_ms), done);
  }

 private:
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
};

// Lines in the order they came; a prefix selects those that begin with it.
template <typename String>
class BasicJournal : public Monitor {
 public:
  using Lines = std::vector<String>;
  void Add(String line) {
    Locked([&] { lines_.push_back(std::move(line)); });
  }
  Lines Of(const String& prefix = String()) const {
    return Locked([&] { return Matching(prefix); });
  }
  int Count(const String& prefix) const { return static_cast<int>(Of(prefix).size()); }
  bool WaitFor(const String& prefix, size_t times = 1, DWORD timeout_ms = 5000) const {
    return Wait([&] { return Matching(prefix).size() >= times; }, timeout_ms);
  }
  Lines Take() {  // and forget them
    return Locked([&] { return std::exchange(lines_, Lines()); });
  }
  void Clear() { Take(); }

 protected:
  Lines Matching(const String& prefix) const {  // under the lock
    Lines out;
    std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(out),
                 [&](const String& line) { return line.compare(0, prefix.size(), prefix) == 0; });
    return out;
  }
  Lines lines_;
};
using Journal = BasicJournal<std::string>;
using WideJournal = BasicJournal<std::wstring>;

}  // namespace testing_support
