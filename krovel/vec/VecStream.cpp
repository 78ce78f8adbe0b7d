#include "krovel/vec/VecStream.h"

#include <istream>

namespace Krovel {

bool _readElements(std::istream& is, double* out, int n) {
    is >> std::ws;
    const bool barred = is.peek() == '|';
    if (barred) {
        is.get();
    }
    for (int i = 0; i < n && is; ++i) {
        is >> out[i];
    }
    if (barred && is) {
        is >> std::ws;
        if (is.get() != '|') {
            is.setstate(std::ios::failbit);
        }
    }
    // A bare form at the end of the input leaves eofbit set; that is still a
    // complete value, so only failbit counts.
    return !is.fail();
}

} // namespace Krovel
