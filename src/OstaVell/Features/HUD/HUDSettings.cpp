#include "OstaVell/Features/HUD/HUDSettings.h"

#include "OstaVell/Support/UserDefaults.h"

#include <QJSEngine>

namespace vell {

HUDSettings::HUDSettings(UserDefaults* defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults) {
    connect(m_defaults, &UserDefaults::changed, this, [this](const QString& key) {
        if (key.isEmpty() || key == showOnExternalChangeKey || key == volumeFeedbackKey)
            emit changed();
    });
}

HUDSettings* HUDSettings::instance() {
    static HUDSettings* settings = new HUDSettings(UserDefaults::instance());
    return settings;
}

HUDSettings* HUDSettings::create(QQmlEngine*, QJSEngine*) {
    HUDSettings* settings = instance();
    QJSEngine::setObjectOwnership(settings, QJSEngine::CppOwnership);
    return settings;
}

bool HUDSettings::showOnExternalChange() const {
    return m_defaults->boolValue(showOnExternalChangeKey, true);
}

void HUDSettings::setShowOnExternalChange(bool on) {
    m_defaults->setValue(showOnExternalChangeKey, on);
}

bool HUDSettings::volumeFeedback() const {
    return m_defaults->boolValue(volumeFeedbackKey, false);
}

void HUDSettings::setVolumeFeedback(bool on) {
    m_defaults->setValue(volumeFeedbackKey, on);
}

} // namespace vell
