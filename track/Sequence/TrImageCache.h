#pragma once

#include "base/dstring.h"
#include "image/Image.h"

#include <cstdint>
#include <deque>
#include <map>
#include <string_view>

class TrImageCache;

/// One entry of the image cache: a decoded image under its key (a file
/// name), the clock value of its last use and the bytes it accounts for.
/// Entries belong to the cache; callers reach them through TrCacheEntry.
struct TrCachedImage {
    dstring key;
    /// The cache clock at the last use.
    uint32_t serial = 0;
    Orvane::Image image;
    /// TrCacheEntry handles referring to the entry.
    int32_t users = 0;
    /// Width x height x bytes per pixel of `image` when last checked.
    int64_t size = 0;
    /// Set when the cache has let go of the entry while handles still
    /// referred to it; the last handle deletes it.
    bool evicted = false;
};

/// A caller's handle on a cache entry. It counts as one user of the entry,
/// but that does not keep the entry in the cache: an entry is evicted while
/// handles still refer to it, its image released. Copy the Image out of the
/// handle to keep the pixels.
class TrCacheEntry {
public:
    TrCacheEntry() = default;
    TrCacheEntry(const TrCacheEntry& other);
    TrCacheEntry& operator=(const TrCacheEntry& other);
    ~TrCacheEntry() { release(); }

    /// True when the handle refers to an entry, evicted or not.
    bool exists() const { return entry != nullptr; }
    /// The entry's image, which the holder may replace (then call
    /// checkSize()). Empty once the entry has been evicted. Throws
    /// NullPointerException "TrCacheEntry::getImage" on an empty handle.
    Orvane::Image& getImage() const;
    /// The entry, or null.
    const TrCachedImage* getEntry() const { return entry; }

    /// Marks a use: the cache clock advances and becomes the entry's serial.
    void stamp();
    /// Accounts for a changed image (see TrImageCache::checkSize).
    void checkSize();

    /// Lets go of the entry; the handle becomes empty.
    void release();

private:
    friend class TrImageCache;
    /// Refers to `e` (taking a user) after letting go of the old entry.
    void attach(TrCachedImage* e, TrImageCache* c);

    TrCachedImage* entry = nullptr;
    TrImageCache* cache = nullptr;
};

/// The process-wide cache of decoded frames, keyed by file name and bounded
/// by the pixel bytes it holds. Eviction is approximately least recently
/// used: entries are swept in the order of their serials, and an entry used
/// since its queue was sorted gets a second chance. One thread at a time.
class TrImageCache {
public:
    static constexpr int64_t defaultMaxSize = 134217728;

    /// The single cache, made on first use and destroyed at exit.
    static TrImageCache& getInstance();

    TrImageCache(const TrImageCache&) = delete;
    TrImageCache& operator=(const TrImageCache&) = delete;

    /// When `key` is cached, points `e` at its entry (the entry gains a
    /// user, the one `e` held before loses one) and returns true; otherwise
    /// returns false and leaves `e` as it was. The serial is not renewed.
    bool get(const dstring& key, TrCacheEntry& e);
    /// Caches `img` under `key`, replacing the image of an existing entry
    /// and renewing its serial, then evicts until the cache fits. An empty
    /// image throws NullPointerException "Image::getBounds" and changes
    /// nothing.
    void put(const dstring& key, const Orvane::Image& img);

    /// Re-measures the entry's image; a grown entry triggers eviction.
    void checkSize(TrCachedImage* e);

    /// A smaller maximum evicts at once; a larger one evicts nothing.
    void setMaxSize(long n);
    long getMaxSize() const { return maxSize; }
    /// The bytes of all cached entries.
    long getSize() const { return size; }
    /// The clock, advanced by every put and stamp.
    uint32_t getClock() const { return clock; }

    /// Evicts every entry, whatever its users; the maximum and the clock
    /// stay. Meant for tests, which share the one cache.
    void clear();

    /// The sort order of the sweep: oldest serial first.
    static bool bySerial(const TrCachedImage* a, const TrCachedImage* b) {
        return a->serial < b->serial;
    }

private:
    friend class TrCacheEntry;

    struct KeyLess {
        bool operator()(const dstring& a, const dstring& b) const {
            return std::string_view(a.c_str(), a.length()) <
                   std::string_view(b.c_str(), b.length());
        }
    };

    TrImageCache() = default;
    ~TrImageCache();

    /// Evicts, oldest first with a second chance, until size <= maximum.
    void purge();
    /// Drops `e` from the index and the size and releases its image; `e`
    /// must already be out of both queues.
    void evict(TrCachedImage* e);

    uint32_t clock = 0;
    std::deque<TrCachedImage*> current;
    std::deque<TrCachedImage*> next;
    uint32_t threshold = 0;
    std::map<dstring, TrCachedImage*, KeyLess> index;
    int64_t size = 0;
    int64_t maxSize = defaultMaxSize;
};
