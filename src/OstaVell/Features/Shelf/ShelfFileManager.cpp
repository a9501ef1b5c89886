#include "OstaVell/Features/Shelf/ShelfFileManager.h"

#include "OstaVell/Features/Shelf/ShelfLogging.h"
#include "OstaVell/Support/FileManagerReveal.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDesktopServices>
#include <QFileInfo>
#include <QStringList>

#include <functional>

namespace vell {

namespace {

// Calls the method and, when the bus answers with an error (no such service, a refusal, a time
// out), runs fallback; the main loop carries on meanwhile.
void callOrElse(QDBusMessage call, std::function<void()> fallback) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        fallback();
        return;
    }
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, ShelfFileManager::callTimeoutMs),
                                                QCoreApplication::instance());
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [fallback = std::move(fallback), method = call.member()](QDBusPendingCallWatcher* done) {
                         if (done->isError()) {
                             qCInfo(lcShelfStore, "%s failed (%s); opening instead", qUtf8Printable(method),
                                    qUtf8Printable(done->error().message()));
                             fallback();
                         }
                         done->deleteLater();
                     });
}

} // namespace

void ShelfFileManager::reveal(const QList<QUrl>& files) {
    if (files.isEmpty())
        return;
    QStringList paths;
    for (const QUrl& file : files)
        paths.append(file.toLocalFile());
    FileManagerReveal::showItems(paths, [files](const QString& error) {
        if (error.isEmpty())
            return;
        qCInfo(lcShelfStore, "ShowItems failed (%s); opening instead", qUtf8Printable(error));
        QList<QUrl> folders;
        for (const QUrl& file : files) {
            const QUrl folder = QUrl::fromLocalFile(QFileInfo(file.toLocalFile()).absolutePath());
            if (!folders.contains(folder))
                folders.append(folder);
        }
        open(folders);
    });
}

void ShelfFileManager::preview(const QList<QUrl>& files) {
    if (files.isEmpty())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.gnome.NautilusPreviewer"), QStringLiteral("/org/gnome/NautilusPreviewer"),
        QStringLiteral("org.gnome.NautilusPreviewer"), QStringLiteral("ShowFile"));
    call << files.first().toString(QUrl::FullyEncoded) << 0 << false;
    callOrElse(call, [files] { open(files); });
}

void ShelfFileManager::open(const QList<QUrl>& urls) {
    for (const QUrl& url : urls)
        if (!QDesktopServices::openUrl(url))
            qCInfo(lcShelfStore, "nothing opened %s", qUtf8Printable(url.toString(QUrl::FullyEncoded)));
}

} // namespace vell
