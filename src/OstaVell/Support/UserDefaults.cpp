#include "OstaVell/Support/UserDefaults.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QJsonValue>
#include <QLockFile>
#include <QStandardPaths>
#include <QStringList>

#include <sys/stat.h>

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
    // QSettings read the file as it was made; a status other than no error now is a file that
    // exists and could not be read (an absent file is no error).
    m_readFailed = m_settings.status() == QSettings::AccessError;
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

bool UserDefaults::setValues(const QVariantMap& values) {
    checkForOutsideChange();
    if (m_readFailed) {
        qCWarning(lcSettings, "not writing %s: it could not be read", qUtf8Printable(m_filePath));
        return false;
    }
    // QSettings keeps a change it failed to write and writes it with the next one, and its
    // status stays an error once it was one: neither tells whether this write landed. The
    // file does: a successful atomic save replaces it with a new one.
    QVariantMap previous;
    QStringList absent;
    for (auto it = values.cbegin(); it != values.cend(); ++it) {
        if (m_settings.contains(it.key()))
            previous.insert(it.key(), m_settings.value(it.key()));
        else
            absent.append(it.key());
    }
    const QByteArray before = fileIdentity();
    clearAbandonedLock();
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        m_settings.setValue(it.key(),
                            isDocument(it.value()) ? QVariant(documentText(it.value())) : it.value());
    m_settings.sync();
    const QByteArray after = fileIdentity();
    if (after.isEmpty() || after == before) {
        qCWarning(lcSettings, "could not write %s", qUtf8Printable(m_filePath));
        // Put back what the file still holds, so that nothing unsaved is read or written later.
        for (auto it = previous.cbegin(); it != previous.cend(); ++it)
            m_settings.setValue(it.key(), it.value());
        for (const QString& key : std::as_const(absent))
            m_settings.remove(key);
        return false;
    }
    watchFile();
    m_fingerprint = fileFingerprint();
    for (auto it = values.cbegin(); it != values.cend(); ++it)
        emit changed(it.key());
    return true;
}

void UserDefaults::flush() {
    clearAbandonedLock();
    m_settings.sync();
    if (m_settings.status() != QSettings::NoError)
        qCWarning(lcSettings, "could not write %s", qUtf8Printable(m_filePath));
    watchFile();
    m_fingerprint = fileFingerprint();
}

void UserDefaults::clearAbandonedLock() {
    // QSettings writes under a lock file that names its writer. One killed between making that
    // file and filling it leaves it empty, and QSettings takes an empty lock for held until it
    // is 30 seconds old: the next write would wait that long. Filled at once by a live writer,
    // a lock that is still empty after a second is nobody's.
    const QString path = m_filePath + QStringLiteral(".lock");
    const QFileInfo info(path);
    if (!info.exists() || info.size() > 0)
        return;
    QLockFile lock(path);
    lock.setStaleLockTime(1000);
    if (lock.tryLock(1500))
        lock.unlock();
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

QByteArray UserDefaults::fileIdentity() const {
    struct stat status {};
    if (::stat(QFile::encodeName(m_filePath).constData(), &status) != 0)
        return {};
    return QByteArray::number(quint64(status.st_dev)) + ':' + QByteArray::number(quint64(status.st_ino)) +
           ':' + QByteArray::number(qint64(status.st_mtim.tv_sec)) + '.' +
           QByteArray::number(qint64(status.st_mtim.tv_nsec));
}

QByteArray UserDefaults::fileFingerprint() const {
    QFile file(m_filePath);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QCryptographicHash::hash(file.readAll(), QCryptographicHash::Sha256);
}

} // namespace vell
