#include "tools/track/TrFrameReader.h"

#include "base/Exception.h"
#include "image/Copy.h"
#include "image/ImageFile.h"
#include "track/Sequence/TrDiskSequence.h"

#include <algorithm>
#include <chrono>
#include <exception>
#include <utility>

namespace {

double secondsSince(std::chrono::steady_clock::time_point t) {
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - t).count();
}

} // namespace

TrFrameReader::TrFrameReader(const TrDiskSequence& sequence, int from, int to, int copiesArg,
                             int aheadArg, int decoders)
    : from(from), direction(to >= from ? 1 : -1), copies(std::max(1, copiesArg)) {
    decoders = std::max(1, decoders);
    ahead = size_t(std::max(aheadArg, decoders));
    for (int f = from; f != to + direction; f += direction)
        paths.push_back(sequence.getFramePath(float(f)).str());
    limit = paths.size();
    try {
        for (int d = 0; d < decoders; ++d)
            threads.emplace_back(&TrFrameReader::decodeFrames, this);
    } catch (...) {
        stop();
        throw;
    }
}

TrFrameReader::~TrFrameReader() {
    stop();
}

void TrFrameReader::stop() {
    {
        std::lock_guard<std::mutex> lock(mutex);
        stopping = true;
    }
    changed.notify_all();
    for (std::thread& t : threads)
        t.join();
    threads.clear();
}

void TrFrameReader::readOne(size_t k, TrReadFrame& out) {
    out.frame = from + int(k) * direction;
    try {
        // A string of the thread's own: the library's strings count their
        // references with plain integers.
        Orvane::Image img = Orvane::readImage(dstring(paths[k]));
        out.copies.reserve(size_t(copies));
        for (int c = 1; c < copies; ++c)
            out.copies.push_back(Orvane::copy(img));
        out.copies.push_back(std::move(img));
    } catch (const Exception& e) {
        out.copies.clear();
        out.error = e.getMessage().str();
    } catch (const std::exception& e) {
        out.copies.clear();
        out.error = e.what();
    }
}

void TrFrameReader::decodeFrames() {
    for (;;) {
        size_t k = 0;
        {
            std::unique_lock<std::mutex> lock(mutex);
            // A frame is claimed only when there is room for it, so no more
            // than `ahead` frames are ever decoding or waiting.
            changed.wait(lock,
                         [&] { return stopping || claimed >= limit || claimed < taken + ahead; });
            if (stopping || claimed >= limit)
                return;
            k = claimed++;
        }
        const auto t0 = std::chrono::steady_clock::now();
        TrReadFrame frame;
        readOne(k, frame);
        const double spent = secondsSince(t0);
        {
            std::lock_guard<std::mutex> lock(mutex);
            decodeSeconds += spent;
            ++framesRead;
            // Frames after a failed one are never handed over; the ones
            // before still are.
            if (!frame.ok() && k < limit)
                limit = k + 1;
            done.emplace(k, std::move(frame));
        }
        changed.notify_all();
    }
}

bool TrFrameReader::next(TrReadFrame& out) {
    const auto t0 = std::chrono::steady_clock::now();
    std::unique_lock<std::mutex> lock(mutex);
    if (over)
        return false;
    changed.wait(lock, [&] { return taken >= limit || done.count(taken) != 0; });
    waitSeconds += secondsSince(t0);
    if (taken >= limit) {
        over = true;
        return false;
    }
    auto it = done.find(taken);
    out = std::move(it->second);
    done.erase(it);
    ++taken;
    if (!out.ok())
        over = true;
    lock.unlock();
    changed.notify_all();
    return true;
}

double TrFrameReader::getDecodeSeconds() const {
    std::lock_guard<std::mutex> lock(mutex);
    return decodeSeconds;
}

int TrFrameReader::getFramesRead() const {
    std::lock_guard<std::mutex> lock(mutex);
    return framesRead;
}
