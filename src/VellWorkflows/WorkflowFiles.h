#pragma once

#include "VellWorkflows/WorkflowDocument.h"
#include "VellWorkflows/WorkflowTimeline.h"

#include <QByteArray>
#include <QList>
#include <QString>

#include <optional>

namespace vell {

// The only code that touches the workflow library and the run history on disk. It holds
// nothing: each call reads or writes a whole file, atomically, and every failure passes to the
// caller with the file left as it was. Deciding what an unreadable file means is the owner's
// matter; nothing here ever moves, truncates or deletes one.
class WorkflowFiles final {
public:
    static constexpr qsizetype maximumDocuments = 64;
    static constexpr qint64 maximumFileBytes = 2 * 1024 * 1024;
    static constexpr qsizetype maximumTimelines = 100;
    static constexpr QStringView libraryFile = u"workflows-v1.json";
    static constexpr QStringView historyFile = u"history-v1.json";
    static constexpr QStringView interruptedDetail =
        u"OstaVell restarted before a confirmed workflow outcome. Nothing was resumed; inspect the source "
        u"module's original job.";

    explicit WorkflowFiles(QString directory);

    const QString& directory() const { return m_directory; }

    // The library in its order; a stored document only passes the size tests, since the
    // editor saves unfinished work. Empty when there is no file yet.
    QList<WorkflowDocument> load() const;
    void save(const QList<WorkflowDocument>& documents) const;
    // The newest runs, oldest first, with each run that a restart cut short marked
    // interrupted. No run is ever resumed, and none is left looking alive. The file is not
    // changed here: the owner writes the repair back.
    QList<WorkflowTimeline> history(double now) const;
    // Keeps the newest runs. No size test: a history over the limit can be written, and the
    // next read refuses it.
    void saveHistory(const QList<WorkflowTimeline>& timelines) const;

private:
    void write(const QByteArray& data, QStringView name) const;
    // Nothing when the file does not exist.
    std::optional<QByteArray> read(QStringView name, const char* tooLarge) const;
    QString path(QStringView name) const;

    QString m_directory;
};

} // namespace vell
