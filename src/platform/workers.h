// Helper threads and the jobs handed to them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace tarnvale::platform {

// ---- Tasks -------------------------------------------------------------------------

// A job handed to other threads (Workers::post): it runs on a helper thread when
// one is free, or on the thread that waits for it, whichever comes first.
class Task {
  public:
    explicit Task(std::function<void()> job) : job_(std::move(job)) {}
    // Runs the job here unless it has been taken; gives whether it ran here.
    bool run();
    bool done() const { return state_.load(std::memory_order_acquire) == kDone; }
    // Returns once the job has run, here if nobody has taken it; rethrows its failure.
    void wait();

  private:
    static constexpr int kQueued = 0, kRunning = 1, kDone = 2;
    std::function<void()> job_;
    std::atomic<int> state_{kQueued};
    std::exception_ptr failure_;
    std::mutex mutex_;
    std::condition_variable finished_;
};

// ---- Threads ----------------------------------------------------------------------

// Helper threads for posted jobs, made once; the caller's own thread counts as
// one, so one thread runs every job on the caller's when it waits. `grain`: the
// items a chunk of a long run takes (the tests make it small, so that small
// scenes split).
class Workers {
  public:
    explicit Workers(unsigned threads = 0, size_t grain = 4096); // 0: one a core
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
    unsigned count() const { return static_cast<unsigned>(helpers_.size()) + 1; }
    size_t grain() const { return grain_; }
    // Hands a job to the helper threads, first come first served; with none, it
    // runs when it is waited for.
    std::shared_ptr<Task> post(std::function<void()> job);

  private:
    struct Shared;
    std::unique_ptr<Shared> shared_;
    std::vector<std::thread> helpers_;
    size_t grain_;
};

// Runs the jobs on the workers side by side (none: one after the other, here)
// and returns when all have run; rethrows the failure of the first that failed.
void runAll(Workers* workers, std::vector<std::function<void()>> jobs);

} // namespace tarnvale::platform
