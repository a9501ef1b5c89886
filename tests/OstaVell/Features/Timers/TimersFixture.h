#pragma once

// A timer manager on a defaults file of the test's own, with a clock the test moves. Relaunching
// builds both afresh from the file, as the next start of the app would.

#include "OstaVell/Features/Timers/TimerManager.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDateTime>
#include <QFile>
#include <QTemporaryDir>

#include <memory>

namespace vell::test {

struct TimersFixture {
    // 2026-01-01 00:00:00 UTC.
    static constexpr qint64 startEpoch = 1767225600;

    QTemporaryDir folder;
    QDateTime now = QDateTime::fromSecsSinceEpoch(startEpoch, Qt::UTC);
    TimerBanner::Programs programs;
    std::unique_ptr<UserDefaults> defaults;
    std::unique_ptr<TimerManager> manager;

    QString path() const { return folder.filePath(QStringLiteral("OstaVell/OstaVell.conf")); }

    TimerManager& launch() {
        manager.reset();
        defaults = std::make_unique<UserDefaults>(path());
        manager = std::make_unique<TimerManager>(
            *defaults, [this] { return now; }, programs);
        return *manager;
    }

    void advance(double seconds) { now = now.addMSecs(qint64(seconds * 1000)); }

    // A key as the file on disk holds it. Read by hand: QSettings objects of one process share
    // what they read, and would answer from memory.
    QString stored(const QString& key) const {
        const QList<QByteArray> lines = fileBytes().split('\n');
        for (const QByteArray& line : lines)
            if (line.startsWith(key.toUtf8() + '='))
                return QString::fromUtf8(line.mid(key.size() + 1));
        return QStringLiteral("<absent>");
    }

    QByteArray fileBytes() const {
        QFile file(path());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
};

} // namespace vell::test
