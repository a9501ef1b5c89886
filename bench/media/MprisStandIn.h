#pragma once

#include <QDBusAbstractAdaptor>
#include <QObject>
#include <QVariantMap>

namespace vell {

// The player of the media bench: the smallest MPRIS player there is, in a process of its own,
// whose track changes when the bench asks, so that the moment of its PropertiesChanged is
// known. It also answers Ping with the signal Pong: the bare round trip the bench compares
// against, through the same bus and the same two processes.
class MprisStandIn final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MprisStandIn)

public:
    static constexpr QStringView serverArgument = u"--mpris-stand-in";
    static constexpr QStringView service = u"org.mpris.MediaPlayer2.standin";
    static constexpr QStringView controlInterface = u"app.ostavell.bench.Control";

    MprisStandIn();

    // The server mode: on the session bus, says "ready" on standard output and runs until
    // it is stopped.
    static int serve();

    QVariantMap metadata() const { return m_metadata; }
    void setTitle(const QString& title);
    void pong(const QString& text);

private:
    QVariantMap m_metadata;
};

class MprisRootAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2")
    Q_PROPERTY(QString Identity READ identity)
    Q_PROPERTY(QString DesktopEntry READ desktopEntry)

public:
    explicit MprisRootAdaptor(QObject* player)
        : QDBusAbstractAdaptor(player) {}
    QString identity() const { return QStringLiteral("Stand-in"); }
    QString desktopEntry() const { return QStringLiteral("standin"); }
};

class MprisPlayerAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.mpris.MediaPlayer2.Player")
    Q_PROPERTY(QString PlaybackStatus READ playbackStatus)
    Q_PROPERTY(QVariantMap Metadata READ metadata)
    Q_PROPERTY(qlonglong Position READ position)

public:
    explicit MprisPlayerAdaptor(MprisStandIn* player)
        : QDBusAbstractAdaptor(player)
        , m_player(player) {}
    QString playbackStatus() const { return QStringLiteral("Playing"); }
    QVariantMap metadata() const { return m_player->metadata(); }
    qlonglong position() const { return 0; }

private:
    MprisStandIn* m_player;
};

class BenchControlAdaptor final : public QDBusAbstractAdaptor {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.ostavell.bench.Control")

public:
    explicit BenchControlAdaptor(MprisStandIn* player)
        : QDBusAbstractAdaptor(player)
        , m_player(player) {}

public slots:
    Q_NOREPLY void SetTitle(const QString& title) { m_player->setTitle(title); }
    Q_NOREPLY void Ping(const QString& text) { m_player->pong(text); }

private:
    MprisStandIn* m_player;
};

} // namespace vell
