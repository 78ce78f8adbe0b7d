#include "tools/track/TrWorkerPool.h"

#include "base/Exception.h"

#include <algorithm>
#include <ctime>
#include <utility>

namespace {

double threadCpuSeconds() {
    timespec ts{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
    return double(ts.tv_sec) + 1e-9 * double(ts.tv_nsec);
}

} // namespace

TrWorkerPool::TrWorkerPool(int count, int trackCount, int first, int last, int keep,
                           int threadCount) {
    // A worker without tracks would have nothing to do, and its shot would
    // refuse the shot-wide settings, which are set through track 0.
    count = std::max(1, std::min(count, trackCount));
    for (int w = 0; w < count; ++w) {
        std::unique_ptr<TrWorker> worker(new TrWorker());
        worker->sequence = new TrHandedSequence(first, last, keep);
        worker->shot.setSequence(worker->sequence);
        worker->follow.setShot(&worker->shot);
        workers.push_back(std::move(worker));
    }
    for (int i = 0; i < trackCount; ++i) {
        TrWorker& w = *workers[size_t(i % count)];
        owner.push_back(i % count);
        local.push_back(int(w.tracks.size()));
        w.tracks.push_back(i);
    }
    errors.resize(size_t(count));
    threadCount = threadCount <= 0 ? count : std::min(threadCount, count);
    cpuSeconds.assign(size_t(threadCount), 0.0);
    for (int t = 1; t < threadCount; ++t)
        threads.emplace_back(&TrWorkerPool::serve, this, t);
}

TrWorkerPool::~TrWorkerPool() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    wake.notify_all();
    for (std::thread& t : threads)
        t.join();
}

TrTrack* TrWorkerPool::addTrack(int track, double x, double y) {
    TrShotImpl& shot = shotOf(track);
    if (shot.getTrackCount() != localIndex(track))
        throw IllegalArgumentException(dstring("track " + std::to_string(track) +
                                               " added out of order to worker " +
                                               std::to_string(workerOf(track))));
    return shot.addTrack(x, y);
}

void TrWorkerPool::runJob(int w) {
    try {
        (*job)(*workers[size_t(w)], w);
    } catch (...) {
        errors[size_t(w)] = std::current_exception();
    }
}

// A thread's workers in turn; the thread alone writes its CPU time.
void TrWorkerPool::runJobs(int t) {
    const double t0 = threadCpuSeconds();
    for (size_t w = size_t(t); w < workers.size(); w += cpuSeconds.size())
        runJob(int(w));
    cpuSeconds[size_t(t)] += threadCpuSeconds() - t0;
}

void TrWorkerPool::serve(int t) {
    unsigned long seen = 0;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex);
            wake.wait(lock, [&] { return stopping || generation != seen; });
            if (stopping)
                return;
            seen = generation;
        }
        runJobs(t);
        bool last = false;
        {
            std::lock_guard<std::mutex> lock(mutex);
            last = --running == 0;
        }
        if (last)
            done.notify_one();
    }
}

void TrWorkerPool::runAll(const std::function<void(TrWorker&, int)>& fn) {
    std::fill(errors.begin(), errors.end(), nullptr);
    {
        std::lock_guard<std::mutex> lock(mutex);
        job = &fn;
        running = int(threads.size());
        ++generation;
    }
    wake.notify_all();
    runJobs(0);
    {
        // The lock orders every worker's writes before the caller's reads.
        std::unique_lock<std::mutex> lock(mutex);
        done.wait(lock, [&] { return running == 0; });
        job = nullptr;
    }
    for (std::exception_ptr& e : errors)
        if (e) {
            std::exception_ptr first = e;
            std::fill(errors.begin(), errors.end(), nullptr);
            std::rethrow_exception(first);
        }
}

void TrWorkerPool::begin(int frame, int step) {
    for (size_t w = 0; w < workers.size(); ++w) {
        TrWorker& worker = *workers[w];
        if (worker.shot.getTrackCount() != int(worker.tracks.size()))
            throw IllegalArgumentException(dstring("worker " + std::to_string(w) + " has " +
                                                   std::to_string(worker.shot.getTrackCount()) +
                                                   " tracks, not " +
                                                   std::to_string(worker.tracks.size())));
    }
    // Each driver's begin reads its own shot only; the workers are idle.
    for (std::unique_ptr<TrWorker>& w : workers)
        w->follow.begin(frame, step);
}

void TrWorkerPool::step(int frame, int direction, std::vector<Orvane::Image>& copies,
                        const std::vector<bool>& alive, std::vector<TrStepResult>& results) {
    const size_t threadCount = cpuSeconds.size();
    if (copies.size() < threadCount)
        throw IllegalArgumentException(
            dstring("frame " + std::to_string(frame) + ": " + std::to_string(copies.size()) +
                    " copies for " + std::to_string(threadCount) +
                    (threadCount == workers.size() ? " workers" : " threads")));
    // Sized here, so that the workers only write their own tracks' entries.
    results.assign(owner.size(), TrStepResult());
    runAll([&](TrWorker& worker, int w) {
        // Workers that share a thread share its copy; the thread's last
        // worker takes it over.
        Orvane::Image& copy = copies[size_t(w) % threadCount];
        if (size_t(w) + threadCount < workers.size())
            worker.sequence->hand(float(frame), copy);
        else
            worker.sequence->hand(float(frame), std::move(copy));
        for (size_t k = 0; k < worker.tracks.size(); ++k) {
            const size_t i = size_t(worker.tracks[k]);
            if (i >= alive.size() || !alive[i])
                continue;
            TrStepResult& r = results[i];
            r.ran = true;
            try {
                r.ok = worker.follow.track(int(k), frame, direction);
            } catch (const Exception& e) {
                r.ok = false;
                r.error = e.getMessage().str();
            }
        }
    });
}

void TrWorkerPool::end(int frame) {
    for (std::unique_ptr<TrWorker>& w : workers)
        w->follow.end(frame);
}

double TrWorkerPool::getCpuSeconds() const {
    double sum = 0;
    for (double s : cpuSeconds)
        sum += s;
    return sum;
}
