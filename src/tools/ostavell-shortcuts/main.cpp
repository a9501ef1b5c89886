// ostavell-shortcuts: the user's shortcuts are the executable files of one folder.
//   list      prints their names, one a line
//   run NAME  becomes that shortcut, so its exit status is the command's own, and whoever started
//             the command (the app, a script) signals the shortcut itself when it stops it.

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QStringList>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Exit statuses besides the shortcut's own: 2 for a command line or a name that is refused, 126
// (as shells answer) for a shortcut that exists but the system cannot execute.
constexpr int usageStatus = 2;
constexpr int cannotExecuteStatus = 126;

QString shortcutsFolder() {
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
           QStringLiteral("/OstaVell/Shortcuts");
}

// A name stays inside the folder and is never hidden: no separator, no leading dot (which also
// rules out "." and ".."), and no line break, which `list` could not print as one line.
bool isPlainName(const QString& name) {
    return !name.isEmpty() && !name.startsWith(u'.') && !name.contains(u'/') && !name.contains(u'\n') &&
           !name.contains(QChar(0));
}

// What list shows and run accepts, judged the same way for both: a regular file, links followed,
// that this user may execute.
bool isShortcut(const QString& folder, const QString& name) {
    if (!isPlainName(name))
        return false;
    const QByteArray path = QFile::encodeName(folder + u'/' + name);
    struct stat status {};
    return ::stat(path.constData(), &status) == 0 && S_ISREG(status.st_mode) &&
           ::access(path.constData(), X_OK) == 0;
}

int list() {
    const QString folder = shortcutsFolder();
    QStringList names;
    const QStringList entries = QDir(folder).entryList(QDir::Files, QDir::Unsorted);
    for (const QString& name : entries) {
        if (isShortcut(folder, name))
            names.append(name);
    }
    // Code-point order: the same on every machine, whatever the locale.
    std::sort(names.begin(), names.end());
    for (const QString& name : std::as_const(names))
        std::printf("%s\n", name.toLocal8Bit().constData());
    return 0;
}

int run(const QString& name) {
    const QString folder = shortcutsFolder();
    if (name.isEmpty()) {
        std::fputs("A shortcut needs a name.\n", stderr);
        return usageStatus;
    }
    if (!isShortcut(folder, name)) {
        // One line whatever the name holds, so the caller can show it as it is.
        const QString shown = QString(name).replace(u'\n', u' ');
        std::fprintf(stderr, "No shortcut named %s.\n", shown.toLocal8Bit().constData());
        return usageStatus;
    }
    const QByteArray path = QFile::encodeName(folder + u'/' + name);
    char* const arguments[] = {const_cast<char*>(path.constData()), nullptr};
    // execv, not execvp: a file the kernel refuses (a script without "#!") is not handed to a shell.
    ::execv(path.constData(), arguments);
    const int error = errno;
    std::fprintf(stderr, "The shortcut %s could not start: %s.\n", name.toLocal8Bit().constData(),
                 std::strerror(error));
    return cannotExecuteStatus;
}

int usage() {
    std::fputs("usage: ostavell-shortcuts list\nusage: ostavell-shortcuts run NAME\n", stderr);
    return usageStatus;
}

} // namespace

int main(int argc, char** argv) {
    if (argc == 2 && std::strcmp(argv[1], "list") == 0)
        return list();
    if (argc == 3 && std::strcmp(argv[1], "run") == 0)
        return run(QFile::decodeName(argv[2]));
    return usage();
}
