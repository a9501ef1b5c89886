#include "VellHost/Media/MprisPlayers.h"

#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QDateTime>
#include <QPointer>

#include <cmath>

namespace vell {

namespace {

const QString busPrefix = QStringLiteral("org.mpris.MediaPlayer2.");
const QString objectPath = QStringLiteral("/org/mpris/MediaPlayer2");
const QString rootInterface = QStringLiteral("org.mpris.MediaPlayer2");
const QString playerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString propertiesInterface = QStringLiteral("org.freedesktop.DBus.Properties");
const QString busService = QStringLiteral("org.freedesktop.DBus");

bool isPlayerName(const QString& name) {
    return name.startsWith(busPrefix) && name.size() > busPrefix.size();
}

// A dictionary as it comes: already a map, or still marshalled.
QVariantMap mapOf(const QVariant& value) {
    if (value.canConvert<QDBusArgument>())
        return qdbus_cast<QVariantMap>(value.value<QDBusArgument>());
    return value.toMap();
}

QStringList stringsOf(const QVariant& value) {
    if (value.canConvert<QDBusArgument>())
        return qdbus_cast<QStringList>(value.value<QDBusArgument>());
    if (value.metaType().id() == QMetaType::QString)
        return {value.toString()};
    return value.toStringList();
}

QString pathOf(const QVariant& value) {
    if (value.canConvert<QDBusObjectPath>())
        return value.value<QDBusObjectPath>().path();
    return value.toString();
}

MprisPlayerState::Status statusOf(const QString& text) {
    if (text == u"Playing")
        return MprisPlayerState::Status::playing;
    if (text == u"Paused")
        return MprisPlayerState::Status::paused;
    return MprisPlayerState::Status::stopped;
}

QDBusMessage call(const QString& owner, const QString& interface, const QString& method) {
    return QDBusMessage::createMethodCall(owner, objectPath, interface, method);
}

} // namespace

MprisPlayers::MprisPlayers(const QDBusConnection& bus, QObject* parent)
    : QObject(parent)
    , clock([] { return QDateTime::currentMSecsSinceEpoch() * 1000; })
    , m_bus(bus) {}

MprisPlayers::~MprisPlayers() {
    stop();
}

qint64 MprisPlayers::now() const {
    return clock();
}

void MprisPlayers::start() {
    if (m_started || !m_bus.isConnected())
        return;
    m_started = true;
    m_bus.connect(busService, QStringLiteral("/org/freedesktop/DBus"), busService,
                  QStringLiteral("NameOwnerChanged"), this,
                  SLOT(onNameOwnerChanged(QString, QString, QString)));
    m_bus.connect(QString(), objectPath, propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                  SLOT(onPropertiesChanged(QDBusMessage)));
    m_bus.connect(QString(), objectPath, playerInterface, QStringLiteral("Seeked"), this,
                  SLOT(onSeeked(QDBusMessage)));
    ++m_pendingLoads;
    const quint64 generation = m_generation;
    auto* watcher = new QDBusPendingCallWatcher(
        m_bus.asyncCall(QDBusMessage::createMethodCall(busService, QStringLiteral("/org/freedesktop/DBus"),
                                                       busService, QStringLiteral("ListNames"))),
        this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, generation] {
        watcher->deleteLater();
        if (generation != m_generation)
            return;
        const QDBusPendingReply<QStringList> reply = *watcher;
        for (const QString& name : reply.value()) {
            if (!isPlayerName(name))
                continue;
            ++m_pendingLoads;
            auto* owner = new QDBusPendingCallWatcher(
                m_bus.interface()->asyncCall(QStringLiteral("GetNameOwner"), name), this);
            connect(owner, &QDBusPendingCallWatcher::finished, this, [this, owner, name, generation] {
                owner->deleteLater();
                if (generation != m_generation)
                    return;
                const QDBusPendingReply<QString> ownerReply = *owner;
                if (ownerReply.isValid() && !byName(name))
                    add(name, ownerReply.value());
                finishedLoad();
            });
        }
        finishedLoad();
    });
}

void MprisPlayers::stop() {
    if (!m_started)
        return;
    m_started = false;
    ++m_generation;
    m_pendingLoads = 0;
    m_bus.disconnect(busService, QStringLiteral("/org/freedesktop/DBus"), busService,
                     QStringLiteral("NameOwnerChanged"), this,
                     SLOT(onNameOwnerChanged(QString, QString, QString)));
    m_bus.disconnect(QString(), objectPath, propertiesInterface, QStringLiteral("PropertiesChanged"), this,
                     SLOT(onPropertiesChanged(QDBusMessage)));
    m_bus.disconnect(QString(), objectPath, playerInterface, QStringLiteral("Seeked"), this,
                     SLOT(onSeeked(QDBusMessage)));
    m_players.clear();
}

