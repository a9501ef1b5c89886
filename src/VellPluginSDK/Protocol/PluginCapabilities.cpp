#include "VellPluginSDK/Protocol/PluginCapabilities.h"

namespace vell::PluginCapabilities {

QStringList offered() {
    QStringList names;
    for (const QStringView name :
         {dashboard, inlineMedia, panels, artwork, diagrams, actions, longRunningActions, runDisplay,
          controlCards, forms, agenda, collections, customViews, presentation, volume, viewResources,
          isolatedFrames, httpsFrames, transientCaption})
        names.append(name.toString());
    return names;
}

QSet<QString> negotiated(const QStringList& features) {
    const QStringList kept = features.mid(0, maximumNegotiated);
    return QSet<QString>(kept.begin(), kept.end());
}

} // namespace vell::PluginCapabilities
