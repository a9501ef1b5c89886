#include "OstaVell/Features/Shelf/X11DragWatch.h"

#include <QGuiApplication>
#include <QSocketNotifier>

#include <cstdlib>
#include <cstring>
#include <sys/uio.h>
#include <xcb/xcb.h>
#include <xcb/xcbext.h>
#include <xcb/xfixes.h>

namespace vell {

namespace {

// XInput 2 has no xcb binding among the libraries the app builds with; its two requests and
// three events that the watch needs are written out from the protocol here.
xcb_extension_t xinputExtension = {"XInputExtension", 0};
constexpr quint8 xiQueryVersion = 47;
constexpr quint8 xiSelectEvents = 46;
constexpr quint16 xiAllMasterDevices = 1;
constexpr quint16 xiRawButtonPress = 15;
constexpr quint16 xiRawButtonRelease = 16;
constexpr quint16 xiRawMotion = 17;
constexpr quint32 leftButton = 1;

// The kinds of content the tray takes, by the names X clients give them.
constexpr const char* contentTypeNames[] = {
    "text/uri-list",   "text/x-moz-url",  "_NETSCAPE_URL", "text/plain", "text/plain;charset=utf-8",
    "UTF8_STRING",     "STRING",          "TEXT",          "image/png",  "image/tiff",
    "application/pdf", "XdndDirectSave0",
};

struct QueryVersionRequest {
    quint8 major = 0;
    quint8 minor = xiQueryVersion;
    quint16 length = 0;
    quint16 majorVersion = 2;
    quint16 minorVersion = 2;
};

struct SelectEventsRequest {
    quint8 major = 0;
    quint8 minor = xiSelectEvents;
    quint16 length = 0;
    quint32 window = 0;
    quint16 maskCount = 1;
    quint16 pad = 0;
    quint16 deviceID = xiAllMasterDevices;
    quint16 maskLength = 1; // in 4-byte units
    quint32 mask = 0;
};

unsigned int send(xcb_connection_t* connection, const void* request, size_t size, bool isVoid) {
    const xcb_protocol_request_t protocol{2, &xinputExtension, quint8(static_cast<const quint8*>(request)[1]),
                                          quint8(isVoid ? 1 : 0)};
    iovec parts[4]{};
    parts[2].iov_base = const_cast<void*>(request);
    parts[2].iov_len = size;
    parts[3].iov_base = nullptr;
    parts[3].iov_len = -size & 3;
    return xcb_send_request(connection, XCB_REQUEST_CHECKED, parts + 2, &protocol);
}

} // namespace

X11DragWatch::X11DragWatch(QObject* parent)
    : QObject(parent) {}

X11DragWatch::~X11DragWatch() {
    stop();
}

quint32 X11DragWatch::intern(const char* name) const {
    xcb_intern_atom_reply_t* reply = xcb_intern_atom_reply(
        m_connection, xcb_intern_atom(m_connection, 0, quint16(std::strlen(name)), name), nullptr);
    const quint32 atom = reply ? reply->atom : 0;
    std::free(reply);
    return atom;
}

bool X11DragWatch::start() {
    if (m_connection)
        return true;
    // Under a Wayland compositor without XWayland there is no X selection to watch: drags
    // there never pass through it.
    if (QGuiApplication::platformName() != u"xcb")
        return false;
    int screenNumber = 0;
    m_connection = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(m_connection)) {
        stop();
        return false;
    }
    xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(m_connection));
    for (int i = 0; i < screenNumber && screens.rem; ++i)
        xcb_screen_next(&screens);
    m_root = screens.data->root;

    const xcb_query_extension_reply_t* xfixes = xcb_get_extension_data(m_connection, &xcb_xfixes_id);
    if (!xfixes || !xfixes->present) {
        stop();
        return false;
    }
    m_xfixesFirstEvent = xfixes->first_event;
    std::free(
        xcb_xfixes_query_version_reply(m_connection, xcb_xfixes_query_version(m_connection, 5, 0), nullptr));
    const quint32 selection = intern("XdndSelection");
    m_typeListAtom = intern("XdndTypeList");
    for (const char* name : contentTypeNames)
        m_contentTypes.insert(intern(name));
    xcb_xfixes_select_selection_input(m_connection, m_root, selection,
                                      XCB_XFIXES_SELECTION_EVENT_MASK_SET_SELECTION_OWNER);

    if (!selectRawEvents()) {
        stop();
        return false;
    }
    xcb_flush(m_connection);
    m_notifier =
        std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &X11DragWatch::readEvents);
    return true;
}

