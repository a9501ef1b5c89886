#include "OstaVell/Support/FileManagerReveal.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFileInfo>
#include <QUrl>

namespace vell {

void FileManagerReveal::showItems(const QStringList& paths,
                                  const std::function<void(const QString& error)>& finished) {
    QStringList uris;
    for (const QString& path : paths)
        uris.append(QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString(QUrl::FullyEncoded));

    QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(service), QLatin1String(path),
                                                       QLatin1String(interface), QStringLiteral("ShowItems"));
    // No startup notification id: the request comes from a click in our own window, which the
    // desktop already knows about.
    call << uris << QString();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        if (finished)
            finished(QStringLiteral("There is no session bus."));
        return;
    }
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call));
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, watcher,
                     [finished](QDBusPendingCallWatcher* done) {
                         const QDBusPendingReply<> reply = *done;
                         if (finished)
                             finished(reply.isError() ? reply.error().message() : QString());
                         done->deleteLater();
                     });
}

} // namespace vell
