#pragma once

#include <cstdint>

namespace Orvane {

class SmartObject_base;

/// A record that outlives its object and learns of its death: `object` is
/// cleared when the object is destroyed. Whoever installs the record owns it.
struct SmartWeakHandle {
    SmartObject_base* object = nullptr;
};

/// An object kept alive by counted references (SmartPtr).
///
/// A new object has count 0 and is destroyed, through its virtual
/// destructor, only by the release that takes the count from 1 to 0, so a
/// creator takes a reference at once. Objects so released must come from
/// `new`. The count belongs to the object: a copy starts at 0 and assignment
/// leaves it alone. Counts are plain integers, for one thread at a time.
class SmartObject_base {
public:
    SmartObject_base() = default;
    SmartObject_base(const SmartObject_base& other);
    SmartObject_base& operator=(const SmartObject_base& other);
    /// Clears the installed weak handle, if any.
    virtual ~SmartObject_base();

    /// Takes a reference.
    void ref() { ++refCount; }
    /// Releases a reference; the last one destroys the object. Releasing an
    /// object nobody holds throws IllegalArgumentException
    /// "SmartObject_base::unref" and changes nothing.
    void unref();
    uint32_t getRefCount() const { return refCount; }

    /// Installs `handle` (not owned) and points it at this object; a
    /// previously installed record is cleared first. Null uninstalls.
    void setWeakHandle(SmartWeakHandle* handle);
    SmartWeakHandle* getWeakHandle() const { return weakHandle; }

private:
    void clearWeakHandle();

    SmartWeakHandle* weakHandle = nullptr;
    uint32_t refCount = 0;
};

/// The base that shared model objects derive from (virtually).
class SmartObject : public virtual SmartObject_base {};

/// Holds one counted reference on a SmartObject_base-derived T, or nothing.
template <class T> class SmartPtr {
public:
    SmartPtr() = default;
    SmartPtr(T* p) { *this = p; }
    SmartPtr(const SmartPtr& other) { *this = other.held; }
    SmartPtr(SmartPtr&& other) noexcept : held(other.held) { other.held = nullptr; }
    ~SmartPtr() { *this = nullptr; }

    /// Takes `p` before releasing the old object, so an old object that
    /// alone keeps `p` alive cannot take it down; the same pointer again does
    /// nothing.
    SmartPtr& operator=(T* p) {
        if (p == held)
            return *this;
        if (p != nullptr)
            part(p)->ref();
        T* old = held;
        held = p;
        // The pointer is already updated, so a destructor that reaches back
        // here sees the new value.
        if (old != nullptr)
            part(old)->unref();
        return *this;
    }
    SmartPtr& operator=(const SmartPtr& other) { return *this = other.held; }
    SmartPtr& operator=(SmartPtr&& other) noexcept {
        if (this != &other) {
            T* old = held;
            held = other.held;
            other.held = nullptr;
            if (old != nullptr)
                part(old)->unref();
        }
        return *this;
    }

    T* get() const { return held; }
    T* operator->() const { return held; }
    T& operator*() const { return *held; }
    explicit operator bool() const { return held != nullptr; }
    bool operator==(const SmartPtr& other) const { return held == other.held; }
    bool operator!=(const SmartPtr& other) const { return held != other.held; }

private:
    static SmartObject_base* part(T* p) {
        return const_cast<SmartObject_base*>(static_cast<const SmartObject_base*>(p));
    }

    T* held = nullptr;
};

} // namespace Orvane
