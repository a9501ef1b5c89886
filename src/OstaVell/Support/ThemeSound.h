#pragma once

#include <QHash>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class QSocketNotifier;

namespace vell {

class ChildProcess;

// A sound of the freedesktop sound theme, found by its name ("complete", "bell") in the sounds
// folders under XDG_DATA_HOME and XDG_DATA_DIRS, and played by paplay on the default output.
// One instance plays at most one sound at a time: a request while its sound still plays starts
// nothing more. The player and each name's file are looked for once.
class ThemeSound final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(ThemeSound)

public:
    enum class Result {
        started,
        alreadyPlaying, // the sound of an earlier request still plays
        noSound,        // no theme has a sound of that name
        noPlayer,       // paplay is not installed
        failed,         // the player could not be started
    };

    explicit ThemeSound(QObject* parent = nullptr);
    ~ThemeSound() override;

    // The file of that name in the theme, or empty: also for a name that is no plain file name,
    // which could otherwise reach outside the sounds folders.
    static QString soundFile(const QString& name);
    // Every name the theme has, sorted, each once.
    static QStringList names();

    // Starts the sound; why it did not start is put in reason.
    Result play(const QString& name, QString* reason = nullptr);
    bool isPlaying() const { return m_exit != nullptr; }
    // How many sounds were started.
    int plays() const { return m_plays; }

private:
    static QStringList themeFolders();
    void stop();

    QHash<QString, QString> m_files;
    bool m_playerLooked = false;
    QString m_player;
    std::unique_ptr<ChildProcess> m_child;
    QSocketNotifier* m_exit = nullptr;
    int m_plays = 0;
};

} // namespace vell
