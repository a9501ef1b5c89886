#include "OstaVell/Support/UserDefaults.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QStandardPaths>
#include <QStringList>

Q_LOGGING_CATEGORY(lcSettings, "OstaVell", QtInfoMsg)

namespace vell {

namespace {

QString documentText(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::QByteArray:
        return QString::fromUtf8(value.toByteArray());
    case QMetaType::QJsonDocument:
        return QString::fromUtf8(value.toJsonDocument().toJson(QJsonDocument::Compact));
    case QMetaType::QJsonObject:
        return QString::fromUtf8(QJsonDocument(value.toJsonObject()).toJson(QJsonDocument::Compact));
    case QMetaType::QJsonArray:
        return QString::fromUtf8(QJsonDocument(value.toJsonArray()).toJson(QJsonDocument::Compact));
    case QMetaType::QStringList:
    case QMetaType::QVariantList:
        return QString::fromUtf8(
            QJsonDocument(QJsonArray::fromVariantList(value.toList())).toJson(QJsonDocument::Compact));
    case QMetaType::QVariantMap:
        return QString::fromUtf8(
            QJsonDocument(QJsonObject::fromVariantMap(value.toMap())).toJson(QJsonDocument::Compact));
    default:
        return {};
    }
}

bool isDocument(const QVariant& value) {
    switch (value.typeId()) {
    case QMetaType::QByteArray:
    case QMetaType::QJsonDocument:
    case QMetaType::QJsonObject:
    case QMetaType::QJsonArray:
    case QMetaType::QStringList:
    case QMetaType::QVariantList:
    case QMetaType::QVariantMap:
        return true;
    default:
        return false;
    }
}

} // namespace

UserDefaults* UserDefaults::instance() {
    static UserDefaults* p = new UserDefaults(defaultFilePath());
    return p;
}

QString UserDefaults::defaultFilePath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/OstaVell/OstaVell.conf");
}

UserDefaults::UserDefaults(const QString& filePath, QObject* parent)
    : QObject(parent)
    , m_filePath(filePath)
    , m_settings(filePath, QSettings::IniFormat) {
    m_settings.setAtomicSyncRequired(true);
    const QString folder = QFileInfo(filePath).absolutePath();
    QDir().mkpath(folder);
    // An atomic save replaces the file with a new one, which ends a watch on the old file;
    // the folder's watch sees the replacement and puts the file's watch back.
    m_watcher.addPath(folder);
    watchFile();
    m_fingerprint = fileFingerprint();
    const auto onFileEvent = [this] {
        watchFile();
        checkForOutsideChange();
    };
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, onFileEvent);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, onFileEvent);
}

bool UserDefaults::contains(const QString& key) const {
    return m_settings.contains(key);
}

bool UserDefaults::boolValue(const QString& key, bool fallback) const {
    const QVariant value = m_settings.value(key);
    if (!value.isValid())
        return fallback;
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    const QString text = value.toString().trimmed().toLower();
    if (text == u"true" || text == u"1" || text == u"yes")
        return true;
    if (text == u"false" || text == u"0" || text == u"no")
        return false;
    return fallback;
}

double UserDefaults::doubleValue(const QString& key, double fallback) const {
    const QVariant value = m_settings.value(key);
    if (!value.isValid())
        return fallback;
    if (value.typeId() == QMetaType::Double)
        return value.toDouble();
    bool ok = false;
    const double number = value.toString().trimmed().toDouble(&ok);
    return ok ? number : fallback;
}

QString UserDefaults::stringValue(const QString& key, const QString& fallback) const {
    const QVariant value = m_settings.value(key);
    if (!value.isValid())
        return fallback;
    // The INI reader turns an unquoted value with commas into a list, as a hand-edited file
    // may have it; the text it stood for is the list joined back.
    if (value.typeId() == QMetaType::QStringList)
        return value.toStringList().join(u',');
    if (value.typeId() == QMetaType::QByteArray)
        return QString::fromUtf8(value.toByteArray());
    return value.toString();
}

QByteArray UserDefaults::dataValue(const QString& key) const {
    return stringValue(key).toUtf8();
}

void UserDefaults::setValue(const QString& key, const QVariant& value) {
    checkForOutsideChange();
    m_settings.setValue(key, isDocument(value) ? QVariant(documentText(value)) : value);
    flush();
    emit changed(key);
}

void UserDefaults::remove(const QString& key) {
    checkForOutsideChange();
    m_settings.remove(key);
    flush();
    emit changed(key);
}

void UserDefaults::flush() {
    m_settings.sync();
    if (m_settings.status() != QSettings::NoError)
        qCWarning(lcSettings, "could not write %s", qUtf8Printable(m_filePath));
    watchFile();
    m_fingerprint = fileFingerprint();
}

void UserDefaults::watchFile() {
    if (QFileInfo::exists(m_filePath) && !m_watcher.files().contains(m_filePath))
        m_watcher.addPath(m_filePath);
}

void UserDefaults::checkForOutsideChange() {
    const QByteArray fingerprint = fileFingerprint();
    if (fingerprint == m_fingerprint)
        return;
    m_fingerprint = fingerprint;
    m_settings.sync();
    emit changed(QString());
}

QByteArray UserDefaults::fileFingerprint() const {
    QFile file(m_filePath);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
}

} // namespace vell
