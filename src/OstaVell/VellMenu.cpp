#include "OstaVell/VellMenu.h"

#include "OstaVell/ShelfController.h"
#include "OstaVell/Support/MenuTracking.h"

#include <QApplication>
#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QSystemTrayIcon>

namespace vell {

VellMenu::VellMenu(ShelfController* shelf, std::function<void()> showSettings, QObject* parent)
    : QObject(parent)
    , m_shelf(shelf)
    , m_showSettings(std::move(showSettings))
    , m_menu(new QMenu)
    , m_tray(new QSystemTrayIcon(icon(), this)) {
    m_menu->setTitle(QStringLiteral("OstaVell"));
    connect(m_menu, &QMenu::aboutToShow, MenuTracking::instance(), &MenuTracking::menuDidBeginTracking);
    connect(m_menu, &QMenu::aboutToHide, MenuTracking::instance(), &MenuTracking::menuDidEndTracking);
    connect(m_shelf, &ShelfController::displaysChanged, this, &VellMenu::rebuild);
    connect(m_shelf, &ShelfController::isEnabledChanged, this, &VellMenu::rebuild);
    rebuild();
    m_tray->setToolTip(QStringLiteral("OstaVell"));
    m_tray->setContextMenu(m_menu);
    connect(m_tray, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger)
            m_shelf->toggle();
    });
    m_tray->show();
}

VellMenu::~VellMenu() {
    delete m_menu;
}

QIcon VellMenu::icon() {
    // Three stacked layers, drawn so that the tray needs no image plugin.
    QIcon icon;
    for (int size : {16, 22, 24, 32, 48, 64}) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        const double unit = size / 16.0;
        for (int layer = 0; layer < 3; ++layer) {
            QPainterPath path;
            const double top = (2.5 + layer * 3.5) * unit;
            path.moveTo(8 * unit, top);
            path.lineTo(14.5 * unit, top + 2.5 * unit);
            path.lineTo(8 * unit, top + 5 * unit);
            path.lineTo(1.5 * unit, top + 2.5 * unit);
            path.closeSubpath();
            painter.setPen(QPen(QColor(0xC7, 0xEB, 0x87), std::max(1.0, unit)));
            painter.setBrush(layer == 0 ? QColor(0xC7, 0xEB, 0x87) : QColor(0, 0, 0, 0));
            painter.drawPath(path);
        }
        icon.addPixmap(pixmap);
    }
    return icon;
}

void VellMenu::rebuild() {
    m_menu->clear();
    m_menu->addAction(QStringLiteral("Open Vell Here"), m_shelf,
                      [this] { m_shelf->openAtPointer({}, true); });
    m_menu->addAction(QStringLiteral("Open on All Displays"), m_shelf, [this] { m_shelf->openAll(); });
    for (const DisplayChoice& display : m_shelf->displays()) {
        const QString id = display.id;
        m_menu->addAction(QStringLiteral("Open on %1").arg(display.name), m_shelf,
                          [this, id] { m_shelf->open(id); });
    }
    m_menu->addAction(QStringLiteral("Collapse All"), m_shelf, [this] { m_shelf->collapse(); });
    QAction* show = m_menu->addAction(QStringLiteral("Show Vells"));
    show->setCheckable(true);
    show->setChecked(m_shelf->isEnabled());
    connect(show, &QAction::toggled, m_shelf, &ShelfController::setEnabled);
    m_menu->addSeparator();
    m_menu->addAction(QStringLiteral("Settings"), this, [this] {
        if (m_showSettings)
            m_showSettings();
    });
    m_menu->addSeparator();
    QAction* quit = m_menu->addAction(QStringLiteral("Quit OstaVell"), qApp, &QCoreApplication::quit);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
}

} // namespace vell
