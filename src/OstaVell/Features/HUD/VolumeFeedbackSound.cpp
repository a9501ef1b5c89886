#include "OstaVell/Features/HUD/VolumeFeedbackSound.h"

#include "OstaVell/Features/HUD/HUDLogging.h"
#include "VellHost/ChildProcess.h"

#include <QDir>
#include <QFileInfo>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <utility>

namespace vell {

namespace {

// What a sound server client needs to find the user's server: its socket lies in the runtime
// folder, its cookie and configuration under home.
const char* const serverEnvironment[] = {"HOME",         "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME",
                                         "PULSE_SERVER", "PULSE_COOKIE",    "PULSE_RUNTIME_PATH",
                                         "LANG"};

} // namespace

VolumeFeedbackSound::VolumeFeedbackSound(QObject* parent)
    : QObject(parent) {}

VolumeFeedbackSound::~VolumeFeedbackSound() {
    stop();
}

QString VolumeFeedbackSound::soundFile() {
    QStringList folders{QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)};
    const QString dataDirs =
        qEnvironmentVariable("XDG_DATA_DIRS", QStringLiteral("/usr/local/share:/usr/share"));
    folders += dataDirs.split(u':', Qt::SkipEmptyParts);
    for (const QString& folder : std::as_const(folders)) {
        for (const char* extension : {"oga", "ogg", "wav"}) {
            const QString path = folder + QStringLiteral("/sounds/freedesktop/stereo/audio-volume-change.") +
                                 QLatin1String(extension);
            if (QFileInfo(path).isFile())
                return path;
        }
    }
    return {};
}

void VolumeFeedbackSound::stop() {
    // The notifier may be the one whose signal brought us here, and its descriptor goes with
    // the player: it stops listening now and goes later.
    if (QSocketNotifier* exit = std::exchange(m_exit, nullptr)) {
        exit->setEnabled(false);
        exit->deleteLater();
    }
    // A player still sounding is killed; one that ended is reaped.
    m_player.reset();
}

bool VolumeFeedbackSound::play() {
    // A held key repeats far faster than the sound lasts: while one sounds, the next press is
    // heard in it, and no second player starts.
    if (m_exit)
        return true;
    m_player.reset();
    if (!m_found) {
        m_file = soundFile();
        m_program = QStandardPaths::findExecutable(QStringLiteral("paplay"));
        m_found = true;
    }
    const QString& file = m_file;
    const QString& player = m_program;
    if (file.isEmpty() || player.isEmpty()) {
        qCInfo(lcHUD) << "no volume feedback sound:" << (file.isEmpty() ? "the sound theme" : "paplay")
                      << "is missing";
        return false;
    }
    ChildProcessOptions options;
    options.program = player;
    options.arguments = {QStringLiteral("--client-name=OstaVell"),
                         QStringLiteral("--property=media.role=event"), file};
    for (const char* name : serverEnvironment)
        if (qEnvironmentVariableIsSet(name))
            options.environment.append(QLatin1String(name) + u'=' + qEnvironmentVariable(name));
    options.pipes = false;
    QString error;
    m_player = ChildProcess::start(options, &error);
    if (!m_player) {
        qCInfo(lcHUD).noquote() << "no volume feedback sound: " + error;
        return false;
    }
    ++m_plays;
    if (m_player->exitDescriptor() >= 0) {
        m_exit = new QSocketNotifier(m_player->exitDescriptor(), QSocketNotifier::Read, this);
        connect(m_exit, &QSocketNotifier::activated, this, &VolumeFeedbackSound::stop);
    }
    return true;
}

} // namespace vell
