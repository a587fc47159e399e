// Helper threads: started once, they wait for posted jobs.
#include "platform/workers.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
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
    std::condition_variable wake;
    std::deque<std::shared_ptr<Task>> posted;
    bool stop = false;
};

Workers::Workers(unsigned threads, size_t grain)
    : shared_(std::make_unique<Shared>()), grain_(std::max<size_t>(grain, 1)) {
    if (threads == 0) threads = std::max(1u, std::thread::hardware_concurrency());
    for (unsigned t = 1; t < threads; ++t)
        helpers_.emplace_back([s = shared_.get()] {
            for (;;) {
                std::unique_lock<std::mutex> lock(s->mutex);
                s->wake.wait(lock, [&] { return s->stop || !s->posted.empty(); });
                if (s->stop) return;
                std::shared_ptr<Task> task = std::move(s->posted.front());
                s->posted.pop_front();
                lock.unlock();
                task->run(); // nothing when the waiting thread has run it already
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

void runAll(Workers* workers, std::vector<std::function<void()>> jobs) {
    std::vector<std::shared_ptr<Task>> tasks;
    for (auto& job : jobs)
        if (workers)
            tasks.push_back(workers->post(std::move(job)));
        else
            job();
    // The caller takes every job no helper has taken yet, rather than wait on one
    // a helper is running: the jobs then run side by side, not one after another.
    for (const auto& task : tasks)
        task->run();
    for (const auto& task : tasks)
        task->wait();
}

} // namespace tarnvale::platform
