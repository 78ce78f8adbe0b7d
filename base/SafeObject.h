#pragma once

#include "base/Array.h"
#include "base/Exception.h"

#include <cstdint>
#include <type_traits>

namespace Orvane {

/// An object that can be linked with peers which are told when it dies.
///
/// Links are mutual: if A lists B, B lists A, and each side lists the other
/// at most once. A destroyed object keeps a dead mark, so later use of it is
/// reported on standard error by checkobj() rather than stopped. Links are
/// never copied: a copy starts unlinked and assignment keeps the target's own
/// links.
class SafeObject_base {
public:
    SafeObject_base() = default;
    SafeObject_base(const SafeObject_base& other);
    SafeObject_base& operator=(const SafeObject_base& other);

    /// Unlinks every peer, telling each through deleting(), then marks the
    /// object dead. A peer that throws while being told ends the program.
    virtual ~SafeObject_base();

    /// Notice that the linked object `dying` is being destroyed. The base
    /// does nothing.
    virtual void deleting(SafeObject_base* dying);

    /// Writes "SafeObject_base::checkobj failed" to standard error when the
    /// object is dead or was never constructed; never throws.
    void checkobj() const;

    /// Links this object and `other` both ways; null does nothing.
    void connect(SafeObject_base* other);

    /// Cuts the link with `other` on both sides; null or an unlinked object
    /// does nothing. While locked, entries are cleared in place so that a
    /// walk over the peers is not disturbed.
    void disconnect(SafeObject_base* other);

    void lock();
    /// When the last lock goes, the entries cleared meanwhile are removed.
    void unlock();

    /// The linked objects in link order; an entry is null only while locked.
    const Array<SafeObject_base*>& getPeers() const { return peers; }
    uint32_t getLockCount() const { return lockCount; }

private:
    static constexpr uint32_t alive = 0xCAFEBABE;
    static constexpr uint32_t dead = 0xDECAFBAD;

    uint32_t lockCount = 0;
    Array<SafeObject_base*> peers;
    uint32_t magic = alive;
};

/// The base that model objects derive from (virtually) to be watchable by
/// SafePtr.
class SafeObject : public virtual SafeObject_base {};

/// The untyped part of a safe pointer: a safe object linked with the object it
/// watches, so that the object's death clears it.
class SafePtr_base : public virtual SafeObject_base {
public:
    SafePtr_base() = default;
    SafePtr_base(const SafePtr_base& other) = delete;
    SafePtr_base& operator=(const SafePtr_base& other) = delete;
    ~SafePtr_base() override;

    /// Clears the held pointer when `dying` is the watched object.
    void deleting(SafeObject_base* dying) override;

    /// The safe-object part of the watched object, or null.
    SafeObject_base* getSafeObject() const { return object; }

protected:
    /// Unlinks from the watched object, then watches `target` (whose typed
    /// address is `address`), linking with it unless null.
    void watch(SafeObject_base* target, void* address);
    void* getAddress() const { return address; }

private:
    // The safe-object part is kept apart from the typed address: while the
    // object dies its derived parts are gone, so the part cannot be
    // recomputed from the typed pointer through a virtual base.
    SafeObject_base* object = nullptr;
    void* address = nullptr;
};

/// A non-owning pointer that becomes null by itself when its object is
/// destroyed.
///
/// T is normally derived from SafeObject_base; a polymorphic T that is not
/// (an interface implemented by a safe object) is reached by a cross cast,
/// and an object without a safe-object part is refused with
/// IllegalArgumentException "SafePtr: object is not a SafeObject".
/// Access does not check the object: callers that may hold a stale pointer
/// call checkobj() on the pointer and on the object before use.
template <class T> class SafePtr : public SafePtr_base {
public:
    SafePtr() = default;
    SafePtr(T* p) { *this = p; }
    SafePtr(const SafePtr& other) : SafeObject_base(), SafePtr_base() { *this = other.get(); }
    ~SafePtr() override = default;

    SafePtr& operator=(T* p) {
        watch(safePart(p), const_cast<void*>(static_cast<const void*>(p)));
        return *this;
    }
    SafePtr& operator=(const SafePtr& other) { return *this = other.get(); }

    /// The held object; null after it died.
    T* get() const { return static_cast<T*>(getAddress()); }
    T* operator->() const { return get(); }
    T& operator*() const { return *get(); }
    explicit operator bool() const { return get() != nullptr; }

private:
    static SafeObject_base* safePart(T* p) {
        if (p == nullptr)
            return nullptr;
        if constexpr (std::is_base_of<SafeObject_base, T>::value) {
            return const_cast<SafeObject_base*>(static_cast<const SafeObject_base*>(p));
        } else {
            static_assert(std::is_polymorphic<T>::value,
                          "SafePtr needs a safe object or a polymorphic interface");
            auto* part = dynamic_cast<const SafeObject_base*>(p);
            if (part == nullptr)
                throw IllegalArgumentException("SafePtr: object is not a SafeObject");
            return const_cast<SafeObject_base*>(part);
        }
    }
};

} // namespace Orvane
