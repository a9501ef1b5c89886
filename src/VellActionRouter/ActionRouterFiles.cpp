#include "VellActionRouter/ActionRouterFiles.h"

#include "VellPluginSDK/ModuleProblem.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSaveFile>
#include <QSet>

namespace vell {

namespace {

template <typename T> std::optional<QList<T>> decodeList(const QByteArray& bytes) {
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError || !document.isArray())
        return std::nullopt;
    const QJsonArray array = document.array();
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
    QJsonArray array;
    for (const T& item : items)
        array.append(item.toJson());
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
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
    const QString path = grantsPath();
    if (!QFile::exists(path))
        return QList<ActionGrant>();
    const std::optional<QByteArray> bytes = readBounded(path, maximumGrantsBytes);
    if (!bytes)
        return std::nullopt;
    std::optional<QList<ActionGrant>> grants = decodeList<ActionGrant>(*bytes);
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
    const std::optional<QByteArray> bytes = readBounded(historyPath(), maximumHistoryBytes);
    if (!bytes)
        return std::nullopt;
    return decodeList<ActionRunSummary>(*bytes);
}

std::optional<QString> ActionRouterFiles::saveGrants(const QList<ActionGrant>& grants) const {
    return write(grantsPath(), encodeList(grants));
}

std::optional<QString> ActionRouterFiles::saveHistory(const QList<ActionRunSummary>& history) const {
    return write(historyPath(), encodeList(history));
}

std::optional<QByteArray> ActionRouterFiles::readBounded(const QString& path, qint64 limit) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    // One byte beyond the limit tells an oversized file from one exactly at it, without
    // reading a file of any size into memory.
    QByteArray bytes = file.read(limit + 1);
    if (bytes.size() > limit || file.error() != QFileDevice::NoError)
        return std::nullopt;
    return bytes;
}

std::optional<QString> ActionRouterFiles::write(const QString& path, const QByteArray& bytes) const {
    if (!QDir().mkpath(m_directory))
        return QStringLiteral("Could not create the folder %1.").arg(m_directory);
    QSaveFile file(path);
    file.setDirectWriteFallback(false);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit())
        return file.errorString();
    return std::nullopt;
}

} // namespace vell
