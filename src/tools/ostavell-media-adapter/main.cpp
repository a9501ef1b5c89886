// ostavell-media-adapter: the media players on the session bus, for OstaVell.
//
//   ostavell-media-adapter stream [--no-diff] [--micros] [--debounce=MS] [--pin=BUSNAME]
//       one JSON line per change of the player it reports, until its output is closed
//   ostavell-media-adapter [--player=BUSNAME] send N | seek MICROS | shuffle N | repeat N
//       one command to that player, or to the one the stream would report
//
// send: 0 play, 1 pause, 2 play/pause, 3 stop, 4 next, 5 previous. shuffle: 1 off, 2 albums,
// 3 songs. repeat: 1 off, 2 one, 3 all.
#include "VellHost/Media/MprisPlayers.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QSocketNotifier>
#include <QTimer>

#include <cstdio>
#include <optional>
#include <unistd.h>

#include "MediaAdapterStream.h"

using namespace vell;

namespace {

QString option(QStringList& arguments, QLatin1String name) {
    for (qsizetype i = 0; i < arguments.size(); ++i) {
        if (arguments[i].startsWith(name + u'=')) {
            const QString value = arguments[i].mid(name.size() + 1);
            arguments.removeAt(i);
            return value;
        }
    }
    return {};
}

struct Command {
    MprisPlayers::Command command;
    qint64 value = 0;
};

std::optional<Command> commandOf(const QString& verb, const QString& argument) {
    bool ok = false;
    const qint64 number = argument.toLongLong(&ok);
    if (!ok)
        return std::nullopt;
    using C = MprisPlayers::Command;
    if (verb == u"send") {
        static constexpr C sends[] = {C::play, C::pause, C::togglePlayPause, C::stop, C::next, C::previous};
        if (number < 0 || number > 5)
            return std::nullopt;
        return Command{sends[number]};
    }
    if (verb == u"seek")
        return Command{C::seek, number};
    if (verb == u"shuffle" && number >= 1 && number <= 3)
        return Command{C::shuffle, number == 1 ? 0 : 1};
    if (verb == u"repeat" && number >= 1 && number <= 3)
        return Command{C::loop, number - 1};
    return std::nullopt;
}

int usage() {
    std::fputs(
        "usage: ostavell-media-adapter stream [--debounce=MS] [--pin=BUSNAME]\n"
        "       ostavell-media-adapter [--player=BUSNAME] send N | seek MICROS | shuffle N | repeat N\n",
        stderr);
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QStringList arguments = app.arguments().mid(1);
    const QString pin = option(arguments, QLatin1String("--pin"));
    const QString target = option(arguments, QLatin1String("--player"));
    const QString debounce = option(arguments, QLatin1String("--debounce"));
    arguments.removeAll(QStringLiteral("--no-diff"));
    arguments.removeAll(QStringLiteral("--micros"));
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        std::fputs("ostavell-media-adapter: no session bus\n", stderr);
        return 1;
    }
    MprisPlayers players(bus);

    if (arguments.size() == 1 && arguments[0] == u"stream") {
        // The reader holds our input open and never writes: its end is the reader's end,
        // even when it died without a word.
        QSocketNotifier input(STDIN_FILENO, QSocketNotifier::Read);
        QObject::connect(&input, &QSocketNotifier::activated, &app, [&input] {
            char byte;
            if (::read(STDIN_FILENO, &byte, 1) <= 0) {
                input.setEnabled(false);
                QCoreApplication::quit();
            }
        });
        MediaAdapterStream stream(players, debounce.isEmpty() ? 100 : debounce.toInt(), pin);
        players.start();
        return app.exec();
    }
    if (arguments.size() != 2)
        return usage();
    const std::optional<Command> command = commandOf(arguments[0], arguments[1]);
    if (!command)
        return usage();
    int status = 1;
    const auto run = [&] {
        const std::optional<qsizetype> chosen = MprisChoice::choose(players.players(), target);
        // A named player that is gone gets nothing: the command was meant for it alone.
        if (chosen && (target.isEmpty() || players.players()[*chosen].busName == target))
            status = players.send(players.players()[*chosen].busName, command->command, command->value, true)
                         ? 0
                         : 1;
        app.quit();
    };
    QObject::connect(&players, &MprisPlayers::ready, &app, run, Qt::SingleShotConnection);
    QTimer::singleShot(5000, &app, &QCoreApplication::quit);
    players.start();
    app.exec();
    return status;
}
