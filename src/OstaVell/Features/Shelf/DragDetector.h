#pragma once

#include "VellCore/NotchGeometry.h"

#include <QList>
#include <QObject>
#include <QPointF>

#include <functional>
#include <memory>

namespace vell {

class UserDefaults;
class X11DragWatch;

// Opens the tray when a drag of content nears the notch. A press of the left button marks the
// drag pasteboard's change count; a drag that has changed it (it carries something) and offers
// a kind of content the tray takes, and that enters the hot zone of any screen, calls
// onDragNearNotch once, for as long as the button stays down. A drag that moves no content, such
// as moving a window, never changes the count and does nothing.
//
// The rules read plain inputs, so they run the same under the X11 watch and under a test.
class DragDetector final : public QObject {
    Q_OBJECT
    Q_DISABLE_COPY_MOVE(DragDetector)

public:
    static DragDetector* instance();
    explicit DragDetector(UserDefaults& defaults, QObject* parent = nullptr);
    ~DragDetector() override;

    // The shell's callback; it holds the shell weakly.
    std::function<void()> onDragNearNotch;

    // Starts the X11 watch. False where there is none to be had: a Wayland session without
    // XWayland's selection, where the detector stays silent.
    bool start();
    void stop();
    bool watching() const;

    // The inputs of the rules.
    void mouseDown();
    void mouseUp();
    void pasteboardChanged();
    void mouseDragged(const QPointF& globalPosition);

    int changeCount() const { return m_changeCount; }
    bool isMouseDown() const { return m_isMouseDown; }
    bool firedForCurrentDrag() const { return m_firedForCurrentDrag; }

    // What the rules ask of the world; the watch and the screens unless a test says otherwise.
    std::function<bool()> offersContent;
    std::function<QList<NotchGeometry::ScreenReading>()> screens;

signals:
    void fired();

private:
    void updateMotionWatch();

    UserDefaults& m_defaults;
    std::unique_ptr<X11DragWatch> m_watch;
    bool m_isMouseDown = false;
    bool m_firedForCurrentDrag = false;
    int m_changeCount = 0;
    int m_baselineChangeCount = 0;
    // The answer about the current owner's content, asked once per change.
    int m_contentCheckedAt = -1;
    bool m_offersContent = false;
};

} // namespace vell
