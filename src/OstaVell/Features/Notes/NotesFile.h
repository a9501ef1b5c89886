#pragma once

#include "OstaVell/Features/Notes/NotesItem.h"

#include <QByteArray>
#include <QList>

#include <optional>

namespace vell {

// What notes.json holds. Earlier versions of the app wrote the bare list of notes; fromData
// reads both, and toData always writes this form.
struct NotesFile final {
    static constexpr int currentVersion = 1;

    int version = currentVersion;
    QList<NotesItem> notes;

    // Pretty printed with sorted keys.
    QByteArray toData() const;
    // The reason it couldn't be read when neither form fits.
    static std::optional<NotesFile> fromData(const QByteArray& data, QString* error = nullptr);

    friend bool operator==(const NotesFile&, const NotesFile&) = default;
};

} // namespace vell
