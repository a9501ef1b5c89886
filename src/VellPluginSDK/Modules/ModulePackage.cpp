#include "VellPluginSDK/Modules/ModulePackage.h"

#include "VellPluginSDK/Identifiers.h"
#include "VellPluginSDK/Json/JsonFile.h"
#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/TextMetrics.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QRegularExpression>

#include <algorithm>

namespace vell {

namespace {

const QString mqttPermission = QStringLiteral("local.mqtt.read");

bool withinCharacters(QStringView text, int minimum, int maximum) {
    const int length = TextMetrics::characterCount(text);
    return length >= minimum && length <= maximum;
}

[[noreturn]] void fail(const char16_t* message) {
    throw ModuleProblem(QString::fromUtf16(message));
}

void validateFeeds(const ModulePackage& package) {
    const QList<ModuleFeed> feeds = package.feeds.value_or(QList<ModuleFeed>());
    if (feeds.size() > 1 || !Identifiers::distinct(feeds, &ModuleFeed::id))
        throw ModuleProblem(ModuleFeed::declarationProblem());
    for (const ModuleFeed& feed : feeds)
        feed.validate();
    if (!feeds.isEmpty() != package.permissions.contains(mqttPermission))
        throw ModuleProblem(ModuleFeed::declarationProblem());
}

void validateView(const QList<ModuleComponent>& view, const QList<ModuleAction>& actions) {
    if (!Identifiers::distinct(view, &ModuleComponent::id))
        fail(u"View component IDs must be unique within each view.");
    for (const ModuleComponent& component : view)
        component.validate(actions);
}

} // namespace

ModulePackage ModulePackage::decode(const QByteArray& data) {
    if (data.size() > maximumBytes)
        fail(u"Module exceeds the 256 KB package limit.");

    const auto invalid = [](const QString& reason) {
        return ModuleProblem(QStringLiteral("This is not a valid OstaVell module package: ") + reason);
    };
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(data, &parseError);
    if (parseError.error != QJsonParseError::NoError)
        throw invalid(parseError.errorString());
    if (!document.isObject())
        throw invalid(QStringLiteral("the package must be a JSON object"));
    ModulePackage package;
    try {
        package = fromJson(document.object());
    } catch (const ModuleProblem& problem) {
        throw invalid(problem.message());
    }
    package.validate();
    return package;
}

ModulePackage ModulePackage::read(const QString& path) {
    const FileContents contents = JsonFile::readBytes(path, maximumBytes);
    if (contents.missing() || contents.status == FileContents::Status::Unusable)
        throw ModuleProblem(contents.error);
    return decode(contents.bytes);
}

ModulePackage ModulePackage::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    ModulePackage package;
    package.schemaVersion = reader.integer(u"schemaVersion");
    package.hostAPIVersion = reader.integer(u"hostAPIVersion");
    package.id = reader.string(u"id");
    package.name = reader.string(u"name");
    package.version = reader.string(u"version");
    package.author = reader.string(u"author");
    package.summary = reader.string(u"summary");
    package.permissions = reader.strings(u"permissions");
    package.initialState = reader.stringMap(u"initialState");
    package.settings = reader.records<ModuleSetting>(u"settings");
    package.actions = reader.records<ModuleAction>(u"actions");
    package.card = reader.records<ModuleComponent>(u"card");
    package.page = reader.records<ModuleComponent>(u"page");
    package.activity = reader.optionalString(u"activity");
    package.feeds = reader.optionalRecords<ModuleFeed>(u"feeds");
    package.script = reader.string(u"script");
    return package;
}

QByteArray ModulePackage::encoded() const {
    return JsonWriter()
        .add(u"schemaVersion", schemaVersion)
        .add(u"hostAPIVersion", hostAPIVersion)
        .add(u"id", id)
        .add(u"name", name)
        .add(u"version", version)
        .add(u"author", author)
        .add(u"summary", summary)
        .add(u"permissions", permissions)
        .add(u"initialState", initialState)
        .addRecords(u"settings", settings)
        .addRecords(u"actions", actions)
        .addRecords(u"card", card)
        .addRecords(u"page", page)
        .addIfPresent(u"activity", activity)
        .addRecordsIfPresent(u"feeds", feeds)
        .add(u"script", script)
        .bytes();
}