void MprisPlayers::finishedLoad() {
    if (m_pendingLoads > 0 && --m_pendingLoads == 0)
        emit ready();
}

const MprisPlayerState* MprisPlayers::find(const QString& busName) const {
    for (const MprisPlayerState& player : m_players) {
        if (player.busName == busName)
            return &player;
    }
    return nullptr;
}

MprisPlayerState* MprisPlayers::byName(const QString& busName) {
    return const_cast<MprisPlayerState*>(std::as_const(*this).find(busName));
}

MprisPlayerState* MprisPlayers::byOwner(const QString& owner) {
    for (MprisPlayerState& player : m_players) {
        if (player.owner == owner)
            return &player;
    }
    return nullptr;
}

void MprisPlayers::onNameOwnerChanged(const QString& name, const QString&, const QString& newOwner) {
    if (!isPlayerName(name))
        return;
    remove(name);
    if (!newOwner.isEmpty())
        add(name, newOwner);
}

void MprisPlayers::add(const QString& busName, const QString& owner) {
    MprisPlayerState player;
    player.busName = busName;
    player.owner = owner;
    player.positionAtMicros = now();
    player.changeSerial = ++m_serial;
    m_players.append(player);
    load(busName, owner);
}

void MprisPlayers::reload(const QString& busName) {
    if (const MprisPlayerState* player = find(busName))
        load(busName, player->owner);
}

void MprisPlayers::remove(const QString& busName) {
    const qsizetype removed =
        m_players.removeIf([&](const MprisPlayerState& player) { return player.busName == busName; });
    if (removed > 0)
        emit changed();
}

// Both interfaces' properties at once; the player joins the list only with what it said.
void MprisPlayers::load(const QString& busName, const QString& owner) {
    const quint64 generation = m_generation;
    for (const QString& interface : {rootInterface, playerInterface}) {
        QDBusMessage message = call(owner, propertiesInterface, QStringLiteral("GetAll"));
        message << interface;
        ++m_pendingLoads;
        auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [=, this] {
            watcher->deleteLater();
            if (generation != m_generation)
                return;
            const QDBusPendingReply<QVariantMap> reply = *watcher;
            MprisPlayerState* player = byName(busName);
            if (player && player->owner == owner && reply.isValid()) {
                apply(*player, reply.value(), now());
                emit changed();
            }
            finishedLoad();
        });
    }
}

void MprisPlayers::apply(MprisPlayerState& player, const QVariantMap& properties, qint64 at) {
    const QString identityBefore = player.trackIdentity();
    const MprisPlayerState::Status statusBefore = player.status;
    const double rateBefore = player.rate;
    // The position reached so far under the old status and rate, before either changes.
    const qint64 reached = player.positionNow(at);
    std::optional<qint64> position;
    for (auto it = properties.begin(); it != properties.end(); ++it) {
        const QString& key = it.key();
        const QVariant& value = it.value();
        if (key == u"Identity") {
            player.identity = value.toString();
        } else if (key == u"DesktopEntry") {
            player.desktopEntry = value.toString();
        } else if (key == u"PlaybackStatus") {
            player.status = statusOf(value.toString());
        } else if (key == u"Rate") {
            const double rate = value.toDouble();
            player.rate = std::isfinite(rate) && rate > 0 ? rate : 1;
        } else if (key == u"Shuffle") {
            player.shuffle = value.toBool();
        } else if (key == u"LoopStatus") {
            player.loopStatus = value.toString();
        } else if (key == u"Position") {
            position = std::max<qint64>(value.toLongLong(), 0);
        } else if (key == u"Metadata") {
            const QVariantMap metadata = mapOf(value);
            const QString trackBefore = player.trackId;
            player.title = metadata.value(QStringLiteral("xesam:title")).toString();
            player.artists = stringsOf(metadata.value(QStringLiteral("xesam:artist")));
            player.album = metadata.value(QStringLiteral("xesam:album")).toString();
            player.artUrl = metadata.value(QStringLiteral("mpris:artUrl")).toString();
            player.trackId = pathOf(metadata.value(QStringLiteral("mpris:trackid")));
            player.lengthMicros =
                std::max<qint64>(metadata.value(QStringLiteral("mpris:length")).toLongLong(), 0);
            if (player.trackId != trackBefore && !position)
                position = 0;
        }
    }
    // The position is stamped again only when it was told or when what moves it changed, so
    // that a change of anything else (the volume, say) reports the same position as before.
    if (position || player.status != statusBefore || player.rate != rateBefore) {
        player.positionMicros = position.value_or(reached);
        player.positionAtMicros = at;
    }
    if (player.status != statusBefore || player.trackIdentity() != identityBefore)
        player.changeSerial = ++m_serial;
}

