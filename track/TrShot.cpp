#include "track/TrShot.h"

KrGenMatrix<double> TrShot::getMatrix(int track, float time) {
    KrGenMatrix<double> m;
    getTransform(track, time).getMatrix(m);
    return m;
}
