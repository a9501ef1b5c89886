#include "OstaVell/Support/ThemeSound.h"

#include "VellHost/ChildProcess.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QSocketNotifier>
#include <QStandardPaths>

#include <algorithm>
#include <utility>

namespace vell {

namespace {

// The theme every system has, and the one its other themes fall back to.
const QString kThemeFolder = QStringLiteral("/sounds/freedesktop/stereo/");
const char* const kExtensions[] = {"oga", "ogg", "wav"};

// What a sound server client needs to find the user's server: its socket lies in the runtime
// folder, its cookie and configuration under home.
const char* const kServerEnvironment[] = {"HOME",         "XDG_RUNTIME_DIR", "XDG_CONFIG_HOME",
                                          "PULSE_SERVER", "PULSE_COOKIE",    "PULSE_RUNTIME_PATH",
                                          "LANG"};

bool isPlainName(const QString& name) {
    return !name.isEmpty() && !name.startsWith(u'.') && !name.contains(u'/') && !name.contains(QChar(0));
}

} // namespace

ThemeSound::ThemeSound(QObject* parent)
    : QObject(parent) {}

ThemeSound::~ThemeSound() {
    stop();
}

QStringList ThemeSound::themeFolders() {
    QStringList folders{QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)};
    const QString dataDirs =
        qEnvironmentVariable("XDG_DATA_DIRS", QStringLiteral("/usr/local/share:/usr/share"));
    folders += dataDirs.split(u':', Qt::SkipEmptyParts);
    for (QString& folder : folders)
        folder += kThemeFolder;
    return folders;
}

QString ThemeSound::soundFile(const QString& name) {
    if (!isPlainName(name))
        return {};
    const QStringList folders = themeFolders();
    for (const QString& folder : folders) {
        for (const char* extension : kExtensions) {
            const QString path = folder + name + u'.' + QLatin1String(extension);
            if (QFileInfo(path).isFile())
                return path;
        }
    }
    return {};
}

QStringList ThemeSound::names() {
    QSet<QString> found;
    QStringList filters;
    for (const char* extension : kExtensions)
        filters.append(QStringLiteral("*.") + QLatin1String(extension));
    const QStringList folders = themeFolders();
    for (const QString& folder : folders) {
        const QFileInfoList files = QDir(folder).entryInfoList(filters, QDir::Files | QDir::Readable);
        for (const QFileInfo& file : files)
            found.insert(file.completeBaseName());
    }
    QStringList sorted(found.cbegin(), found.cend());
    std::sort(sorted.begin(), sorted.end());
    return sorted;
}

void ThemeSound::stop() {
    // The notifier may be the one whose signal brought us here, and its descriptor goes with
    // the player: it stops listening now and goes later.
    if (QSocketNotifier* exit = std::exchange(m_exit, nullptr)) {
        exit->setEnabled(false);
        exit->deleteLater();
    }
    // A player still sounding is killed; one that ended is reaped.
    m_child.reset();
}

ThemeSound::Result ThemeSound::play(const QString& name, QString* reason) {
    const auto fail = [reason](Result result, const QString& why) {
        if (reason)
            *reason = why;
        return result;
    };
    if (m_exit)
        return Result::alreadyPlaying;
    m_child.reset();
    if (!m_files.contains(name))
        m_files.insert(name, soundFile(name));
    const QString file = m_files.value(name);
    if (file.isEmpty())
        return fail(Result::noSound, QStringLiteral("the sound theme has no \"%1\"").arg(name));
    if (!m_playerLooked) {
        m_player = QStandardPaths::findExecutable(QStringLiteral("paplay"));
        m_playerLooked = true;
    }
    if (m_player.isEmpty())
        return fail(Result::noPlayer, QStringLiteral("paplay is missing"));
    ChildProcessOptions options;
    options.program = m_player;
    options.arguments = {QStringLiteral("--client-name=OstaVell"),
                         QStringLiteral("--property=media.role=event"), file};
    for (const char* variable : kServerEnvironment)
        if (qEnvironmentVariableIsSet(variable))
            options.environment.append(QLatin1String(variable) + u'=' + qEnvironmentVariable(variable));
    options.pipes = false;
    QString error;
    m_child = ChildProcess::start(options, &error);
    if (!m_child)
        return fail(Result::failed, error);
    ++m_plays;
    if (m_child->exitDescriptor() >= 0) {
        m_exit = new QSocketNotifier(m_child->exitDescriptor(), QSocketNotifier::Read, this);
        connect(m_exit, &QSocketNotifier::activated, this, &ThemeSound::stop);
    }
    return Result::started;
}

} // namespace vell