void MprisPlayers::onPropertiesChanged(const QDBusMessage& message) {
    MprisPlayerState* player = byOwner(message.service());
    const QList<QVariant> arguments = message.arguments();
    if (!player || arguments.size() < 2)
        return;
    const QString interface = arguments[0].toString();
    if (interface != playerInterface && interface != rootInterface)
        return;
    const QVariantMap changedProperties = mapOf(arguments[1]);
    const bool invalidated = arguments.size() > 2 && !stringsOf(arguments[2]).isEmpty();
    const MprisPlayerState before = *player;
    apply(*player, changedProperties, now());
    if (invalidated) {
        load(player->busName, player->owner);
        return;
    }
    // A new track, a pause or a start moves the position in ways a report doesn't say; ask.
    if (player->status != before.status || player->trackId != before.trackId ||
        changedProperties.contains(QStringLiteral("Rate")))
        refreshPosition(player->busName);
    emit changed();
}

void MprisPlayers::onSeeked(const QDBusMessage& message) {
    MprisPlayerState* player = byOwner(message.service());
    if (!player || message.arguments().isEmpty())
        return;
    player->positionMicros = std::max<qint64>(message.arguments().constFirst().toLongLong(), 0);
    player->positionAtMicros = now();
    emit changed();
}

void MprisPlayers::refreshPosition(const QString& busName) {
    const MprisPlayerState* player = find(busName);
    if (!player)
        return;
    QDBusMessage message = call(player->owner, propertiesInterface, QStringLiteral("Get"));
    message << playerInterface << QStringLiteral("Position");
    const quint64 generation = m_generation;
    const QString owner = player->owner;
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(message), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [=, this] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusVariant> reply = *watcher;
        MprisPlayerState* current = byName(busName);
        if (generation != m_generation || !current || current->owner != owner || !reply.isValid())
            return;
        current->positionMicros = std::max<qint64>(reply.value().variant().toLongLong(), 0);
        current->positionAtMicros = now();
        emit changed();
    });
}

bool MprisPlayers::send(const QString& busName, Command command, qint64 value, bool wait) {
    const MprisPlayerState* player = find(busName);
    if (!player)
        return false;
    QDBusMessage message;
    const auto method = [&](const char* name) {
        message = call(player->owner, playerInterface, QLatin1String(name));
    };
    const auto set = [&](const QString& property, const QVariant& newValue) {
        message = call(player->owner, propertiesInterface, QStringLiteral("Set"));
        message << playerInterface << property << QVariant::fromValue(QDBusVariant(newValue));
    };
    switch (command) {
    case Command::play:
        method("Play");
        break;
    case Command::pause:
        method("Pause");
        break;
    case Command::togglePlayPause:
        method("PlayPause");
        break;
    case Command::stop:
        method("Stop");
        break;
    case Command::next:
        method("Next");
        break;
    case Command::previous:
        method("Previous");
        break;
    case Command::seek:
        // SetPosition needs the track's id; a player without one is moved by the difference.
        if (player->trackId.startsWith(u'/')) {
            method("SetPosition");
            message << QVariant::fromValue(QDBusObjectPath(player->trackId))
                    << qlonglong(std::max<qint64>(value, 0));
        } else {
            method("Seek");
            message << qlonglong(value - player->positionNow(now()));
        }
        break;
    case Command::shuffle:
        set(QStringLiteral("Shuffle"), value != 0);
        break;
    case Command::loop: {
        const QString loop = value == 1   ? QStringLiteral("Track")
                             : value == 2 ? QStringLiteral("Playlist")
                                          : QStringLiteral("None");
        set(QStringLiteral("LoopStatus"), loop);
        break;
    }
    }
    if (wait)
        return m_bus.call(message, QDBus::Block, 5000).type() == QDBusMessage::ReplyMessage;
    message.setDelayedReply(false);
    m_bus.asyncCall(message);
    return true;
}

} // namespace vell
