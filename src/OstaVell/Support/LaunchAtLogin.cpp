#include "OstaVell/Support/LaunchAtLogin.h"

#include "VellPluginSDK/Json/JsonFile.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

namespace vell {

namespace {

// An Exec= argument: quoted when it holds a reserved character, then the string-level
// escaping of desktop entry values on top, which is why a backslash ends up doubled twice.
QString execArgument(const QString& argument) {
    static const QString reserved = QStringLiteral(" \t\n\"'\\><~|&;$*?#()`");
    bool needsQuotes = argument.isEmpty();
    for (const QChar c : argument)
        needsQuotes = needsQuotes || reserved.contains(c);
    QString quoted;
    if (needsQuotes) {
        quoted += u'"';
        for (const QChar c : argument) {
            if (c == u'"' || c == u'`' || c == u'$' || c == u'\\')
                quoted += u'\\';
            quoted += c;
        }
        quoted += u'"';
    } else {
        quoted = argument;
    }
    quoted.replace(u'\\', QStringLiteral("\\\\"));
    quoted.replace(u'%', QStringLiteral("%%"));
    return quoted;
}

} // namespace

QString LaunchAtLogin::defaultEntryPath() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) +
           QStringLiteral("/autostart/app.ostavell.OstaVell.desktop");
}

QString LaunchAtLogin::currentExecutable() {
    return QCoreApplication::instance() ? QCoreApplication::applicationFilePath() : QString();
}

LaunchAtLogin::LaunchAtLogin(QString entryPath, QString executable)
    : m_entryPath(std::move(entryPath))
    , m_executable(std::move(executable)) {}

bool LaunchAtLogin::isEnabled() const {
    return QFileInfo::exists(m_entryPath);
}

std::optional<QString> LaunchAtLogin::setEnabled(bool enabled) const {
    if (!enabled) {
        QFile entry(m_entryPath);
        if (entry.exists() && !entry.remove())
            return entry.errorString();
        return std::nullopt;
    }

    if (m_executable.isEmpty())
        return QStringLiteral("the application's executable is unknown");
    const QString text = QStringLiteral("[Desktop Entry]\n"
                                        "Type=Application\n"
                                        "Name=OstaVell\n"
                                        "Exec=%1\n"
                                        "Terminal=false\n"
                                        "X-GNOME-Autostart-enabled=true\n")
                             .arg(execArgument(m_executable));
    if (const FileResult written = JsonFile::write(m_entryPath, text.toUtf8()); !written)
        return written.error();
    return std::nullopt;
}

} // namespace vell
