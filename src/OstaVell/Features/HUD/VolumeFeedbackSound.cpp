#include "OstaVell/Features/HUD/VolumeFeedbackSound.h"

#include "OstaVell/Features/HUD/HUDLogging.h"

namespace vell {

namespace {
const QString kName = QStringLiteral("audio-volume-change");
} // namespace

QString VolumeFeedbackSound::soundFile() {
    return ThemeSound::soundFile(kName);
}

bool VolumeFeedbackSound::play() {
    // A held key repeats far faster than the sound lasts: while one sounds, the next press is
    // heard in it.
    QString reason;
    switch (m_sound.play(kName, &reason)) {
    case ThemeSound::Result::started:
    case ThemeSound::Result::alreadyPlaying:
        return true;
    case ThemeSound::Result::noSound:
    case ThemeSound::Result::noPlayer:
    case ThemeSound::Result::failed:
        break;
    }
    qCInfo(lcHUD).noquote() << "no volume feedback sound: " + reason;
    return false;
}

} // namespace vell
