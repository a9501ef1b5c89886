#include "OstaVell/Features/Media/MediaScriptPlayerController.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QImage>

namespace vell {

namespace {

const QString spotifyBusName = QStringLiteral("org.mpris.MediaPlayer2.spotify");

MediaPlaybackState stateOf(const MprisPlayerState& player, qint64 nowMicros) {
    MediaPlaybackState state;
    state.title = player.title;
    state.artist = player.artists.join(QStringLiteral(", "));
    state.album = player.album;
    state.bundleIdentifier = player.bundleIdentifier();
    state.appName = player.identity;
    state.isPlaying = player.status == MprisPlayerState::Status::playing;
    state.duration = player.lengthMicros / 1e6;
    state.elapsed = player.positionNow(nowMicros) / 1e6;
    state.timestamp = QDateTime::fromMSecsSinceEpoch(nowMicros / 1000, Qt::UTC);
    state.playbackRate = state.isPlaying ? 1 : 0;
    state.shuffleMode = player.shuffle.value_or(false) ? MediaPlaybackState::ShuffleMode::songs
                                                       : MediaPlaybackState::ShuffleMode::off;
    state.repeatMode = player.loopStatus == u"Track"      ? MediaPlaybackState::RepeatMode::one
                       : player.loopStatus == u"Playlist" ? MediaPlaybackState::RepeatMode::all
                                                          : MediaPlaybackState::RepeatMode::off;
    state.artworkRemoteURL = player.artUrl;
    state.player = player.busName;
    return state;
}

} // namespace

MediaScriptPlayerController::MediaScriptPlayerController(const QDBusConnection& bus, QObject* parent)
    : QObject(parent)
    , m_bus(bus)
    , m_players(bus) {
    m_poll.setInterval(pollMilliseconds);
    connect(&m_poll, &QTimer::timeout, this, &MediaScriptPlayerController::refresh);
    // A player that floods its signals is read once per turn of the event loop.
    m_coalesce.setSingleShot(true);
    m_coalesce.setInterval(0);
    connect(&m_coalesce, &QTimer::timeout, this, &MediaScriptPlayerController::deliver);
    connect(&m_players, &MprisPlayers::changed, &m_coalesce, qOverload<>(&QTimer::start));
    connect(&m_players, &MprisPlayers::ready, &m_coalesce, qOverload<>(&QTimer::start));
    connect(&m_artwork, &MediaArtworkFetcher::fetched, &m_coalesce, qOverload<>(&QTimer::start));
}

bool MediaScriptPlayerController::allowed(const QString& busName, const QString& restrictTo) {
    if (restrictTo == u"spotify")
        return busName == spotifyBusName || busName.startsWith(spotifyBusName + QStringLiteral(".instance"));
    // No player of that name exists here.
    if (restrictTo == u"appleMusic")
        return false;
    return busName.startsWith(QStringLiteral("org.mpris.MediaPlayer2."));
}

void MediaScriptPlayerController::setRestriction(const QString& restrictTo) {
    m_restriction =
        restrictTo == u"spotify" || restrictTo == u"appleMusic" ? restrictTo : QStringLiteral("any");
    if (m_active)
        refresh();
}

void MediaScriptPlayerController::setPin(const QString& busName) {
    m_pin = busName;
    if (m_active)
        m_coalesce.start();
}

void MediaScriptPlayerController::askCandidateRunning(std::function<void(bool)> answer) {
    const QDBusMessage list = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
        QStringLiteral("org.freedesktop.DBus"), QStringLiteral("ListNames"));
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(list), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, answer = std::move(answer)] {
        watcher->deleteLater();
        const QDBusPendingReply<QStringList> reply = *watcher;
        const QStringList names = reply.isError() ? QStringList() : reply.value();
        answer(std::any_of(names.cbegin(), names.cend(),
                           [&](const QString& name) { return allowed(name, m_restriction); }));
    });
}

void MediaScriptPlayerController::start() {
    if (m_active)
        return;
    m_active = true;
    m_players.start();
    m_poll.start();
}

void MediaScriptPlayerController::stop() {
    if (!m_active)
        return;
    m_active = false;
    m_poll.stop();
    m_coalesce.stop();
    m_players.stop();
    m_activePlayer.clear();
}

void MediaScriptPlayerController::refresh() {
    if (!m_active)
        return;
    if (!m_activePlayer.isEmpty())
        m_players.reload(m_activePlayer);
    m_coalesce.start();
}

void MediaScriptPlayerController::deliver() {
    if (!m_active || !m_players.isReady())
        return;
    QList<MprisPlayerState> candidates;
    for (const MprisPlayerState& player : m_players.players()) {
        if (allowed(player.busName, m_restriction) && !player.title.isEmpty())
            candidates.append(player);
    }
    const std::optional<qsizetype> chosen = MprisChoice::choose(candidates, m_pin);
    if (!chosen) {
        m_activePlayer.clear();
        if (onStateChanged)
            onStateChanged(std::nullopt);
        return;
    }
    const MprisPlayerState& player = candidates[*chosen];
    m_activePlayer = player.busName;
    MediaPlaybackState state = stateOf(player, m_players.clock());
    if (!player.artUrl.isEmpty()) {
        if (player.artUrl != m_artworkUrl || m_artworkImage.isNull()) {
            const QByteArray bytes = m_artwork.artwork(player.artUrl);
            m_artworkImage = bytes.isEmpty() ? QImage() : QImage::fromData(bytes);
            m_artworkUrl = player.artUrl;
        }
        state.artworkImage = m_artworkImage;
    }
    if (onStateChanged)
        onStateChanged(state);
}

QString MediaScriptPlayerController::commandTarget() const {
    if (!m_activePlayer.isEmpty())
        return m_activePlayer;
    for (const MprisPlayerState& player : m_players.players()) {
        if (allowed(player.busName, m_restriction))
            return player.busName;
    }
    return {};
}

void MediaScriptPlayerController::tell(const QString& command) {
    using C = MprisPlayers::Command;
    const C verb = command == u"next track"       ? C::next
                   : command == u"previous track" ? C::previous
                                                  : C::togglePlayPause;
    if (command != u"playpause" && command != u"next track" && command != u"previous track")
        return;
    m_players.send(commandTarget(), verb);
    refresh();
}

void MediaScriptPlayerController::seek(double seconds) {
    m_players.send(commandTarget(), MprisPlayers::Command::seek, qint64(std::max(seconds, 0.0) * 1e6));
    refresh();
}

void MediaScriptPlayerController::setShuffle(bool on) {
    m_players.send(commandTarget(), MprisPlayers::Command::shuffle, on ? 1 : 0);
    refresh();
}

void MediaScriptPlayerController::setRepeat(MediaPlaybackState::RepeatMode mode) {
    m_players.send(commandTarget(), MprisPlayers::Command::loop, int(mode));
    refresh();
}

} // namespace vell
