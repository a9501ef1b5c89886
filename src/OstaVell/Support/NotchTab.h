#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <optional>

namespace vell {

// The open panel's four tabs, in their order. Their raw values are what the defaults keep.
namespace NotchTabs {
Q_NAMESPACE
QML_NAMED_ELEMENT(NotchTab)

enum class NotchTab { home, shelf, tools, modules };
Q_ENUM_NS(NotchTab)

} // namespace NotchTabs

using NotchTab = NotchTabs::NotchTab;

// "Vell", "Tray", "Automations", "Modules".
QString notchTabRaw(NotchTab tab);
// The symbol name each tab is drawn with.
QString notchTabIcon(NotchTab tab);
// Exactly one of the four raw values, else nothing.
std::optional<NotchTab> notchTabFromRaw(QStringView raw);
// A value read back from the defaults, which may predate the current tabs: "Tools" is the
// old name of the automations tab, and "Google" and "Modules" now live on the stage of "Vell".
// Anything unknown opens "Vell".
NotchTab notchTabFromSaved(QStringView raw);

} // namespace vell
