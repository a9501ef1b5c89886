#include "OstaVell/Features/Shelf/DragDetector.h"

#include "OstaVell/Features/Shelf/ShelfDragZone.h"
#include "OstaVell/Features/Shelf/ShelfStore.h"
#include "OstaVell/Features/Shelf/X11DragWatch.h"
#include "OstaVell/Support/DisplayIdentity.h"
#include "OstaVell/Support/UserDefaults.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>

namespace vell {

DragDetector* DragDetector::instance() {
    static DragDetector* p = new DragDetector(*UserDefaults::instance());
    return p;
}

DragDetector::DragDetector(UserDefaults& defaults, QObject* parent)
    : QObject(parent)
    , m_defaults(defaults)
    , m_watch(std::make_unique<X11DragWatch>()) {
    offersContent = [this] { return m_watch->ownerOffersContent(); };
    screens = [] {
        QList<NotchGeometry::ScreenReading> readings;
        const QList<QScreen*> all = QGuiApplication::screens();
        for (const QScreen* screen : all)
            readings.append(DisplayIdentity::reading(screen));
        return readings;
    };
    connect(m_watch.get(), &X11DragWatch::leftButtonPressed, this, &DragDetector::mouseDown);
    connect(m_watch.get(), &X11DragWatch::leftButtonReleased, this, &DragDetector::mouseUp);
    connect(m_watch.get(), &X11DragWatch::selectionOwnerChanged, this, &DragDetector::pasteboardChanged);
    connect(m_watch.get(), &X11DragWatch::pointerMoved, this, [this] { mouseDragged(QCursor::pos()); });
}

DragDetector::~DragDetector() = default;

bool DragDetector::start() {
    return m_watch->start();
}

void DragDetector::stop() {
    m_watch->stop();
}

bool DragDetector::watching() const {
    return m_watch->running();
}

void DragDetector::mouseDown() {
    m_isMouseDown = true;
    m_firedForCurrentDrag = false;
    m_baselineChangeCount = m_changeCount;
    updateMotionWatch();
}

void DragDetector::mouseUp() {
    m_isMouseDown = false;
    updateMotionWatch();
}

void DragDetector::pasteboardChanged() {
    ++m_changeCount;
    updateMotionWatch();
}

void DragDetector::mouseDragged(const QPointF& globalPosition) {
    if (!m_isMouseDown || m_firedForCurrentDrag)
        return;
    if (!m_defaults.boolValue(QString(ShelfStore::autoOpenOnDragKey), ShelfStore::autoOpenOnDragDefault))
        return;
    // Moving something on screen isn't dragging content: the pasteboard stays as it was.
    if (m_changeCount == m_baselineChangeCount)
        return;
    if (!ShelfDragZone::contains(screens(), globalPosition))
        return;
    if (m_contentCheckedAt != m_changeCount) {
        m_contentCheckedAt = m_changeCount;
        m_offersContent = !offersContent || offersContent();
    }
    if (!m_offersContent)
        return;
    m_firedForCurrentDrag = true;
    updateMotionWatch();
    emit fired();
    if (onDragNearNotch)
        onDragNearNotch();
}

void DragDetector::updateMotionWatch() {
    // Motion matters only during a drag of content that hasn't fired yet.
    const bool wanted = m_isMouseDown && !m_firedForCurrentDrag && m_changeCount != m_baselineChangeCount;
    if (m_watch->running())
        m_watch->watchMotion(wanted);
}

} // namespace vell
