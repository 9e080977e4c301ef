// A small pool of threads that share the rows of one image conversion.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace korvatin {

// Runs one job at a time, cut into chunks that the calling thread and the pool's threads take in
// turn until none is left; Run returns when every chunk is done. Because the caller takes chunks
// too, a pool thread that the scheduler keeps waiting only means the caller does more of the
// work, never that the caller waits for it. When another thread is already running a job, Run
// does the whole job on the calling thread instead of waiting, so two converters sharing the pool
// (display and recording) never block each other.
class ConvertWorkers {
public:
    // `threads` counts the caller too: 2 means one pool thread. Threads start on first use.
    explicit ConvertWorkers(int threads);
    ~ConvertWorkers();
    ConvertWorkers(const ConvertWorkers&) = delete;
    ConvertWorkers& operator=(const ConvertWorkers&) = delete;

    int Threads() const { return threads_; }

    // Calls job(chunk, chunks) once for every chunk 0 .. chunks-1, on the caller and on the
    // pool's threads (which run it off the caller's thread, concurrently with each other).
    void Run(int chunks, const std::function<void(int chunk, int chunks)>& job);

    // The number of threads worth using on this machine (at least 1, at most 4).
    static int DefaultThreads();

    // The pool conversions share when they are given a conversion context; created on first
    // use with DefaultThreads() threads.
    static ConvertWorkers& Shared();

private:
    void WorkerLoop();
    // Takes chunks of the current job until none is left.
    void TakeChunks(const std::function<void(int, int)>& job, int chunks);

    const int threads_;
    std::mutex runMutex_; // guards the pool against a second caller while a job runs
    std::mutex mutex_;    // guards job_, chunks_, generation_, active_, stopping_, started_
    std::condition_variable wake_;     // a new job or the end, for the pool's threads
    std::condition_variable finished_; // every chunk done, or no pool thread active
    const std::function<void(int, int)>* job_ = nullptr;
    int chunks_ = 0;
    uint64_t generation_ = 0;
    int active_ = 0; // pool threads inside TakeChunks
    bool stopping_ = false;
    bool started_ = false;
    std::atomic<int> next_{0}; // the next chunk to take
    std::atomic<int> done_{0}; // chunks finished
    std::vector<std::thread> pool_;
};

} // namespace korvatin
