#pragma once

#include "VellActionRouter/ActionGrant.h"
#include "VellActionRouter/ActionRunSummary.h"
#include "VellPluginSDK/Json/JsonFile.h"

#include <QList>
#include <QString>

#include <optional>

namespace vell {

// The router's two files, "action-grants-v1.json" and "action-history-v1.json", directly in
// one directory. Reads are bounded before anything is parsed; writes replace a file
// atomically or leave it as it was. Nothing here throws: each operation answers its result or
// the reason it has none.
class ActionRouterFiles final {
public:
    static constexpr qint64 maximumGrantsBytes = 1048576;
    static constexpr qint64 maximumHistoryBytes = 262144;
    static constexpr qsizetype maximumGrants = 2048;

    explicit ActionRouterFiles(QString directory);

    const QString& directory() const { return m_directory; }
    QString grantsPath() const;
    QString historyPath() const;

    // Empty list for a missing file; nothing at all when the file exists and can't be used
    // (unreadable, too large, not a list of grants, too many, or two grants with one id).
    std::optional<QList<ActionGrant>> loadGrants() const;
    // Everything the file holds, or nothing when it is missing, too large or undecodable.
    std::optional<QList<ActionRunSummary>> loadHistory() const;

    FileResult saveGrants(const QList<ActionGrant>& grants) const;
    FileResult saveHistory(const QList<ActionRunSummary>& history) const;

private:
    QString m_directory;
};

} // namespace vell
