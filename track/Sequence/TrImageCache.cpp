#include "track/Sequence/TrImageCache.h"

#include "base/Exception.h"
#include "image/Format.h"
#include "image/GenRect.h"

#include <algorithm>
#include <utility>

TrCacheEntry::TrCacheEntry(const TrCacheEntry& other) {
    if (other.entry)
        attach(other.entry, other.cache);
}

TrCacheEntry& TrCacheEntry::operator=(const TrCacheEntry& other) {
    if (other.entry)
        attach(other.entry, other.cache);
    else
        release();
    return *this;
}

void TrCacheEntry::attach(TrCachedImage* e, TrImageCache* c) {
    // The new user is counted first, so re-attaching to the same entry
    // cannot let an evicted entry die in between.
    ++e->users;
    release();
    entry = e;
    cache = c;
}

void TrCacheEntry::release() {
    if (!entry)
        return;
    TrCachedImage* e = entry;
    entry = nullptr;
    cache = nullptr;
    if (--e->users == 0 && e->evicted)
        delete e;
}

Orvane::Image& TrCacheEntry::getImage() const {
    if (!entry)
        throw NullPointerException("TrCacheEntry::getImage");
    return entry->image;
}

void TrCacheEntry::stamp() {
    if (!entry)
        throw NullPointerException("TrCacheEntry::stamp");
    entry->serial = ++cache->clock;
}

void TrCacheEntry::checkSize() {
    if (!entry)
        throw NullPointerException("TrCacheEntry::checkSize");
    cache->checkSize(entry);
}

TrImageCache& TrImageCache::getInstance() {
    static TrImageCache cache;
    return cache;
}

TrImageCache::~TrImageCache() {
    clear();
}

bool TrImageCache::get(const dstring& key, TrCacheEntry& e) {
    auto it = index.find(key);
    if (it == index.end())
        return false;
    e.attach(it->second, this);
    return true;
}

void TrImageCache::put(const dstring& key, const Orvane::Image& img) {
    // Refuse an empty image before an entry exists that could hold it.
    img.getBounds();
    TrCacheEntry temp;
    if (get(key, temp)) {
        TrCachedImage* e = temp.entry;
        e->image = img;
        e->serial = ++clock;
        checkSize(e);
    } else {
        TrCachedImage* e = new TrCachedImage;
        e->key = key;
        e->serial = ++clock;
        e->image = img;
        next.push_back(e);
        index[key] = e;
        checkSize(e);
    }
    purge();
}

void TrImageCache::checkSize(TrCachedImage* e) {
    // An evicted entry no longer counts toward the cache.
    if (e->evicted)
        return;
    const Orvane::GenRect<int>& bounds = e->image.getBounds();
    int64_t bytes = int64_t(bounds.w) * bounds.h * e->image.getFormat().getBytesPerPixel();
    if (bytes == e->size)
        return;
    int64_t grown = bytes - e->size;
    size += grown;
    e->size = bytes;
    if (grown > 0)
        purge();
}

void TrImageCache::setMaxSize(long n) {
    bool shrank = n < maxSize;
    maxSize = n;
    if (shrank)
        purge();
}

void TrImageCache::purge() {
    while (size > maxSize) {
        if (current.empty()) {
            std::swap(current, next);
            std::sort(current.begin(), current.end(), bySerial);
            if (current.empty())
                return;
            threshold = current.back()->serial;
        }
        TrCachedImage* e = current.front();
        current.pop_front();
        if (e->serial > threshold)
            next.push_back(e); // used since the sort: a second chance
        else
            evict(e);
    }
}

void TrImageCache::evict(TrCachedImage* e) {
    index.erase(e->key);
    size -= e->size;
    e->image.clear();
    e->key = dstring();
    // The users count does not save an entry, but a handle still pointing
    // at it keeps the record alive until it lets go.
    if (e->users == 0)
        delete e;
    else
        e->evicted = true;
}

void TrImageCache::clear() {
    std::deque<TrCachedImage*> all;
    all.swap(current);
    all.insert(all.end(), next.begin(), next.end());
    next.clear();
    for (TrCachedImage* e : all)
        evict(e);
}
