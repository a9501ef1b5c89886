#pragma once

#include <QByteArray>
#include <QFileSystemWatcher>
#include <QLoggingCategory>
#include <QObject>
#include <QSettings>
#include <QString>
#include <QVariant>
#include <QVariantMap>

Q_DECLARE_LOGGING_CATEGORY(lcSettings)

namespace vell {

// The user defaults: one INI file read through QSettings, with typed reads that fall back
// to the caller's default and one change signal. Every write is flushed at once, so another
// process and the next launch see it; changes made by another process come back through a
// file watcher as a change with an empty key.
class UserDefaults final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(UserDefaults)

public:
    static UserDefaults* instance();
    static QString defaultFilePath();

    explicit UserDefaults(const QString& filePath, QObject* parent = nullptr);

    QString filePath() const { return m_filePath; }

    bool contains(const QString& key) const;
    bool boolValue(const QString& key, bool fallback) const;
    double doubleValue(const QString& key, double fallback) const;
    QString stringValue(const QString& key, const QString& fallback = {}) const;
    // A document's text as UTF-8 bytes, empty when the key is absent.
    QByteArray dataValue(const QString& key) const;

    // Byte arrays, JSON values, lists and maps are documents and are stored as compact JSON
    // text; everything else goes to QSettings as it is.
    void setValue(const QString& key, const QVariant& value);
    void remove(const QString& key);
    // Several keys in one write, so that a kill leaves all of them or none. True once they are
    // on disk; after a failed write the keys read as before and nothing is retried later.
    bool setValues(const QVariantMap& values);
    // The file was there at start and could not be read. QSettings then writes nothing, and
    // nothing read from this object stands for what the file holds.
    bool readFailed() const { return m_readFailed; }

signals:
    // After a write of ours with its key, or with an empty key when the file changed
    // beneath us.
    void changed(const QString& key);

private:
    void flush();
    void clearAbandonedLock();
    void watchFile();
    void checkForOutsideChange();
    QByteArray fileFingerprint() const;
    // Which file is on disk now: an atomic save always puts a new one in place.
    QByteArray fileIdentity() const;

    QString m_filePath;
    mutable QSettings m_settings;
    QFileSystemWatcher m_watcher;
    // The file as we last wrote or read it. A watcher event that finds the same content is
    // the echo of our own write and is not announced again.
    QByteArray m_fingerprint;
    bool m_readFailed = false;
};

} // namespace vell
