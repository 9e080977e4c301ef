// A small pool of threads that share the rows of one image conversion.
#include "convertworkers.h"

#include <algorithm>

namespace korvatin {

ConvertWorkers::ConvertWorkers(int threads) : threads_(std::max(1, threads)) {}

ConvertWorkers::~ConvertWorkers() {
    {
        std::lock_guard<std::mutex> lock(mutex_);
        stopping_ = true;
    }
    wake_.notify_all();
    for (std::thread& t : pool_)
        t.join();
}

int ConvertWorkers::DefaultThreads() {
    const unsigned n = std::thread::hardware_concurrency();
    return int(std::clamp(n, 1u, 4u));
}

ConvertWorkers& ConvertWorkers::Shared() {
    static ConvertWorkers workers(DefaultThreads());
    return workers;
}

void ConvertWorkers::TakeChunks(const std::function<void(int, int)>& job, int chunks) {
    for (;;) {
        const int chunk = next_.fetch_add(1);
        if (chunk >= chunks)
            return;
        job(chunk, chunks);
        if (done_.fetch_add(1) + 1 == chunks) {
            std::lock_guard<std::mutex> lock(mutex_);
            finished_.notify_all();
        }
    }
}

void ConvertWorkers::Run(int chunks, const std::function<void(int chunk, int chunks)>& job) {
    std::unique_lock<std::mutex> runLock(runMutex_, std::try_to_lock);
    if (!runLock.owns_lock() || threads_ == 1 || chunks <= 1) {
        for (int chunk = 0; chunk < chunks; ++chunk)
            job(chunk, chunks);
        return;
    }
    {
        std::unique_lock<std::mutex> lock(mutex_);
        if (!started_) {
            started_ = true;
            for (int i = 1; i < threads_; ++i)
                pool_.emplace_back(&ConvertWorkers::WorkerLoop, this);
        }
        // A pool thread still leaving the previous job must not see this one's counters.
        finished_.wait(lock, [this] { return active_ == 0; });
        next_ = 0;
        done_ = 0;
        job_ = &job;
        chunks_ = chunks;
        ++generation_;
    }
    wake_.notify_all();
    TakeChunks(job, chunks);
    std::unique_lock<std::mutex> lock(mutex_);
    finished_.wait(lock, [&] { return done_.load() == chunks; });
    job_ = nullptr; // a pool thread waking only now has nothing to join
}

// Runs on a pool thread: joins each new job while it lasts.
void ConvertWorkers::WorkerLoop() {
    uint64_t seen = 0;
    std::unique_lock<std::mutex> lock(mutex_);
    for (;;) {
        wake_.wait(lock, [&] { return stopping_ || generation_ != seen; });
        if (stopping_)
            return;
        seen = generation_;
        if (job_ == nullptr)
            continue;
        const std::function<void(int, int)>* job = job_;
        const int chunks = chunks_;
        ++active_;
        lock.unlock();
        TakeChunks(*job, chunks);
        lock.lock();
        if (--active_ == 0)
            finished_.notify_all();
    }
}

} // namespace korvatin
