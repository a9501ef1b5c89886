#pragma once

#include <QObject>
#include <QString>

#include <optional>

namespace vell {

// The default output as the sound server last described it.
struct HUDOutputReading {
    bool present = false;
    // Stable across launches: what a volume route is saved under.
    QString uid;
    QString name;
    // 0 to 1; nothing when the output has no level to read.
    std::optional<float> volume;
    std::optional<bool> muted;
    bool canSetVolume = false;
    bool canMute = false;

    friend bool operator==(const HUDOutputReading&, const HUDOutputReading&) = default;
};

// Where the HUD's volume comes from and goes to: the system's default output. Readings
// arrive when the server reports a change, never by asking on a timer; a write is answered
// by a later reading like any other change.
class HUDAudioOutput : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(HUDAudioOutput)

public:
    using QObject::QObject;

    // Begins following the default output; once.
    virtual void start() = 0;
    virtual HUDOutputReading reading() const = 0;
    virtual void writeVolume(float volume) = 0;
    virtual void writeMuted(bool muted) = 0;

signals:
    // The server described the default output again: it may be another one, read otherwise, or
    // have appeared or gone. Also when nothing differs from the last reading.
    void readingChanged();
};

} // namespace vell
