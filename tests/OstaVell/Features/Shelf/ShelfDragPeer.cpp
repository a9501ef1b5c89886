// Another program for the tray's drag and drop to meet: a small X client of its own. It writes
// each thing that happens to it as one line to a log file, which the test reads.
//   ShelfDragPeer LOG source URI X Y   starts a drag of the URI when pressed
//   ShelfDragPeer LOG still X Y        is pressed and dragged over, and drags nothing
//   ShelfDragPeer LOG target X Y       takes drops and writes what it received
#include <QDrag>
#include <QDragEnterEvent>
#include <QFile>
#include <QGuiApplication>
#include <QMimeData>
#include <QPainter>
#include <QRasterWindow>

namespace {

class Peer final : public QRasterWindow {
public:
    Peer(QString log, QString mode, QUrl uri)
        : m_log(std::move(log))
        , m_mode(std::move(mode))
        , m_uri(std::move(uri)) {}

    void say(const QString& line) {
        QFile file(m_log);
        if (file.open(QIODevice::Append))
            file.write(line.toUtf8() + '\n');
    }

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(QRect(QPoint(), size()),
                         m_mode == u"target" ? QColor(40, 90, 160) : QColor(160, 90, 40));
    }

    void exposeEvent(QExposeEvent* event) override {
        QRasterWindow::exposeEvent(event);
        if (isExposed() && !m_ready) {
            m_ready = true;
            const QPoint origin = mapToGlobal(QPoint());
            say(QStringLiteral("ready %1 %2 %3 %4")
                    .arg(origin.x())
                    .arg(origin.y())
                    .arg(width())
                    .arg(height()));
        }
    }

    void mousePressEvent(QMouseEvent* event) override {
        say(QStringLiteral("pressed"));
        if (m_mode != u"source" || event->button() != Qt::LeftButton)
            return;
        auto* drag = new QDrag(this);
        auto* data = new QMimeData;
        data->setUrls({m_uri});
        drag->setMimeData(data);
        say(QStringLiteral("dragging"));
        const Qt::DropAction action = drag->exec(Qt::CopyAction);
        say(QStringLiteral("dragged %1")
                .arg(action == Qt::IgnoreAction ? QStringLiteral("nothing") : QStringLiteral("copy")));
    }

    bool event(QEvent* event) override {
        switch (event->type()) {
        case QEvent::DragEnter:
        case QEvent::DragMove: {
            auto* move = static_cast<QDragMoveEvent*>(event);
            if (m_mode != u"target")
                return QRasterWindow::event(event);
            if (event->type() == QEvent::DragEnter)
                say(QStringLiteral("entered"));
            move->setDropAction(Qt::CopyAction);
            move->accept();
            return true;
        }
        case QEvent::Drop: {
            auto* drop = static_cast<QDropEvent*>(event);
            QStringList urls;
            for (const QUrl& url : drop->mimeData()->urls())
                urls.append(url.toString(QUrl::FullyEncoded));
            say(QStringLiteral("dropped %1 | %2").arg(urls.join(u' '), drop->mimeData()->text()));
            drop->setDropAction(Qt::CopyAction);
            drop->accept();
            return true;
        }
        default:
            return QRasterWindow::event(event);
        }
    }

private:
    QString m_log;
    QString m_mode;
    QUrl m_uri;
    bool m_ready = false;
};

} // namespace

int main(int argc, char** argv) {
    QGuiApplication app(argc, argv);
    const QStringList arguments = QCoreApplication::arguments();
    const bool source = arguments.value(2) == u"source";
    if (arguments.size() != (source ? 6 : 5))
        return 2;
    const int offset = source ? 1 : 0;
    Peer peer(arguments.at(1), arguments.at(2), source ? QUrl(arguments.at(3)) : QUrl());
    peer.setTitle(QStringLiteral("Drag peer"));
    peer.setGeometry(arguments.at(3 + offset).toInt(), arguments.at(4 + offset).toInt(), 220, 160);
    peer.show();
    return app.exec();
}
