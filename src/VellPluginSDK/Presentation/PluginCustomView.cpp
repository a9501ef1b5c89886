#include "VellPluginSDK/Presentation/PluginCustomView.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QRegularExpression>
#include <QUrl>

#include <algorithm>

namespace vell {

namespace {

[[noreturn]] void fail(const char* message) {
    throw ModuleProblem(QString::fromLatin1(message));
}

// Judged on the address as the web engine will see it after parsing: the host in its ASCII
// form, and an authority that is the host alone. User info is refused, even empty, because it
// is the classic way to make an address read as one host and load another; an explicit port
// because a public name may resolve to this machine, where any port could be listening.
bool isHTTPSDocument(const QString& url) {
    static const QRegularExpression hostPattern(QRegularExpression::anchoredPattern(
        QStringLiteral(R"((?:[a-z0-9](?:[a-z0-9-]{0,61}[a-z0-9])?\.)+[a-z]{2,63})")));
    const QUrl parsed(url, QUrl::StrictMode);
    const QString host = parsed.host(QUrl::FullyEncoded);
    return parsed.isValid() && parsed.scheme() == u"https" && parsed.authority(QUrl::FullyEncoded) == host &&
           host.size() <= PluginViewFrame::maximumHostCharacters && hostPattern.match(host).hasMatch();
}

bool isStateValid(const PluginValueMap& state) {
    if (state.size() > PluginCustomView::maximumStateKeys)
        return false;
    for (auto it = state.keyBegin(); it != state.keyEnd(); ++it) {
        if (!Identifiers::isKey(*it))
            return false;
    }
    return JsonWriter::encodeValue(PluginValue::mapToJson(state)).size() <=
           PluginCustomView::maximumStateBytes;
}

} // namespace

PluginViewEventDefinition PluginViewEventDefinition::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"id"), reader.record<PluginValueSchema>(u"input")};
}

QByteArray PluginViewEventDefinition::encoded() const {
    return JsonWriter().add(u"id", id).addRecord(u"input", input).bytes();
}

QJsonObject PluginViewEventDefinition::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

PluginViewFrame PluginViewFrame::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    return {reader.string(u"url")};
}

QByteArray PluginViewFrame::encoded() const {
    return JsonWriter().add(u"url", url).bytes();
}

QJsonObject PluginViewFrame::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginViewFrame::validate() const {
    // The length first, so that no parser ever sees a long text.
    if (TextMetrics::characterCount(url) > maximumURLCharacters)
        fail("Invalid embedded document.");
    const qsizetype colon = url.indexOf(u':');
    const QString scheme = colon < 0 ? QString() : url.left(colon).toLower();
    if (scheme == u"https") {
        if (!isHTTPSDocument(url))
            fail("Invalid HTTPS document.");
    } else if (scheme == u"vell-view") {
        // Only the surface's own host, with a path that can't leave the view root.
        if (!url.startsWith(surfaceAddress) ||
            !PluginViewResources::validPath(QStringView(url).mid(surfaceAddress.size())))
            fail("Invalid plugin-owned document.");
    } else {
        fail("Invalid embedded document.");
    }
}

PluginCustomView PluginCustomView::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginCustomView view;
    view.entry = reader.string(u"entry");
    view.revision = reader.string(u"revision");
    view.state = reader.values(u"state");
    view.events = reader.records<PluginViewEventDefinition>(u"events");
    view.resourceNamespaces = reader.optionalStrings(u"resourceNamespaces");
    view.frames = reader.optionalRecords<PluginViewFrame>(u"frames");
    return view;
}

QByteArray PluginCustomView::encoded() const {
    return JsonWriter()
        .add(u"entry", entry)
        .add(u"revision", revision)
        .add(u"state", PluginValue::mapToJson(state))
        .addRecords(u"events", events)
        .addIfPresent(u"resourceNamespaces", resourceNamespaces)
        .addRecordsIfPresent(u"frames", frames)
        .bytes();
}

QJsonObject PluginCustomView::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void PluginCustomView::validate() const {
    if (!PluginViewResources::validPath(entry) || !entry.endsWith(u".html") ||
        !Identifiers::isKey(revision) || events.size() > maximumEvents ||
        !Identifiers::distinct(events, &PluginViewEventDefinition::id) || !isStateValid(state))
        fail("Invalid custom view.");
    if (resourceNamespaces && (resourceNamespaces->size() > maximumResourceNamespaces ||
                               !std::all_of(resourceNamespaces->begin(), resourceNamespaces->end(),
                                            [](const QString& name) { return Identifiers::isKey(name); })))
        fail("Invalid resource namespaces.");
    if (frames) {
        if (frames->size() > maximumFrames)
            fail("Too many embedded documents.");
        for (const PluginViewFrame& frame : *frames)
            frame.validate();
    }
    for (const PluginViewEventDefinition& event : events) {
        bool valid = Identifiers::isKey(event.id);
        try {
            event.input.validate();
        } catch (const ModuleProblem&) {
            valid = false;
        }
        if (!valid)
            fail("Invalid view event.");
    }
}

void PluginCustomView::validate(const PluginViewResourceRequest& request) const {
    validate();
    const QString firstSegment = request.path.section(u'/', 0, 0);
    if (!PluginViewResources::validPath(request.path) || !resourceNamespaces ||
        !resourceNamespaces->contains(firstSegment))
        fail("Invalid resource URL.");
}

void PluginCustomView::validate(const PluginViewEvent& event) const {
    const auto definition =
        std::find_if(events.begin(), events.end(),
                     [&](const PluginViewEventDefinition& candidate) { return candidate.id == event.name; });
    bool valid = definition != events.end();
    if (valid) {
        try {
            definition->input.validate(event.values);
        } catch (const ModuleProblem&) {
            valid = false;
        }
    }
    if (!valid)
        fail("This view changed or the event is unavailable.");
}

} // namespace vell
