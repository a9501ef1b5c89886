#pragma once

#include <QSet>
#include <QString>
#include <QStringList>

// The capability names of the plugin protocol. The host offers every one in its "hello"; a
// plugin's "ready" names the ones it will use, and whatever it did not name stays forbidden to
// it for that session.
namespace vell::PluginCapabilities {

inline constexpr QStringView dashboard = u"dashboard-v1";
inline constexpr QStringView inlineMedia = u"inline-media-v1";
inline constexpr QStringView panels = u"panels-v1";
inline constexpr QStringView artwork = u"artwork-v1";
inline constexpr QStringView diagrams = u"diagrams-v1";
inline constexpr QStringView actions = u"actions-v1";
inline constexpr QStringView longRunningActions = u"actions-long-running-v1";
inline constexpr QStringView runDisplay = u"run-display-v1";
inline constexpr QStringView controlCards = u"control-cards-v1";
inline constexpr QStringView forms = u"forms-v1";
inline constexpr QStringView agenda = u"agenda-v1";
inline constexpr QStringView collections = u"collections-v1";
inline constexpr QStringView customViews = u"custom-views-v1";
inline constexpr QStringView presentation = u"presentation-v1";
inline constexpr QStringView volume = u"volume-v1";
inline constexpr QStringView viewResources = u"view-resources-v1";
inline constexpr QStringView isolatedFrames = u"isolated-frames-v1";
inline constexpr QStringView httpsFrames = u"https-frames-v1";
inline constexpr QStringView transientCaption = u"transient-caption-v1";

// A plugin may name at most this many; the rest of a longer list is dropped in its own order.
inline constexpr int maximumNegotiated = 16;

// All nineteen, in the order the host always sends them.
QStringList offered();

// The session's capabilities from a "ready" list: its first sixteen entries, as a set.
QSet<QString> negotiated(const QStringList& features);

} // namespace vell::PluginCapabilities
