#include "OstaVell/Features/Media/MusicManager.h"

#include "OstaVell/Features/Media/MediaArtworkColor.h"
#include "OstaVell/Features/Media/MediaImageProvider.h"
#include "OstaVell/Features/Media/MediaSourceApp.h"
#include "OstaVell/Support/ShellContributions.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QDBusConnection>
#include <QQmlEngine>

#include <cmath>

namespace vell {

namespace {

const QString enabledKey = QStringLiteral("media.enabled");
const QString restrictKey = QStringLiteral("media.restrictTo");
const QString visualizerKey = QStringLiteral("media.showVisualizer");
const QString fallbackKey = QStringLiteral("media.allowScriptFallback");
const QString pinKey = QStringLiteral("media.pinnedPlayer");

QString normalizedRestriction(const QString& raw) {
    return raw == u"spotify" || raw == u"appleMusic" ? raw : QStringLiteral("any");
}

} // namespace

MusicManager::MusicManager(UserDefaults& defaults, std::unique_ptr<MediaAdapterTransport> transport,
                           std::unique_ptr<MediaScriptPlayerController> scriptController, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_transport(std::move(transport))
    , m_scriptController(std::move(scriptController)) {
    m_enabled = mediaEnabled();
    m_restriction = restrictTo();
    m_transport->setPin(pinnedPlayer());
    m_scriptController->setPin(pinnedPlayer());
    m_transport->onTrackInfo = [this](const MediaAdapterRecord& record) { trackInfo(record); };
    m_transport->onTerminated = [this] { adapterTerminated(); };
    m_scriptController->onStateChanged = [this](const std::optional<MediaPlaybackState>& state) {
        ingest(state, true);
    };
    m_scriptController->onPermissionDenied = [this] {
        if (!m_automationPermissionDenied) {
            m_automationPermissionDenied = true;
            emit automationPermissionDeniedChanged();
        }
    };
    for (QTimer* timer : {&m_restartTask, &m_fallbackProbe, &m_quickPeekHide, &m_pendingVolumeWrite})
        timer->setSingleShot(true);
    connect(&m_restartTask, &QTimer::timeout, this, [this] {
        if (m_started && mediaEnabled())
            m_transport->start();
    });
    connect(&m_fallbackProbe, &QTimer::timeout, this, [this] {
        if (m_started && mediaEnabled() && !m_adapterEverDelivered)
            beginScriptFallbackIfPossible();
    });
    connect(&m_quickPeekHide, &QTimer::timeout, this, [this] {
        m_showQuickPeek = false;
        emit quickPeekChanged();
    });
    m_pendingVolumeWrite.setInterval(volumeWriteMilliseconds);
    connect(&m_pendingVolumeWrite, &QTimer::timeout, this, [this] {
        if (volumeWriter)
            volumeWriter(m_systemVolume);
    });
    connect(&m_defaults, &UserDefaults::changed, this, &MusicManager::settingChanged);
}

MusicManager::~MusicManager() {
    stop();
}

MusicManager* MusicManager::instance() {
    static MusicManager* shared =
        new MusicManager(*UserDefaults::instance(), std::make_unique<MediaAdapterTransport>(),
                         std::make_unique<MediaScriptPlayerController>(QDBusConnection::sessionBus()));
    return shared;
}

MusicManager* MusicManager::create(QQmlEngine*, QJSEngine*) {
    MusicManager* shared = instance();
    QQmlEngine::setObjectOwnership(shared, QQmlEngine::CppOwnership);
    return shared;
}

void MusicManager::offerViews(ShellContributions& shell) {
    const auto view = [](const char* file) {
        return QUrl(QStringLiteral("qrc:/qt/qml/OstaVell/Media/qml/") + QLatin1String(file));
    };
    shell.offerStageView(QStringLiteral("builtin:media"), view("NowPlayingView.qml"));
    shell.offerWing(QStringLiteral("media.left"), view("MediaClosedWingLeft.qml"));
    shell.offerWing(QStringLiteral("media.right"), view("MediaClosedWingRight.qml"));
    shell.offerSettingsPane(QStringLiteral("Media"), view("MediaSettingsPane.qml"));
}

bool MusicManager::mediaEnabled() const {
    return m_defaults.boolValue(enabledKey, true);
}

QString MusicManager::restrictTo() const {
    return normalizedRestriction(m_defaults.stringValue(restrictKey, QStringLiteral("any")));
}

bool MusicManager::showVisualizer() const {
    return m_defaults.boolValue(visualizerKey, true);
}

QString MusicManager::pinnedPlayer() const {
    return m_defaults.stringValue(pinKey);
}

void MusicManager::setMediaEnabled(bool enabled) {
    m_defaults.setValue(enabledKey, enabled);
}

void MusicManager::setRestrictTo(const QString& restrictTo) {
    m_defaults.setValue(restrictKey, normalizedRestriction(restrictTo));
}

void MusicManager::setShowVisualizer(bool show) {
    m_defaults.setValue(visualizerKey, show);
}

void MusicManager::setPinnedPlayer(const QString& busName) {
    if (busName.isEmpty())
        m_defaults.remove(pinKey);
    else
        m_defaults.setValue(pinKey, busName);
}

void MusicManager::settingChanged(const QString& key) {
    const bool any = key.isEmpty();
    if (any || key == enabledKey) {
        const bool enabled = mediaEnabled();
        if (enabled != m_enabled) {
            m_enabled = enabled;
            if (m_started)
                enabled ? beginListening() : stopListening();
        }
    }
    if (any || key == restrictKey) {
        const QString restriction = restrictTo();
        if (restriction != m_restriction) {
            m_restriction = restriction;
            m_scriptController->setRestriction(restriction);
            if (m_playback && !passes(*m_playback))
                publish(std::nullopt);
        }
    }
    if (any || key == pinKey) {
        const QString pin = pinnedPlayer();
        if (pin != m_transport->pin()) {
            m_transport->setPin(pin);
            m_scriptController->setPin(pin);
            // The stream chooses its player when it starts; a new pin needs a new stream.
            if (m_transport->isRunning()) {
                m_transport->stop();
                m_transport->start();
            }
            emit pinnedPlayerChanged();
        }
    }
    if (any || key == enabledKey || key == restrictKey || key == visualizerKey)
        emit settingsChanged();
}

void MusicManager::start() {
    if (m_started)
        return;
    m_started = true;
    m_startDate = QDateTime::currentDateTimeUtc();
    if (mediaEnabled())
        beginListening();
}

void MusicManager::beginListening() {
    m_adapterEverDelivered = false;
    m_restartAttempts = 0;
    m_scriptController->setRestriction(restrictTo());
    m_transport->start();
    scheduleFallbackProbe(timing.fallbackProbe);
}

void MusicManager::stop() {
    stopListening();
    m_started = false;
}

void MusicManager::stopListening() {
    m_fallbackProbe.stop();
    m_restartTask.stop();
    m_quickPeekHide.stop();
    m_pendingVolumeWrite.stop();
    m_transport->stop();
    m_scriptController->stop();
    setUsingScriptFallback(false);
    if (m_showQuickPeek) {
        m_showQuickPeek = false;
        emit quickPeekChanged();
    }
    publish(std::nullopt);
    if (!m_players.isEmpty()) {
        m_players.clear();
        emit playersChanged();
    }
}

void MusicManager::adapterTerminated() {
    if (!m_started || !mediaEnabled())
        return;
    ++m_restartAttempts;
    if (m_restartAttempts <= maximumRestarts) {
        m_restartTask.start(m_restartAttempts * timing.restartUnit);
        return;
    }
    beginScriptFallbackIfPossible();
}

void MusicManager::scheduleFallbackProbe(int milliseconds) {
    m_fallbackProbe.start(milliseconds);
}

void MusicManager::beginScriptFallbackIfPossible() {
    if (!m_defaults.boolValue(fallbackKey, true) || m_scriptController->isActive())
        return;
    // Never a player started for us: with none of the allowed ones on the bus, look again later.
    m_scriptController->askCandidateRunning([this](bool running) {
        // Media may have been switched off while the bus answered.
        if (!m_started || !mediaEnabled() || m_scriptController->isActive())
            return;
        if (!running) {
            ++m_emptyProbes;
            scheduleFallbackProbe(timing.fallbackProbe);
            return;
        }
        setUsingScriptFallback(true);
        m_scriptController->start();
    });
}

void MusicManager::setUsingScriptFallback(bool on) {
    if (m_usingScriptFallback == on)
        return;
    m_usingScriptFallback = on;
    emit usingScriptFallbackChanged();
}

void MusicManager::trackInfo(const MediaAdapterRecord& record) {
    m_adapterEverDelivered = true;
    m_restartAttempts = 0;
    m_fallbackProbe.stop();
    if (m_usingScriptFallback) {
        // The stream wins whenever it speaks.
        setUsingScriptFallback(false);
        m_scriptController->stop();
    }
    if (record.players != m_players) {
        m_players = record.players;
        emit playersChanged();
    }
    ingest(record.state, false);
}

bool MusicManager::passes(const MediaPlaybackState& state) const {
    const QString restriction = restrictTo();
    return restriction == u"any" || MediaScriptPlayerController::allowed(state.player, restriction);
}

void MusicManager::ingest(std::optional<MediaPlaybackState> state, bool fromFallback) {
    if (fromFallback && !m_usingScriptFallback)
        return;
    if (state && !passes(*state))
        state.reset();
    // The same track without an image keeps the image it had.
    if (state && state->artworkImage.isNull() && m_playback && m_playback->identity() == state->identity())
        state->artworkImage = m_playback->artworkImage;
    publish(std::move(state));
}

void MusicManager::publish(std::optional<MediaPlaybackState> state) {
    if (!state && !m_playback)
        return;
    const std::optional<MediaPlaybackState> previous = std::move(m_playback);
    m_playback = std::move(state);
    updateDerived(previous);
    emit playbackChanged();
    maybeTriggerQuickPeek(previous);
}

void MusicManager::updateDerived(const std::optional<MediaPlaybackState>& previous) {
    const QImage before = previous ? previous->artworkImage : QImage();
    const QImage now = m_playback ? m_playback->artworkImage : QImage();
    if (before.cacheKey() != now.cacheKey()) {
        ++m_artworkSerial;
        MediaImageProvider::setArtwork(now);
        const QColor tint = MediaArtworkColor::tint(now).value_or(QColor());
        if (tint != m_artworkTint) {
            m_artworkTint = tint;
            emit artworkTintChanged();
        }
    }
    const QString bundle = m_playback ? m_playback->bundleIdentifier : QString();
    if (bundle != m_iconCacheBundleID) {
        m_iconCacheBundleID = bundle;
        const MediaSourceApp app = MediaSourceApp::lookup(bundle);
        MediaImageProvider::setIcon(app.icon);
        m_sourceAppIcon = app.icon.isNull() ? QUrl() : QUrl(QStringLiteral("image://media/icon/") + bundle);
        m_appName = app.name;
        emit sourceAppIconChanged();
    }
    if (m_playback && m_playback->appName.isEmpty())
        m_playback->appName = m_appName.isEmpty() ? bundle : m_appName;
}

void MusicManager::maybeTriggerQuickPeek(const std::optional<MediaPlaybackState>& previous) {
    // A launch with music already playing stays quiet.
    if (!m_playback || !previous || previous->identity() == m_playback->identity() ||
        !m_playback->isPlaying || m_startDate.msecsTo(QDateTime::currentDateTimeUtc()) <= timing.quietLaunch)
        return;
    m_quickPeekPlayback = m_playback;
    m_showQuickPeek = true;
    m_quickPeekHide.start(timing.quickPeek);
    emit quickPeekChanged();
}

QVariantMap MusicManager::playbackMap() const {
    return m_playback ? m_playback->toMap() : QVariantMap();
}

QVariantMap MusicManager::quickPeekMap() const {
    return m_quickPeekPlayback ? m_quickPeekPlayback->toMap() : QVariantMap();
}

QUrl MusicManager::artworkSource() const {
    if (!m_playback || m_playback->artworkImage.isNull())
        return {};
    return QUrl(QStringLiteral("image://media/artwork/") + QString::number(m_artworkSerial));
}

QVariantList MusicManager::players() const {
    QVariantList list;
    for (const MediaPlayerEntry& entry : m_players)
        list.append(QVariantMap{{"player", entry.player},
                                {"name", entry.name},
                                {"title", entry.title},
                                {"playing", entry.playing}});
    return list;
}

double MusicManager::elapsedNow() const {
    return m_playback ? m_playback->elapsedAt(QDateTime::currentDateTimeUtc()) : 0;
}

void MusicManager::predict(const std::function<void(MediaPlaybackState&)>& change) {
    if (!m_playback)
        return;
    MediaPlaybackState state = *m_playback;
    const QDateTime now = QDateTime::currentDateTimeUtc();
    state.elapsed = state.elapsedAt(now);
    state.timestamp = now;
    change(state);
    publish(std::move(state));
}

QString MusicManager::targetPlayer() const {
    return m_playback ? m_playback->player : QString();
}

void MusicManager::togglePlayPause() {
    if (m_usingScriptFallback)
        m_scriptController->tell(QStringLiteral("playpause"));
    else
        m_transport->send(QStringLiteral("toggle_play_pause"), targetPlayer());
    predict([](MediaPlaybackState& state) {
        state.isPlaying = !state.isPlaying;
        state.playbackRate = state.isPlaying ? 1 : 0;
    });
}

void MusicManager::seek(double seconds) {
    if (!std::isfinite(seconds))
        return;
    seconds = std::max(seconds, 0.0);
    if (m_usingScriptFallback)
        m_scriptController->seek(seconds);
    else
        m_transport->send(QStringLiteral("set_time %1").arg(seconds, 0, 'f', 3), targetPlayer());
    predict([seconds](MediaPlaybackState& state) {
        state.elapsed = state.duration > 0 ? std::min(seconds, state.duration) : seconds;
    });
}

void MusicManager::toggleShuffle() {
    if (!m_playback)
        return;
    const bool on = m_playback->shuffleMode == MediaPlaybackState::ShuffleMode::off;
    if (m_usingScriptFallback)
        m_scriptController->setShuffle(on);
    else
        m_transport->send(QStringLiteral("set_shuffle_mode %1").arg(on ? 1 : 0), targetPlayer());
    predict([on](MediaPlaybackState& state) {
        state.shuffleMode =
            on ? MediaPlaybackState::ShuffleMode::songs : MediaPlaybackState::ShuffleMode::off;
    });
}

void MusicManager::cycleRepeatMode() {
    if (!m_playback)
        return;
    using R = MediaPlaybackState::RepeatMode;
    const R next = m_playback->repeatMode == R::off   ? R::all
                   : m_playback->repeatMode == R::all ? R::one
                                                      : R::off;
    if (m_usingScriptFallback)
        m_scriptController->setRepeat(next);
    else
        m_transport->send(QStringLiteral("set_repeat_mode %1").arg(int(next)), targetPlayer());
    predict([next](MediaPlaybackState& state) { state.repeatMode = next; });
}

void MusicManager::nextTrack() {
    if (m_usingScriptFallback)
        m_scriptController->tell(QStringLiteral("next track"));
    else
        m_transport->send(QStringLiteral("next_track"), targetPlayer());
}

void MusicManager::previousTrack() {
    if (m_usingScriptFallback)
        m_scriptController->tell(QStringLiteral("previous track"));
    else
        m_transport->send(QStringLiteral("previous_track"), targetPlayer());
}

void MusicManager::setSystemVolume(double value) {
    if (!std::isfinite(value))
        return;
    value = std::clamp(value, 0.0, 1.0);
    if (value != m_systemVolume) {
        m_systemVolume = value;
        emit systemVolumeChanged();
    }
    // Only the last value of a drag reaches the system.
    m_pendingVolumeWrite.start();
}

void MusicManager::systemVolumeChangedOutside(double value) {
    if (!std::isfinite(value) || m_pendingVolumeWrite.isActive())
        return;
    value = std::clamp(value, 0.0, 1.0);
    if (value == m_systemVolume)
        return;
    m_systemVolume = value;
    emit systemVolumeChanged();
}

} // namespace vell
