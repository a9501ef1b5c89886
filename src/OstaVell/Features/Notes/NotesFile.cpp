#include "OstaVell/Features/Notes/NotesFile.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace vell {

namespace {

std::optional<QList<NotesItem>> notesFromArray(const QJsonValue& json) {
    if (!json.isArray())
        return std::nullopt;
    QList<NotesItem> notes;
    const QJsonArray array = json.toArray();
    for (const QJsonValue& element : array) {
        std::optional<NotesItem> note = NotesItem::fromJson(element);
        if (!note)
            return std::nullopt;
        notes.append(*note);
    }
    return notes;
}

} // namespace

QByteArray NotesFile::toData() const {
    QJsonArray array;
    for (const NotesItem& note : notes)
        array.append(note.toJson());
    const QJsonObject object{{QStringLiteral("version"), version}, {QStringLiteral("notes"), array}};
    return QJsonDocument(object).toJson(QJsonDocument::Indented);
}

std::optional<NotesFile> NotesFile::fromData(const QByteArray& data, QString* error) {
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError) {
        if (error)
            *error = parseError.errorString();
        return std::nullopt;
    }

    if (document.isObject()) {
        const QJsonObject object = document.object();
        const QJsonValue version = object.value(QLatin1StringView("version"));
        std::optional<QList<NotesItem>> notes = notesFromArray(object.value(QLatin1StringView("notes")));
        if (version.isDouble() && version.toDouble() == double(version.toInt()) && notes)
            return NotesFile{version.toInt(), *notes};
    } else if (document.isArray()) {
        if (std::optional<QList<NotesItem>> notes = notesFromArray(document.array()))
            return NotesFile{currentVersion, *notes};
    }
    if (error)
        *error = QStringLiteral("the data is neither a notes file nor a list of notes");
    return std::nullopt;
}

} // namespace vell
