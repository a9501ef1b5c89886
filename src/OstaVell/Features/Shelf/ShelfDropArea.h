#pragma once

#include <QQuickItem>
#include <QtQml/qqmlregistration.h>

namespace vell {

// Where files, links, text and images from other applications land on the tray. It works on
// the drop's whole MIME data, which QML's DropArea doesn't hand out, and always takes a copy:
// a move offered by a file manager would delete the user's file from where it was. Not final:
// the QML engine derives from the types it creates.
class ShelfDropArea : public QQuickItem {
    Q_OBJECT
    QML_ELEMENT
    Q_DISABLE_COPY_MOVE(ShelfDropArea)
    Q_PROPERTY(bool containsDrag READ containsDrag NOTIFY containsDragChanged)

public:
    explicit ShelfDropArea(QQuickItem* parent = nullptr);

    bool containsDrag() const { return m_containsDrag; }

signals:
    void containsDragChanged();
    // After a drop, with whether the tray took something.
    void dropped(bool taken);

protected:
    void dragEnterEvent(QDragEnterEvent* event) override;
    void dragMoveEvent(QDragMoveEvent* event) override;
    void dragLeaveEvent(QDragLeaveEvent* event) override;
    void dropEvent(QDropEvent* event) override;

private:
    bool accepts(const QDropEvent* event) const;
    void setContainsDrag(bool contains);

    bool m_containsDrag = false;
};

} // namespace vell
