#include "VellPluginSDK/ReferenceTime.h"

#include <QDateTime>

namespace vell::ReferenceTime {

double now() {
    return double(QDateTime::currentMSecsSinceEpoch()) / 1000 - epoch;
}

} // namespace vell::ReferenceTime
