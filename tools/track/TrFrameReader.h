#pragma once

#include "image/Image.h"

#include <condition_variable>
#include <cstddef>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

class TrDiskSequence;

/// One frame as the reader hands it over: one copy of the pixels for each
/// consumer, or the reason the frame could not be read.
struct TrReadFrame {
    int frame = 0;
    /// One image per consumer, each the only handle on pixels of its own, so
    /// that each can go to another thread.
    std::vector<Orvane::Image> copies;
    /// Empty when the frame was read; otherwise the library's message, as
    /// reading the frame through the disk sequence would have thrown it.
    std::string error;

    bool ok() const { return error.empty(); }
};

/// Reads and decodes the frames of a range on threads of its own, ahead of
/// the tracking, and hands them over in range order.
///
/// The file names are taken from the sequence when the reader is made; the
/// threads never touch the sequence or the image cache, which belong to the
/// caller's thread. Decoding a frame can cost more than tracking it, so
/// several threads may decode frames side by side. At most `ahead` frames
/// are decoding or waiting to be taken, each `copies` images: with four
/// copies of a 1920x1080 RGBA frame, 32 MB a frame. A frame that cannot be
/// read is handed over in its place with the error, after every frame
/// before it, and ends the range.
///
/// One consumer thread calls next(); destroying the reader at any point
/// stops the threads once the frames they are decoding are done.
class TrFrameReader {
public:
    /// Starts reading frames `from` to `to` of `sequence`, backward when
    /// `to` < `from`, on `decoders` threads. `copies` and `decoders` are at
    /// least 1, `ahead` at least `decoders`.
    TrFrameReader(const TrDiskSequence& sequence, int from, int to, int copies, int ahead,
                  int decoders = 1);
    /// Stops the threads and frees the frames not taken.
    ~TrFrameReader();
    TrFrameReader(const TrFrameReader&) = delete;
    TrFrameReader& operator=(const TrFrameReader&) = delete;

    /// Waits for the next frame of the range and moves it into `out`.
    /// False once the range, or a frame that failed, has been handed over.
    bool next(TrReadFrame& out);

    /// Seconds the threads have spent decoding and copying frames, summed.
    double getDecodeSeconds() const;
    /// Seconds next() has spent waiting for the threads. Decoding that
    /// overlapped other work is the decode time less this.
    double getWaitSeconds() const { return waitSeconds; }
    /// Frames the threads have read so far, failed ones included.
    int getFramesRead() const;
    int getCopies() const { return copies; }

private:
    void stop();
    void decodeFrames();
    void readOne(size_t k, TrReadFrame& out);

    /// In range order.
    std::vector<std::string> paths;
    int from;
    int direction;
    int copies;
    size_t ahead;

    mutable std::mutex mutex;
    std::condition_variable changed;
    /// Decoded frames not yet taken, by their place in the range.
    std::map<size_t, TrReadFrame> done;
    /// The next place to decode and the next to hand over.
    size_t claimed = 0;
    size_t taken = 0;
    /// One past the last place to hand over: the range's end, or the first
    /// frame that failed.
    size_t limit;
    /// The owner is going; the threads stop claiming frames.
    bool stopping = false;
    /// A failed frame, or the end, has been handed over.
    bool over = false;
    double decodeSeconds = 0;
    int framesRead = 0;
    /// The consumer's alone.
    double waitSeconds = 0;
    /// Started last, once everything above is set.
    std::vector<std::thread> threads;
};
