#include "OstaVell/Migrations.h"

#include "OstaVell/Features/Notes/NotesStore.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QStringList>

namespace vell {

namespace {

const QString visibleTabsKey = QStringLiteral("layout.visibleTabs");
const QString defaultTabKey = QStringLiteral("layout.defaultTab");

} // namespace

void Migrations::run(UserDefaults& defaults, NotesStore& notes, const QDateTime& now) {
    // A step answers whether it is done; one that is not runs again at the next launch.
    auto step = [&defaults](const char* flag, auto&& migrate) {
        const QString key = QString::fromLatin1(flag);
        if (defaults.boolValue(key, false))
            return;
        if (migrate())
            defaults.setValue(key, true);
    };

    step(notesFlag, [&] { return importScratchNote(defaults, notes, now); });
    step(googleTabFlag, [&] {
        appendTab(defaults, QStringLiteral("Vell,Tray,Tools"), QStringLiteral("Google"));
        return true;
    });
    step(modulesTabFlag, [&] {
        appendTab(defaults, QStringLiteral("Vell,Tray,Google,Tools"), QStringLiteral("Modules"));
        return true;
    });
    step(automationsFlag, [&] {
        renameToolsTab(defaults);
        return true;
    });
}

bool Migrations::importScratchNote(UserDefaults& defaults, NotesStore& notes, const QDateTime& now) {
    // "scratchNote" stays behind on purpose: the flag, not the key's absence, stops a
    // second import. A notes file that can't be read takes no note, so the import waits.
    const QString text = defaults.stringValue(QStringLiteral("scratchNote"));
    return text.isEmpty() || notes.addNote(text, now).has_value();
}

void Migrations::appendTab(UserDefaults& defaults, const QString& fallback, const QString& tab) {
    QStringList tabs = defaults.stringValue(visibleTabsKey, fallback).split(u',', Qt::SkipEmptyParts);
    if (!tabs.contains(tab))
        tabs.append(tab);
    defaults.setValue(visibleTabsKey, tabs.join(u','));
}

void Migrations::renameToolsTab(UserDefaults& defaults) {
    // Plain text replacement over the whole list; an old "Google" stays for the tab code to
    // ignore.
    QString tabs = defaults.stringValue(visibleTabsKey, QStringLiteral("Vell,Tray,Tools,Modules"));
    tabs.replace(QStringLiteral("Tools"), QStringLiteral("Automations"));
    defaults.setValue(visibleTabsKey, tabs);
    if (defaults.stringValue(defaultTabKey) == u"Tools")
        defaults.setValue(defaultTabKey, QStringLiteral("Automations"));
}

} // namespace vell
