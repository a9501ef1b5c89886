#pragma once

#include "OstaVell/Support/ThemeSound.h"

#include <QString>

namespace vell {

// The short sound a volume key makes: the freedesktop sound theme's "audio-volume-change". A
// press while the sound still plays starts nothing more.
class VolumeFeedbackSound final {
public:
    VolumeFeedbackSound() = default;
    Q_DISABLE_COPY_MOVE(VolumeFeedbackSound)

    // The sound's file in the theme; empty when no theme has it.
    static QString soundFile();

    // Starts the sound; false when there is no sound or no player.
    bool play();
    // How many sounds were started, for the tests that hold a key.
    int plays() const { return m_sound.plays(); }

private:
    ThemeSound m_sound;
};

} // namespace vell