QJsonObject ModulePackage::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

void ModulePackage::validate() const {
    if (schemaVersion != 1 || hostAPIVersion != 1)
        fail(u"This module needs a different OstaVell module API. This preview supports version 1.");
    if (!Identifiers::isID(id) || TextMetrics::characterCount(id) > 100)
        fail(u"Module ID must be a namespaced name such as cafe.osta.hello.");
    static const QRegularExpression versionPattern(
        QRegularExpression::anchoredPattern(QStringLiteral(R"([0-9]{1,4}\.[0-9]{1,4}\.[0-9]{1,4})")));
    if (!versionPattern.match(version).hasMatch())
        fail(u"Use a three-part module version, such as 1.0.0.");
    if (!withinCharacters(name, 1, 80) || !withinCharacters(author, 1, 100) ||
        !withinCharacters(summary, 0, 500) || TextMetrics::utf8Size(script) > 131072)
        fail(u"Module metadata or code exceeds its limit.");
    if (!std::all_of(permissions.begin(), permissions.end(),
                     [](const QString& permission) { return permission == mqttPermission; }))
        fail(u"This module requests an unsupported permission.");
    validateFeeds(*this);
    validateState(initialState);
    if (settings.size() > 12 || actions.size() > 20 || card.size() > 12 || page.size() > 40)
        fail(u"Too many settings, actions or view components.");
    if (!Identifiers::distinct(settings, &ModuleSetting::id) ||
        !Identifiers::distinct(actions, &ModuleAction::id))
        fail(u"Setting and action IDs must be unique.");
    for (const ModuleSetting& setting : settings)
        setting.validate();
    for (const ModuleAction& action : actions)
        action.validate();
    validateView(card, actions);
    validateView(page, actions);
    if (activity && TextMetrics::characterCount(*activity) > 100)
        fail(u"Compact activity text is too long.");
}

void ModulePackage::validateState(const ModuleState& state) {
    const auto invalid = [] { fail(u"Module returned invalid or oversized state."); };
    if (state.size() > 64)
        invalid();
    for (auto it = state.begin(); it != state.end(); ++it) {
        if (!validKey(it.key()) || TextMetrics::utf8Size(it.value()) > maximumValueBytes)
            invalid();
    }
    if (JsonWriter::encodeMap(state).size() > 32768)
        invalid();
}

bool ModulePackage::validKey(QStringView key) {
    return Identifiers::isKey(key);
}

ModuleState ModulePackage::defaultSettings() const {
    ModuleState result;
    for (const ModuleSetting& setting : settings) {
        if (!result.contains(setting.id))
            result.insert(setting.id, setting.defaultValue);
    }
    return result;
}

QString ModulePackage::text(const QString& textTemplate, const ModuleState& state,
                            const ModuleState& configuration) {
    static const QRegularExpression placeholder(QStringLiteral(R"(\{([A-Za-z][A-Za-z0-9_]*)\})"));
    QList<QRegularExpressionMatch> matches;
    for (QRegularExpressionMatchIterator it = placeholder.globalMatch(textTemplate); it.hasNext();)
        matches.append(it.next());

    // From the last match to the first, so the ranges still to replace keep their offsets and
    // no replaced value is ever scanned again.
    QString result = textTemplate;
    for (auto it = matches.crbegin(); it != matches.crend(); ++it) {
        const QString key = it->captured(1);
        const QString value = state.contains(key)           ? state.value(key)
                              : configuration.contains(key) ? configuration.value(key)
                                                            : QStringLiteral("—");
        result.replace(it->capturedStart(0), it->capturedLength(0), value);
    }
    return TextMetrics::leftCharacters(result, maximumTextCharacters);
}

} // namespace vell