bool X11DragWatch::selectRawEvents() {
    const xcb_query_extension_reply_t* xinput = xcb_get_extension_data(m_connection, &xinputExtension);
    if (!xinput || !xinput->present)
        return false;
    m_xinputOpcode = xinput->major_opcode;
    // Raw events reach every client that asks even during a grab only from version 2.1 on, and
    // only for a client that has said it speaks it.
    QueryVersionRequest query;
    query.length = sizeof query / 4;
    xcb_generic_error_t* error = nullptr;
    auto* reply = static_cast<quint8*>(
        xcb_wait_for_reply(m_connection, send(m_connection, &query, sizeof query, false), &error));
    quint16 major = 0;
    quint16 minor = 0;
    if (reply) {
        std::memcpy(&major, reply + 8, 2);
        std::memcpy(&minor, reply + 10, 2);
    }
    std::free(reply);
    std::free(error);
    if (major < 2 || (major == 2 && minor < 2))
        return false;
    selectEvents(false);
    return true;
}

void X11DragWatch::watchMotion(bool watch) {
    if (m_connection && watch != m_motion)
        selectEvents(watch);
}

void X11DragWatch::selectEvents(bool motion) {
    m_motion = motion;
    const bool watch = motion;
    SelectEventsRequest select;
    select.length = sizeof select / 4;
    select.window = m_root;
    select.mask = (1u << xiRawButtonPress) | (1u << xiRawButtonRelease) | (watch ? 1u << xiRawMotion : 0u);
    xcb_discard_reply(m_connection, send(m_connection, &select, sizeof select, true));
    xcb_flush(m_connection);
}

void X11DragWatch::stop() {
    m_notifier.reset();
    if (m_connection)
        xcb_disconnect(m_connection);
    m_connection = nullptr;
    m_owner = 0;
    m_motion = false;
}

bool X11DragWatch::ownerOffersContent() {
    if (!m_connection || !m_owner)
        return false;
    xcb_get_property_reply_t* reply = xcb_get_property_reply(
        m_connection, xcb_get_property(m_connection, 0, m_owner, m_typeListAtom, XCB_ATOM_ATOM, 0, 256),
        nullptr);
    bool offers = true;
    if (reply && reply->format == 32 && reply->value_len > 0) {
        const auto* types = static_cast<const quint32*>(xcb_get_property_value(reply));
        offers = false;
        for (quint32 i = 0; i < reply->value_len && !offers; ++i)
            offers = m_contentTypes.contains(types[i]);
    }
    std::free(reply);
    // The round trip may have queued events the socket will not announce again.
    QMetaObject::invokeMethod(this, &X11DragWatch::readEvents, Qt::QueuedConnection);
    return offers;
}

void X11DragWatch::readEvents() {
    if (!m_connection)
        return;
    if (xcb_connection_has_error(m_connection)) {
        stop();
        return;
    }
    while (m_connection) {
        xcb_generic_event_t* event = xcb_poll_for_event(m_connection);
        if (!event)
            break;
        handle(event);
        std::free(event);
    }
}

void X11DragWatch::handle(const void* raw) {
    const auto* event = static_cast<const xcb_generic_event_t*>(raw);
    const quint8 type = event->response_type & 0x7f;
    if (type == m_xfixesFirstEvent + XCB_XFIXES_SELECTION_NOTIFY) {
        m_owner = static_cast<const xcb_xfixes_selection_notify_event_t*>(raw)->owner;
        emit selectionOwnerChanged();
        return;
    }
    if (type != XCB_GE_GENERIC)
        return;
    const auto* generic = static_cast<const xcb_ge_generic_event_t*>(raw);
    if (generic->extension != m_xinputOpcode)
        return;
    // A raw event's button number stands at byte 16 of its 32-byte head.
    quint32 detail = 0;
    std::memcpy(&detail, static_cast<const quint8*>(raw) + 16, sizeof detail);
    switch (generic->event_type) {
    case xiRawButtonPress:
        if (detail == leftButton)
            emit leftButtonPressed();
        break;
    case xiRawButtonRelease:
        if (detail == leftButton)
            emit leftButtonReleased();
        break;
    case xiRawMotion:
        if (m_motion)
            emit pointerMoved();
        break;
    default:
        break;
    }
}

} // namespace vell
