// Threads for parallel loops: started once, they wait between loops.
#include "platform/platform.h"

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <thread>

namespace tarnvale::platform {

bool Task::run() {
    int queued = kQueued;
    if (!state_.compare_exchange_strong(queued, kRunning, std::memory_order_acq_rel)) return false;
    try {
        job_();
    } catch (...) {
        failure_ = std::current_exception();
    }
    job_ = nullptr; // what it holds goes as soon as it has run
    {
        std::lock_guard<std::mutex> lock(mutex_);
        state_.store(kDone, std::memory_order_release);
    }
    finished_.notify_all();
    return true;
}

void Task::wait() {
    if (!run() && !done()) {
        std::unique_lock<std::mutex> lock(mutex_);
        finished_.wait(lock, [&] { return done(); });
    }
    if (failure_) std::rethrow_exception(failure_);
}

struct Workers::Shared {
    std::mutex mutex;
    std::condition_variable wake, done;
    std::deque<std::shared_ptr<Task>> posted;
    const std::function<void(size_t)>* job = nullptr;
    size_t jobs = 0;
    std::atomic<size_t> next{0};
    size_t running = 0; // helper threads still in the current loop
    uint64_t loop = 0;  // counts the loops, so that each helper joins each once
    bool stop = false;
    std::exception_ptr failure;

    // Takes jobs of the current loop until none is left.
    void work() {
        for (size_t i; (i = next.fetch_add(1)) < jobs;) {
            try {
                (*job)(i);
            } catch (...) {
                std::lock_guard<std::mutex> lock(mutex);
                if (!failure) failure = std::current_exception();
                next = jobs; // the rest is not worth doing
            }
        }
    }
};

Workers::Workers(unsigned threads, size_t grain)
    : shared_(std::make_unique<Shared>()), grain_(std::max<size_t>(grain, 1)) {
    if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
    for (unsigned t = 1; t < threads; ++t)
        helpers_.emplace_back([s = shared_.get()] {
            uint64_t seen = 0;
            for (;;) {
                std::unique_lock<std::mutex> lock(s->mutex);
                s->wake.wait(lock, [&] { return s->stop || s->loop != seen || !s->posted.empty(); });
                if (s->stop) return;
                if (s->loop == seen) {
                    std::shared_ptr<Task> task = std::move(s->posted.front());
                    s->posted.pop_front();
                    lock.unlock();
                    task->run(); // nothing when the waiting thread has run it already
                    continue;
                }
                seen = s->loop;
                lock.unlock();
                s->work();
                lock.lock();
                if (--s->running == 0) s->done.notify_one();
            }
        });
}

Workers::~Workers() {
    {
        std::lock_guard<std::mutex> lock(shared_->mutex);
        shared_->stop = true;
    }
    shared_->wake.notify_all();
    for (std::thread& t : helpers_)
        t.join();
}

std::shared_ptr<Task> Workers::post(std::function<void()> job) {
    auto task = std::make_shared<Task>(std::move(job));
    if (helpers_.empty()) return task;
    {
        std::lock_guard<std::mutex> lock(shared_->mutex);
        shared_->posted.push_back(task);
    }
    shared_->wake.notify_one();
    return task;
}

void Workers::forEach(size_t jobs, const std::function<void(size_t)>& job) {
    Shared& s = *shared_;
    {
        std::lock_guard<std::mutex> lock(s.mutex);
        s.job = &job;
        s.jobs = jobs;
        s.next = 0;
        s.failure = nullptr;
        s.running = helpers_.size();
        ++s.loop;
    }
    s.wake.notify_all();
    s.work();
    std::unique_lock<std::mutex> lock(s.mutex);
    s.done.wait(lock, [&] { return s.running == 0; });
    if (s.failure) std::rethrow_exception(s.failure);
}

} // namespace tarnvale::platform
