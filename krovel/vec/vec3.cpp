#include "krovel/vec/vec3.h"

#include "krovel/vec/VecStream.h"

#include <istream>
#include <ostream>

std::ostream& operator<<(std::ostream& os, const vec3& v) {
    return os << "| " << v.x << " " << v.y << " " << v.z << " |";
}

std::istream& operator>>(std::istream& is, vec3& v) {
    double e[3];
    if (Krovel::_readElements(is, e, 3)) {
        v = vec3(e[0], e[1], e[2]);
    }
    return is;
}
