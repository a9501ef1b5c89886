#pragma once

#include <QObject>
#include <QSet>

#include <memory>

struct xcb_connection_t;
class QSocketNotifier;

namespace vell {

// A passive watch of the X server for the drag detector, on a connection of its own so that
// nothing it selects reaches Qt's event handling:
// - the owner of the selection "XdndSelection", through XFixes: every drag and drop between X
//   clients begins by taking that selection, so each change of owner is one more drag of
//   content;
// - the left button and the pointer's motion, through XInput 2 raw events on the root window.
//   Raw events are copies the server hands to every client that asks, also while another client
//   holds a grab (as a drag source does): nothing is taken from anyone, and no recording
//   extension is needed. Motion is asked for only while the detector wants it, so a pointer
//   moving about the desktop wakes nothing here.
// Nothing is polled: the connection's socket says when there is something to read.
class X11DragWatch final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(X11DragWatch)

public:
    explicit X11DragWatch(QObject* parent = nullptr);
    ~X11DragWatch() override;

    // False where there is no X server, or it lacks XFixes or XInput 2.2.
    bool start();
    void stop();
    bool running() const { return m_connection != nullptr; }

    void watchMotion(bool watch);
    // Whether the selection's current owner offers one of the kinds of content the tray takes
    // (file or other URLs, text, PNG, TIFF, PDF, a file to be saved). An owner that lists no
    // types offers at most three, named only to the drop target: it is given the benefit of
    // the doubt, as a drag between X clients always carries something.
    bool ownerOffersContent();

signals:
    void leftButtonPressed();
    void leftButtonReleased();
    void pointerMoved();
    void selectionOwnerChanged();

private:
    bool selectRawEvents();
    void selectEvents(bool motion);
    void readEvents();
    void handle(const void* event);
    quint32 intern(const char* name) const;

    xcb_connection_t* m_connection = nullptr;
    std::unique_ptr<QSocketNotifier> m_notifier;
    quint32 m_root = 0;
    quint8 m_xfixesFirstEvent = 0;
    quint8 m_xinputOpcode = 0;
    quint32 m_owner = 0;
    quint32 m_typeListAtom = 0;
    QSet<quint32> m_contentTypes;
    bool m_motion = false;
};

} // namespace vell
