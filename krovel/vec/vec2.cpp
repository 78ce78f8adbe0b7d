#include "krovel/vec/vec2.h"

#include "krovel/vec/VecStream.h"

#include <istream>
#include <ostream>

std::ostream& operator<<(std::ostream& os, const vec2& v) {
    return os << "| " << v.x << " " << v.y << " |";
}

std::istream& operator>>(std::istream& is, vec2& v) {
    double e[2];
    if (Krovel::_readElements(is, e, 2)) {
        v = vec2(e[0], e[1]);
    }
    return is;
}
