#pragma once

#include <QDateTime>
#include <QString>

namespace vell {

class NotesStore;
class UserDefaults;

// The one-time rewrites of the user defaults that run first at launch, before any panel
// reads a setting. Each step is guarded by its own flag, set when the step ends even if it
// found nothing to change, so a step never runs twice.
class Migrations final {
public:
    Migrations() = delete;

    static constexpr const char* notesFlag = "migration.notes.v3";
    static constexpr const char* googleTabFlag = "migration.googleTab.v4";
    static constexpr const char* modulesTabFlag = "migration.modulesTab.v6";
    static constexpr const char* automationsFlag = "migration.automations.v17";

    static void run(UserDefaults& defaults, NotesStore& notes, const QDateTime& now);

private:
    // Whether the note is kept (or there was none).
    static bool importScratchNote(UserDefaults& defaults, NotesStore& notes, const QDateTime& now);
    static void appendTab(UserDefaults& defaults, const QString& fallback, const QString& tab);
    static void renameToolsTab(UserDefaults& defaults);
};

} // namespace vell
