#include "base/Signal.h"

#include <cstdio>

namespace Orvane {

void SignalConnection::disconnect() {
    if (SignalPatch_base* p = patch.get())
        p->disconnect();
}

Signal::~Signal() {
    for (int i = 0; i < patches.getCount(); ++i)
        delete patches[i];
    patches.clear();
}

void Signal::operator()() {
    // A call may connect more patches, reallocating the list: index afresh
    // and re-read the count each time.
    for (int i = 0; i < patches.getCount(); ++i) {
        if (SignalPatch_base* patch = patches[i])
            patch->call();
    }
}

void SignalRecipient::receive() {
    std::fputs("signal received.\n", stderr);
}

void testSignal() {
    SignalRecipient recipient;
    Signal signal;
    signal.connect(&recipient, &SignalRecipient::receive);
    signal();
}

} // namespace Orvane
