#include "base/SmartObject.h"

#include "base/Exception.h"

namespace Orvane {

SmartObject_base::SmartObject_base(const SmartObject_base&) {}

SmartObject_base& SmartObject_base::operator=(const SmartObject_base&) {
    return *this;
}

SmartObject_base::~SmartObject_base() {
    clearWeakHandle();
}

void SmartObject_base::unref() {
    // Without this check the count would wrap and the object would never die.
    if (refCount == 0)
        throw IllegalArgumentException("SmartObject_base::unref");
    if (--refCount > 0)
        return;
    clearWeakHandle();
    delete this;
}

void SmartObject_base::setWeakHandle(SmartWeakHandle* handle) {
    clearWeakHandle();
    weakHandle = handle;
    if (handle != nullptr)
        handle->object = this;
}

void SmartObject_base::clearWeakHandle() {
    if (weakHandle == nullptr)
        return;
    weakHandle->object = nullptr;
    weakHandle = nullptr;
}

} // namespace Orvane
