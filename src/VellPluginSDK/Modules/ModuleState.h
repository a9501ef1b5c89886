#pragma once

#include <QMap>
#include <QString>

namespace vell {

// A module's state and its configuration: text keys to text values. Kept sorted by key, so
// two equal states always encode to the same bytes.
using ModuleState = QMap<QString, QString>;

} // namespace vell
