#pragma once

#include <QLatin1StringView>
#include <QObject>
#include <QtQml/qqmlregistration.h>

class QJSEngine;
class QQmlEngine;

namespace vell {

class UserDefaults;

// The HUD's own keys of the user defaults, read when they are needed and never kept: the
// services ask here at the moment of use, the settings pane binds to the properties.
class HUDSettings final : public QObject {
    Q_OBJECT
    QML_ELEMENT
    QML_SINGLETON
    Q_DISABLE_COPY_MOVE(HUDSettings)

    // A change of the volume made elsewhere shows the peek.
    Q_PROPERTY(
        bool showOnExternalChange READ showOnExternalChange WRITE setShowOnExternalChange NOTIFY changed)
    // A volume key plays the sound theme's "audio-volume-change".
    Q_PROPERTY(bool volumeFeedback READ volumeFeedback WRITE setVolumeFeedback NOTIFY changed)

public:
    static constexpr QLatin1StringView showOnExternalChangeKey{"hud.showOnExternalChange"};
    static constexpr QLatin1StringView volumeFeedbackKey{"hud.volumeFeedback"};

    explicit HUDSettings(UserDefaults* defaults, QObject* parent = nullptr);

    static HUDSettings* instance();
    static HUDSettings* create(QQmlEngine*, QJSEngine*);

    bool showOnExternalChange() const;
    void setShowOnExternalChange(bool on);
    bool volumeFeedback() const;
    void setVolumeFeedback(bool on);

signals:
    void changed();

private:
    UserDefaults* m_defaults;
};

} // namespace vell
