#pragma once

// Dice writes one line for every action it runs for another peer, the request id and the
// action's name, before it acts: the provider's own count of what ran.

#include <QDir>
#include <QFile>
#include <QStringList>

namespace vell::test {

inline const QString diceID = QStringLiteral("app.ostavell.example.dice");

// Its data folder lies under the HOME the host hands it.
inline QStringList diceLog() {
    QFile file(QDir::homePath() + QStringLiteral("/.local/share/OstaVellPlugins/") + diceID +
               QStringLiteral("/rolls.log"));
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split(u'\n', Qt::SkipEmptyParts);
}

} // namespace vell::test
