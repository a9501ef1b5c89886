#include "VellActionRouter/ActionRouterFiles.h"

#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSet>

namespace vell {

namespace {

template <typename T> std::optional<QList<T>> decodeList(const JsonContents& contents) {
    if (!contents.read() || !contents.document.isArray())
        return std::nullopt;
    const QJsonArray array = contents.document.array();
    QList<T> items;
    items.reserve(array.size());
    try {
        for (const QJsonValue& item : array)
            items.append(T::fromJson(item));
    } catch (const ModuleProblem&) {
        return std::nullopt;
    }
    return items;
}

template <typename T> QByteArray encodeList(const QList<T>& items) {
    QList<QByteArray> encoded;
    encoded.reserve(items.size());
    for (const T& item : items)
        encoded.append(item.encoded());
    return JsonWriter::encodeArray(encoded);
}

} // namespace

ActionRouterFiles::ActionRouterFiles(QString directory)
    : m_directory(std::move(directory)) {}

QString ActionRouterFiles::grantsPath() const {
    return QDir(m_directory).filePath(QStringLiteral("action-grants-v1.json"));
}

QString ActionRouterFiles::historyPath() const {
    return QDir(m_directory).filePath(QStringLiteral("action-history-v1.json"));
}

std::optional<QList<ActionGrant>> ActionRouterFiles::loadGrants() const {
    const JsonContents contents = JsonFile::read(grantsPath(), maximumGrantsBytes);
    if (contents.missing())
        return QList<ActionGrant>();
    std::optional<QList<ActionGrant>> grants = decodeList<ActionGrant>(contents);
    if (!grants || grants->size() > maximumGrants)
        return std::nullopt;
    QSet<QString> ids;
    for (const ActionGrant& grant : *grants) {
        if (ids.contains(grant.id()))
            return std::nullopt;
        ids.insert(grant.id());
    }
    return grants;
}

std::optional<QList<ActionRunSummary>> ActionRouterFiles::loadHistory() const {
    return decodeList<ActionRunSummary>(JsonFile::read(historyPath(), maximumHistoryBytes));
}

FileResult ActionRouterFiles::saveGrants(const QList<ActionGrant>& grants) const {
    return JsonFile::write(grantsPath(), encodeList(grants));
}

FileResult ActionRouterFiles::saveHistory(const QList<ActionRunSummary>& history) const {
    return JsonFile::write(historyPath(), encodeList(history));
}

} // namespace vell
