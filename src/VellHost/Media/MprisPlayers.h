#pragma once

#include "VellHost/Media/MprisPlayerState.h"

#include <QDBusConnection>
#include <QObject>

#include <functional>

class QDBusMessage;

namespace vell {

// Every MPRIS player on one bus, kept up to date by the players' own signals: names coming
// and going, PropertiesChanged and Seeked. Only names already on the bus are ever addressed,
// and always by their unique owner, so no player is started by asking about it. Nothing is
// polled: the position runs on from the last report at the player's rate.
class MprisPlayers final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MprisPlayers)

public:
    enum class Command { play, pause, togglePlayPause, stop, next, previous, seek, shuffle, loop };

    explicit MprisPlayers(const QDBusConnection& bus, QObject* parent = nullptr);
    ~MprisPlayers() override;

    // Wall clock in microseconds since 1970; tests may hold it still.
    std::function<qint64()> clock;

    void start();
    void stop();
    bool isStarted() const { return m_started; }
    // True once the players present at start have all answered (or failed to).
    bool isReady() const { return m_started && m_pendingLoads == 0; }

    const QList<MprisPlayerState>& players() const { return m_players; }
    const MprisPlayerState* find(const QString& busName) const;
    // Reads a player's properties again, for a reader that checks on players now and then.
    void reload(const QString& busName);

    // Sends one command to a player's owner; false when the player is unknown. seek takes the
    // position in microseconds, shuffle 0 or 1, loop 0, 1, 2 for "None", "Track", "Playlist".
    // The call's answer is not awaited unless wait is true (a one-shot command process).
    bool send(const QString& busName, Command command, qint64 value = 0, bool wait = false);

signals:
    void changed();
    void ready();

private slots:
    void onNameOwnerChanged(const QString& name, const QString& oldOwner, const QString& newOwner);
    void onPropertiesChanged(const QDBusMessage& message);
    void onSeeked(const QDBusMessage& message);

private:
    void add(const QString& busName, const QString& owner);
    void remove(const QString& busName);
    void load(const QString& busName, const QString& owner);
    void refreshPosition(const QString& busName);
    MprisPlayerState* byOwner(const QString& owner);
    MprisPlayerState* byName(const QString& busName);
    void apply(MprisPlayerState& player, const QVariantMap& properties, qint64 now);
    void finishedLoad();
    qint64 now() const;

    QDBusConnection m_bus;
    QList<MprisPlayerState> m_players;
    bool m_started = false;
    int m_pendingLoads = 0;
    quint64 m_serial = 0;
    // Raised at stop, so answers to calls made before it are dropped.
    quint64 m_generation = 0;
};

} // namespace vell
