#include "base/SafeObject.h"

#include <cstdio>

namespace Orvane {

namespace {

int find(const Array<SafeObject_base*>& list, const SafeObject_base* item) {
    for (int i = 0; i < list.getCount(); ++i)
        if (list[i] == item)
            return i;
    return -1;
}

} // namespace

SafeObject_base::SafeObject_base(const SafeObject_base&) {}

SafeObject_base& SafeObject_base::operator=(const SafeObject_base&) {
    return *this;
}

SafeObject_base::~SafeObject_base() {
    ++lockCount;
    // Peers call back into disconnect(), which only clears entries while we
    // hold the lock, so indices stay valid; the count is re-read in case a
    // peer links anew while being told.
    for (int i = 0; i < peers.getCount(); ++i) {
        SafeObject_base* peer = peers[i];
        if (peer == nullptr)
            continue;
        peer->disconnect(this);
        peer->deleting(this);
    }
    unlock();
    checkobj();
    // The store outlives the object on purpose: it is what checkobj() reads on
    // a destroyed object, so the compiler must not drop it as dead.
    *static_cast<volatile uint32_t*>(&magic) = dead;
    peers.clear();
}

void SafeObject_base::deleting(SafeObject_base*) {
    checkobj();
}

void SafeObject_base::checkobj() const {
    if (*static_cast<const volatile uint32_t*>(&magic) != alive)
        std::fputs("SafeObject_base::checkobj failed\n", stderr);
}

void SafeObject_base::connect(SafeObject_base* other) {
    if (other == nullptr)
        return;
    checkobj();
    if (find(peers, other) < 0)
        peers.append(other);
    other->checkobj();
    if (find(other->peers, this) < 0)
        other->peers.append(this);
}

void SafeObject_base::disconnect(SafeObject_base* other) {
    if (other == nullptr)
        return;
    checkobj();
    bool found = false;
    if (lockCount > 0) {
        for (int i = 0; i < peers.getCount(); ++i) {
            if (peers[i] == other) {
                peers[i] = nullptr;
                found = true;
            }
        }
    } else {
        int i = find(peers, other);
        if (i >= 0) {
            peers.remove(i);
            found = true;
        }
    }
    // The other side finds nothing when it calls back, which ends the
    // exchange.
    if (found)
        other->disconnect(this);
}

void SafeObject_base::lock() {
    checkobj();
    ++lockCount;
}

void SafeObject_base::unlock() {
    checkobj();
    // An unlock without a lock leaves the count at zero rather than wrapping.
    if (lockCount > 0)
        --lockCount;
    if (lockCount > 0)
        return;
    int kept = 0;
    for (int i = 0; i < peers.getCount(); ++i)
        if (peers[i] != nullptr)
            kept++;
    if (kept == peers.getCount())
        return;
    Array<SafeObject_base*> live;
    live.resize(kept);
    int k = 0;
    for (int i = 0; i < peers.getCount(); ++i)
        if (peers[i] != nullptr)
            live[k++] = peers[i];
    peers = live;
}

SafePtr_base::~SafePtr_base() {
    disconnect(object);
    object = nullptr;
    address = nullptr;
}

void SafePtr_base::deleting(SafeObject_base* dying) {
    checkobj();
    if (object == dying) {
        object = nullptr;
        address = nullptr;
    }
}

void SafePtr_base::watch(SafeObject_base* target, void* typed) {
    disconnect(object);
    object = target;
    address = typed;
    if (target != nullptr)
        connect(target);
}

} // namespace Orvane
