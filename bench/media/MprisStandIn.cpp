#include "MprisStandIn.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>

#include <cstdio>

namespace vell {

namespace {
const QString path = QStringLiteral("/org/mpris/MediaPlayer2");
} // namespace

MprisStandIn::MprisStandIn() {
    new MprisRootAdaptor(this);
    new MprisPlayerAdaptor(this);
    new BenchControlAdaptor(this);
    setTitle(QStringLiteral("First"));
}

void MprisStandIn::setTitle(const QString& title) {
    m_metadata = {{QStringLiteral("xesam:title"), title},
                  {QStringLiteral("xesam:artist"), QStringList{QStringLiteral("Bench")}},
                  {QStringLiteral("mpris:trackid"),
                   QVariant::fromValue(QDBusObjectPath(QStringLiteral("/t/") + title))},
                  {QStringLiteral("mpris:length"), qlonglong(180'000'000)}};
    QDBusMessage signal = QDBusMessage::createSignal(path, QStringLiteral("org.freedesktop.DBus.Properties"),
                                                     QStringLiteral("PropertiesChanged"));
    signal << QStringLiteral("org.mpris.MediaPlayer2.Player")
           << QVariantMap{{QStringLiteral("Metadata"), m_metadata}} << QStringList();
    QDBusConnection::sessionBus().send(signal);
}

void MprisStandIn::pong(const QString& text) {
    QDBusMessage signal =
        QDBusMessage::createSignal(path, controlInterface.toString(), QStringLiteral("Pong"));
    signal << text;
    QDBusConnection::sessionBus().send(signal);
}

int MprisStandIn::serve() {
    MprisStandIn player;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.registerObject(path, &player, QDBusConnection::ExportAdaptors) ||
        !bus.registerService(service.toString())) {
        std::fprintf(stderr, "media bench: the stand-in player could not join the bus\n");
        return 1;
    }
    std::printf("ready\n");
    std::fflush(stdout);
    return QCoreApplication::exec();
}

} // namespace vell
