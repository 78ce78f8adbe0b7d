#pragma once

#include "base/Array.h"
#include "base/SafeObject.h"

#include <memory>
#include <type_traits>

namespace Orvane {

/// One connection of a signal: calls a member of its target while both
/// live. The signal owns its patches; targets and connection handles only
/// watch them.
class SignalPatch_base : public virtual SafeObject {
public:
    ~SignalPatch_base() override = default;
    // The safe-object unlinking stays reachable beside the patch's own.
    using SafeObject_base::disconnect;
    /// Calls the target, or does nothing once the target died or the patch
    /// was disconnected.
    virtual void call() = 0;
    /// Makes the patch inert; it stays in its signal's list.
    virtual void disconnect() = 0;
};

/// A patch calling `method` on a T. A virtual method is dispatched
/// virtually.
template <class T> class SignalPatch : public SignalPatch_base {
public:
    using Method = void (T::*)();

    SignalPatch(T* target, Method method) : target(target), method(method) {}

    void call() override {
        checkobj();
        target.checkobj();
        T* object = target.get();
        if (object == nullptr)
            return;
        target.getSafeObject()->checkobj();
        (object->*method)();
    }

    void disconnect() override {
        if (target.get() != nullptr)
            target = nullptr;
    }

    T* getTarget() const { return target.get(); }

private:
    SafePtr<T> target;
    Method method;
};

/// The handle `Signal::connect` returns. It outlives its patch harmlessly:
/// once the signal is gone, disconnect() does nothing.
class SignalConnection {
public:
    SignalConnection() = default;
    explicit SignalConnection(SignalPatch_base* patch) : patch(patch) {}

    /// Makes the patch inert if it still exists.
    void disconnect();
    /// The patch, or null once its signal was destroyed.
    SignalPatch_base* getPatch() const { return patch.get(); }

private:
    SafePtr<SignalPatch_base> patch;
};

/// A notification without arguments: emitting it calls every connected
/// member whose target still lives, in connection order.
///
/// Connections are not copied: a copy of a signal starts with none, and
/// assignment keeps the signal's own.
class Signal {
public:
    Signal() = default;
    Signal(const Signal&) {}
    Signal& operator=(const Signal&) { return *this; }
    /// Destroys the patches; their connection handles become empty.
    ~Signal();

    /// Connects `method` of `target`; a null target gives an inert patch.
    /// T is taken from the method, so a derived object can be connected to a
    /// base-class member. Every call appends a patch: slots of inert patches
    /// are never reused.
    template <class T>
    SignalConnection connect(typename std::common_type<T>::type* target, void (T::*method)()) {
        std::unique_ptr<SignalPatch<T>> patch(new SignalPatch<T>(target, method));
        patches.append(patch.get());
        return SignalConnection(patch.release());
    }

    /// Calls every live patch. Patches connected by a call are called in the
    /// same emission.
    void operator()();

    /// Patches made so far, inert ones included.
    int getPatchCount() const { return patches.getCount(); }

private:
    Array<SignalPatch_base*> patches;
};

/// The self-test's target: receive() writes "signal received." to standard
/// error.
class SignalRecipient : public virtual SafeObject {
public:
    void receive();
};

/// Connects a recipient to a signal and emits it once, printing the
/// recipient's line.
void testSignal();

} // namespace Orvane
