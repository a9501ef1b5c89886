// Sounds of the freedesktop theme by name, played by a real paplay into a real pulseaudio with a
// null sink: what is found where, which names are refused, and one sound at a time.

#include "OstaVell/Support/ThemeSound.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>
#include <QTest>

#include "SoundServer.h"

using namespace vell;
using namespace vell::test;

namespace {

constexpr int patience = 20000;

// A silent 16-bit mono WAV of that many seconds.
QByteArray silence(double seconds) {
    const quint32 rate = 8000;
    const quint32 bytes = quint32(seconds * rate) * 2;
    QByteArray wav;
    const auto add32 = [&wav](quint32 value) {
        for (int shift = 0; shift < 32; shift += 8)
            wav.append(char((value >> shift) & 0xff));
    };
    const auto add16 = [&wav](quint16 value) {
        wav.append(char(value & 0xff));
        wav.append(char(value >> 8));
    };
    wav.append("RIFF");
    add32(36 + bytes);
    wav.append("WAVEfmt ");
    add32(16);
    add16(1);
    add16(1);
    add32(rate);
    add32(rate * 2);
    add16(2);
    add16(16);
    wav.append("data");
    add32(bytes);
    wav.append(QByteArray(int(bytes), '\0'));
    return wav;
}

// The streams the server plays now.
int streams() {
    const QByteArray list = SoundServer::pactl({"list", "short", "sink-inputs"}).value_or("?");
    return int(list.count('\n'));
}

} // namespace

class tst_ThemeSound final : public QObject {
    Q_OBJECT

private slots:
    void initTestCase();
    void lookup_data();
    void lookup();
    void oneSoundAtATime();

private:
    QString m_theme;
    SoundServer m_server;
};

void tst_ThemeSound::initTestCase() {
    m_theme = QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
              QStringLiteral("/sounds/freedesktop/stereo/");
    QVERIFY(QDir().mkpath(m_theme));
    for (const auto& [name, seconds] :
         {std::pair{"long-silence.wav", 60.0}, std::pair{"blip.wav", 0.2}, std::pair{"complete.wav", 0.2}}) {
        QFile file(m_theme + QLatin1String(name));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(silence(seconds));
    }
    QVERIFY(m_server.start());
}

void tst_ThemeSound::lookup_data() {
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("found");
    QTest::addRow("ours") << "blip"
                          << "home:blip.wav";
    QTest::addRow("ours before the system's") << "complete"
                                              << "home:complete.wav";
    QTest::addRow("the system's") << "bell"
                                  << "/usr/share/sounds/freedesktop/stereo/bell.oga";
    QTest::addRow("unknown") << "no-such-sound"
                             << "";
    QTest::addRow("empty") << ""
                           << "";
    QTest::addRow("with its extension") << "blip.wav"
                                        << "";
    QTest::addRow("a path out of the theme") << "../stereo/blip"
                                             << "";
    QTest::addRow("a folder of it") << "x/blip"
                                    << "";
    QTest::addRow("hidden") << ".blip"
                            << "";
}

void tst_ThemeSound::lookup() {
    QFETCH(QString, name);
    QFETCH(QString, found);
    if (found.startsWith(u"home:"))
        found = m_theme + found.mid(5);
    if (!found.isEmpty() && !QFile::exists(found))
        QSKIP("the system's sound theme is not installed");
    QCOMPARE(ThemeSound::soundFile(name), found);
    const QStringList names = ThemeSound::names();
    QCOMPARE(names.contains(name), !found.isEmpty());
    QCOMPARE(names.count(QStringLiteral("complete")), 1);
}

void tst_ThemeSound::oneSoundAtATime() {
    QCOMPARE(streams(), 0);
    {
        ThemeSound sound;
        QString reason;
        QCOMPARE(sound.play(QStringLiteral("no-such-sound"), &reason), ThemeSound::Result::noSound);
        QCOMPARE(reason, QStringLiteral("the sound theme has no \"no-such-sound\""));
        QCOMPARE(sound.plays(), 0);

        QCOMPARE(sound.play(QStringLiteral("long-silence")), ThemeSound::Result::started);
        QTRY_COMPARE_WITH_TIMEOUT(streams(), 1, patience);
        QCOMPARE(sound.play(QStringLiteral("blip")), ThemeSound::Result::alreadyPlaying);
        QCOMPARE(sound.play(QStringLiteral("long-silence")), ThemeSound::Result::alreadyPlaying);
        QCOMPARE(sound.plays(), 1);
        QCOMPARE(streams(), 1);
    }
    // Gone with its owner.
    QTRY_COMPARE_WITH_TIMEOUT(streams(), 0, patience);

    // A short one ends by itself, and the next may start.
    ThemeSound sound;
    QCOMPARE(sound.play(QStringLiteral("blip")), ThemeSound::Result::started);
    QTRY_VERIFY_WITH_TIMEOUT(!sound.isPlaying(), patience);
    QCOMPARE(sound.play(QStringLiteral("blip")), ThemeSound::Result::started);
    QCOMPARE(sound.plays(), 2);
}

QTEST_GUILESS_MAIN(tst_ThemeSound)
#include "tst_ThemeSound.moc"
