#pragma once

#include "VellHost/Media/MediaArtworkFetcher.h"
#include "VellHost/Media/MprisPlayers.h"

#include <QElapsedTimer>
#include <QFile>
#include <QObject>
#include <QTimer>

namespace vell {

// The stream: one line of JSON on standard output for every change of the player it reports,
// each line complete. The first change after a quiet spell is written at once; later ones
// within the debounce interval are folded into one line at its end, and a line equal to the
// last one is not written again.
class MediaAdapterStream final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(MediaAdapterStream)

public:
    MediaAdapterStream(MprisPlayers& players, int debounceMilliseconds, QString pinnedBusName,
                       QObject* parent = nullptr);

    // The line for the players as they are: the chosen one's payload (empty when there is
    // none), the bus name it has, and the players a person may pin.
    static QByteArray record(const QList<MprisPlayerState>& players, const QString& pinnedBusName,
                             const QByteArray& artwork);

private:
    void schedule();
    void write();

    MprisPlayers& m_players;
    MediaArtworkFetcher m_artwork;
    QString m_pin;
    QTimer m_debounce;
    QElapsedTimer m_sinceWrite;
    QFile m_output;
    QByteArray m_last;
};

} // namespace vell
