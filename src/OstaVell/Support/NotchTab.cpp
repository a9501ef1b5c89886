#include "OstaVell/Support/NotchTab.h"

#include <array>

namespace vell {

namespace {

struct TabNames {
    NotchTab tab;
    QStringView raw;
    QStringView icon;
};

constexpr std::array<TabNames, 4> tabNames{{
    {NotchTab::home, u"Vell", u"square.grid.2x2"},
    {NotchTab::shelf, u"Tray", u"tray"},
    {NotchTab::tools, u"Automations", u"slider.horizontal.3"},
    {NotchTab::modules, u"Modules", u"puzzlepiece.extension"},
}};

} // namespace

QString notchTabRaw(NotchTab tab) {
    return tabNames[static_cast<std::size_t>(tab)].raw.toString();
}

QString notchTabIcon(NotchTab tab) {
    return tabNames[static_cast<std::size_t>(tab)].icon.toString();
}

std::optional<NotchTab> notchTabFromRaw(QStringView raw) {
    for (const TabNames& names : tabNames) {
        if (names.raw == raw)
            return names.tab;
    }
    return std::nullopt;
}

NotchTab notchTabFromSaved(QStringView raw) {
    if (raw == u"Tools")
        return NotchTab::tools;
    if (raw == u"Google" || raw == u"Modules")
        return NotchTab::home;
    return notchTabFromRaw(raw).value_or(NotchTab::home);
}

} // namespace vell
