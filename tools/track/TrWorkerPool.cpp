#include "tools/track/TrWorkerPool.h"

#include "base/Exception.h"

#include <algorithm>
#include <utility>

TrWorkerPool::TrWorkerPool(int count, int trackCount, int first, int last, int keep) {
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
    for (int w = 1; w < count; ++w)
        threads.emplace_back(&TrWorkerPool::serve, this, w);
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

void TrWorkerPool::serve(int w) {
    unsigned long seen = 0;
    for (;;) {
        {
            std::unique_lock<std::mutex> lock(mutex);
            wake.wait(lock, [&] { return stopping || generation != seen; });
            if (stopping)
                return;
            seen = generation;
        }
        runJob(w);
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
    runJob(0);
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
    if (copies.size() < workers.size())
        throw IllegalArgumentException(dstring("frame " + std::to_string(frame) + ": " +
                                               std::to_string(copies.size()) + " copies for " +
                                               std::to_string(workers.size()) + " workers"));
    // Sized here, so that the workers only write their own tracks' entries.
    results.assign(owner.size(), TrStepResult());
    runAll([&](TrWorker& worker, int w) {
        worker.sequence->hand(float(frame), std::move(copies[size_t(w)]));
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
