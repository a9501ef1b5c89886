#pragma once

// Errands writes one line for every action the router hands it, before it acts: the request id,
// the action's name and its values as JSON. It is the provider's own count of what ran.

#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>
#include <QUuid>

namespace vell::test {

inline const QString errandsID = QStringLiteral("app.ostavell.example.errands");

struct ErrandsEntry {
    QUuid run;
    QString action;
    QVariantMap values;
};

// Its data folder lies under the HOME the host hands it.
inline QList<ErrandsEntry> errandsLog() {
    QFile file(QDir::homePath() + QStringLiteral("/.local/share/OstaVellPlugins/") + errandsID +
               QStringLiteral("/errands.log"));
    QList<ErrandsEntry> entries;
    if (!file.open(QIODevice::ReadOnly))
        return entries;
    for (const QByteArray& line : file.readAll().split('\n')) {
        const QList<QByteArray> parts = line.split(' ');
        if (parts.size() < 3)
            continue;
        const QByteArray json = line.mid(parts.at(0).size() + parts.at(1).size() + 2);
        entries.append({QUuid::fromString(QString::fromLatin1(parts.at(0))), QString::fromUtf8(parts.at(1)),
                        QJsonDocument::fromJson(json).object().toVariantMap()});
    }
    return entries;
}

} // namespace vell::test
