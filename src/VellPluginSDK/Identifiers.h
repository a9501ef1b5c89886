#pragma once

#include <QList>
#include <QSet>
#include <QStringView>

namespace vell::Identifiers {

// "^[A-Za-z][A-Za-z0-9_]{0,63}$": state keys, the ids of settings, actions, feeds and view
// components, parameter names, action and channel ids.
bool isKey(QStringView text);

// "^[a-z][a-z0-9]*(\.[a-z][a-z0-9-]*)+$": module, plugin and peer ids, the reverse-domain form.
// The length limit is the caller's, since it differs between records.
bool isID(QStringView text);

// Whether no two records carry the same identifier in the field id.
template <typename T, typename Id> bool distinct(const QList<T>& records, Id T::*id) {
    QSet<Id> seen;
    for (const T& record : records) {
        if (seen.contains(record.*id))
            return false;
        seen.insert(record.*id);
    }
    return true;
}

} // namespace vell::Identifiers
