#pragma once

// What the view tests share: finding an item by name, pressing it as a person would, keeping a
// picture of a window in <build>/screenshots, and finding text that Qt would not draw as plain.

#include <QDir>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QStringList>
#include <QTest>

namespace vell::test {

inline QQuickItem* findItem(QQuickItem* root, const QString& name) {
    if (!root)
        return nullptr;
    if (root->objectName() == name)
        return root;
    const QList<QQuickItem*> children = root->childItems();
    for (QQuickItem* child : children)
        if (QQuickItem* found = findItem(child, name))
            return found;
    return nullptr;
}

// Every item under root whose name starts with the prefix, in the order they stand on screen
// from top to bottom.
inline QList<QQuickItem*> findItems(QQuickItem* root, const QString& prefix) {
    QList<QQuickItem*> found;
    const std::function<void(QQuickItem*)> walk = [&](QQuickItem* item) {
        if (item->objectName().startsWith(prefix))
            found.append(item);
        const QList<QQuickItem*> children = item->childItems();
        for (QQuickItem* child : children)
            walk(child);
    };
    if (root)
        walk(root);
    std::stable_sort(found.begin(), found.end(), [](QQuickItem* a, QQuickItem* b) {
        return a->mapToScene({}).y() < b->mapToScene({}).y();
    });
    return found;
}

// The item of that name while it is on screen; a closed popup's items leave the scene.
inline QQuickItem* shown(QQuickItem* root, const QString& name) {
    QQuickItem* item = findItem(root, name);
    return item && item->isVisible() ? item : nullptr;
}

// A click in the middle of the item, when it is on screen.
inline bool click(QQuickWindow* window, QQuickItem* item) {
    if (!item || !item->isVisible())
        return false;
    const QPointF centre = item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
    QTest::mouseClick(window, Qt::LeftButton, {}, centre.toPoint());
    return true;
}

// One more frame reached the screen.
inline bool drawn(QQuickWindow* window) {
    QSignalSpy frames(window, &QQuickWindow::frameSwapped);
    window->update();
    return frames.wait(20000);
}

inline void screenshot(QQuickWindow* window, const QString& name) {
    QVERIFY(drawn(window));
    const QString folder = qEnvironmentVariable("VELL_BUILD_DIR") + QStringLiteral("/screenshots");
    QVERIFY(QDir().mkpath(folder));
    QVERIFY(window->grabWindow().save(folder + QLatin1Char('/') + name + QStringLiteral(".png")));
}

// The texts shown that Qt would read as something other than plain text.
inline QStringList richTexts(QQuickItem* root) {
    QStringList found;
    if (!root)
        return {QStringLiteral("no view")};
    if (root->inherits("QQuickText") && root->property("textFormat").toInt() != Qt::PlainText &&
        !root->property("text").toString().isEmpty())
        found.append(root->property("text").toString());
    const QList<QQuickItem*> children = root->childItems();
    for (QQuickItem* child : children)
        found += richTexts(child);
    return found;
}

// Fails with those texts, when there are any.
inline void verifyPlainText(QQuickItem* root) {
    const QStringList rich = richTexts(root);
    QVERIFY2(rich.isEmpty(), qPrintable(rich.join(u" | ")));
}

} // namespace vell::test
