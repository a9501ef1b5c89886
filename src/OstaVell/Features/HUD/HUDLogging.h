#pragma once

#include <QLoggingCategory>

// "OstaVell HUD": volume, brightness, the media keys and the peek.
Q_DECLARE_LOGGING_CATEGORY(lcHUD)
