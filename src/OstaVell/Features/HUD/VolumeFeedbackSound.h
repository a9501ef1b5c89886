#pragma once

#include <QObject>
#include <QString>

#include <memory>

class QSocketNotifier;

namespace vell {

class ChildProcess;

// The short sound a volume key makes: the freedesktop sound theme's "audio-volume-change",
// played by paplay on the default output. The file and the player are looked for once; a press
// while the sound still plays starts nothing more.
class VolumeFeedbackSound final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(VolumeFeedbackSound)

public:
    explicit VolumeFeedbackSound(QObject* parent = nullptr);
    ~VolumeFeedbackSound() override;

    // The sound's file in the freedesktop theme, searched in XDG_DATA_HOME and XDG_DATA_DIRS;
    // empty when no theme has it.
    static QString soundFile();

    // Starts the sound; false when there is no sound or no player.
    bool play();
    // How many sounds were started, for the tests that hold a key.
    int plays() const { return m_plays; }

private:
    void stop();

    bool m_found = false;
    QString m_file;
    QString m_program;
    std::unique_ptr<ChildProcess> m_player;
    QSocketNotifier* m_exit = nullptr;
    int m_plays = 0;
};

} // namespace vell
