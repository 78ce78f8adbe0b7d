#include "api/TavrixAPI.h"
#include "api/TavrixAPIImpl.h"

// The library's only exported entry points. A constructor that throws frees
// its memory through `new` itself, and the exception reaches the host.

extern "C" TAVRIX_EXPORT TavrixAPI* createTavrixAPIInstance() {
    return new TavrixAPIImpl;
}

extern "C" TAVRIX_EXPORT void releaseTavrixAPIInstance(TavrixAPI* api) {
    delete api;
}
