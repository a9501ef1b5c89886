#include "OstaVell/Features/HUD/HUDBrightnessManager.h"

#include "OstaVell/Features/HUD/HUDLogging.h"
#include "VellPluginSDK/Json/JsonFile.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QDir>
#include <QJSEngine>

#include <algorithm>
#include <cmath>

namespace vell {

namespace {

const QString logind = QStringLiteral("org.freedesktop.login1");
const QString sessionInterface = QStringLiteral("org.freedesktop.login1.Session");
// A sysfs attribute is a line of text; anything longer is not one.
constexpr qint64 attributeBytes = 64;

std::optional<int> readNumber(const QString& path) {
    const FileContents contents = JsonFile::readBytes(path, attributeBytes);
    if (!contents.read())
        return std::nullopt;
    bool ok = false;
    const int number = contents.bytes.trimmed().toInt(&ok);
    return ok && number >= 0 ? std::optional(number) : std::nullopt;
}

QString readText(const QString& path) {
    const FileContents contents = JsonFile::readBytes(path, attributeBytes);
    return contents.read() ? QString::fromLatin1(contents.bytes.trimmed()) : QString();
}

// The kernel asks that firmware controls be preferred to platform ones, and those to raw
// registers of the graphics card: the further from the hardware, the better it knows the panel.
int typeRank(const QString& type) {
    if (type == u"firmware")
        return 0;
    if (type == u"platform")
        return 1;
    if (type == u"raw")
        return 2;
    return 3;
}

// A session id as logind spells it in an object path: letters and, after the first place,
// digits stay; every other byte is "_" and two hex digits.
QString escapedLabel(const QString& id) {
    QString escaped;
    const QByteArray bytes = id.toUtf8();
    for (qsizetype i = 0; i < bytes.size(); ++i) {
        const char c = bytes.at(i);
        const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
        const bool digit = c >= '0' && c <= '9';
        if (letter || (digit && i > 0))
            escaped += QLatin1Char(c);
        else
            escaped += QStringLiteral("_%1").arg(quint8(c), 2, 16, QLatin1Char('0'));
    }
    return escaped;
}

} // namespace

HUDBrightnessManager::HUDBrightnessManager(const QString& folder, const QDBusConnection& systemBus,
                                           const QString& sessionPath, QObject* parent)
    : QObject(parent)
    , m_folder(folder)
    , m_bus(systemBus)
    , m_sessionPath(sessionPath) {}

HUDBrightnessManager* HUDBrightnessManager::instance() {
    static HUDBrightnessManager* manager =
        new HUDBrightnessManager(systemFolder, QDBusConnection::systemBus(), sessionPath());
    return manager;
}

HUDBrightnessManager* HUDBrightnessManager::create(QQmlEngine*, QJSEngine*) {
    HUDBrightnessManager* manager = instance();
    QJSEngine::setObjectOwnership(manager, QJSEngine::CppOwnership);
    return manager;
}

QString HUDBrightnessManager::sessionPath() {
    const QString id = qEnvironmentVariable("XDG_SESSION_ID");
    return QStringLiteral("/org/freedesktop/login1/session/") +
           (id.isEmpty() ? QStringLiteral("auto") : escapedLabel(id));
}

std::optional<HUDBrightnessManager::Device> HUDBrightnessManager::findDevice() const {
    std::optional<Device> best;
    int bestRank = 0;
    const QStringList names = QDir(m_folder).entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name);
    for (const QString& name : names) {
        const QString folder = m_folder + u'/' + name;
        const std::optional<int> maximum = readNumber(folder + QStringLiteral("/max_brightness"));
        if (!maximum || *maximum <= 0)
            continue;
        const int rank = typeRank(readText(folder + QStringLiteral("/type")));
        if (!best || rank < bestRank) {
            best = Device{name, folder, *maximum};
            bestRank = rank;
        }
    }
    return best;
}

void HUDBrightnessManager::start() {
    if (m_started)
        return;
    m_started = true;
    m_device = findDevice();
    if (!m_device) {
        qCInfo(lcHUD) << "no backlight device \u2014 brightness HUD disabled";
        return;
    }
    refresh();
    // Asking for a property of the session proves logind is there and knows it.
    QDBusMessage ask = QDBusMessage::createMethodCall(
        logind, m_sessionPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"));
    ask << sessionInterface << QStringLiteral("Id");
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(ask), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        m_sessionAnswered = true;
        m_sessionFound = !watcher->isError();
        if (!m_sessionFound)
            qCInfo(lcHUD).noquote() << "no logind session (" + watcher->error().message() +
                                           QStringLiteral(") \u2014 brightness HUD disabled");
        emit changed();
    });
}

std::optional<int> HUDBrightnessManager::readLevel() const {
    return m_device ? readNumber(m_device->folder + QStringLiteral("/brightness")) : std::nullopt;
}

void HUDBrightnessManager::refresh() {
    if (!m_device || m_writesInFlight > 0)
        return;
    if (const std::optional<int> level = readLevel()) {
        m_level = std::min(*level, m_device->maximum);
        publish(float(m_level) / float(m_device->maximum), false);
    }
}

void HUDBrightnessManager::setBrightness(double value) {
    if (!isAvailable() || !std::isfinite(value))
        return;
    const double clamped = std::clamp(value, 0.0, 1.0);
    write(int(std::lround(clamped * m_device->maximum)));
    publish(float(clamped), true);
}

std::optional<float> HUDBrightnessManager::stepBrightness(float by) {
    if (!isAvailable() || !std::isfinite(by))
        return std::nullopt;
    refresh();
    const float target = std::clamp(m_brightness + by, 0.0f, 1.0f);
    int level = int(std::lround(target * m_device->maximum));
    // A panel with few levels would round a small step away: a press moves at least one level.
    if (level == m_level && by != 0)
        level = std::clamp(m_level + (by > 0 ? 1 : -1), 0, m_device->maximum);
    write(level);
    const float value = float(level) / float(m_device->maximum);
    publish(value, true);
    return value;
}

void HUDBrightnessManager::write(int level) {
    m_level = level;
    QDBusMessage call = QDBusMessage::createMethodCall(logind, m_sessionPath, sessionInterface,
                                                       QStringLiteral("SetBrightness"));
    call << QStringLiteral("backlight") << m_device->name << quint32(level);
    ++m_writesInFlight;
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        --m_writesInFlight;
        if (watcher->isError()) {
            qCWarning(lcHUD).noquote() << "setting the brightness failed: " + watcher->error().message();
            // What shows is what the screen has, not what was asked.
            refresh();
        }
    });
}

void HUDBrightnessManager::publish(float brightness, bool changedByUs) {
    if (changedByUs)
        m_lastChangedAt = QDateTime::currentDateTimeUtc();
    if (brightness == m_brightness && !changedByUs)
        return;
    m_brightness = brightness;
    emit changed();
}

} // namespace vell
