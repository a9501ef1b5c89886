#include "OstaVell/Modules/Plugins/NativePluginStore.h"
#include "VellPluginSDK/Json/JsonTree.h"
#include "VellPluginSDK/ModuleProblem.h"
#include "VellPluginSDK/Presentation/PluginCollectionFilter.h"

#include <QJsonObject>

#include <algorithm>
#include <cmath>

// What the views of forms and collections ask of the store: submitting a form and following
// its run, and the rows of a collection as its search and filter leave them.

namespace vell {

namespace {

// The view's map of input id to value, as the action plane's values. A value of no kind the
// bus knows is left out, so that the form names the input that lacks one.
PluginValueMap valuesFrom(const QVariantMap& entries) {
    PluginValueMap values;
    for (auto entry = entries.cbegin(); entry != entries.cend(); ++entry) {
        const QVariant& value = *entry;
        switch (value.typeId()) {
        case QMetaType::Bool:
            values.insert(entry.key(), PluginValue::boolean(value.toBool()));
            break;
        case QMetaType::Int:
        case QMetaType::UInt:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Float:
        case QMetaType::Double:
            if (std::isfinite(value.toDouble()))
                values.insert(entry.key(), PluginValue::number(value.toDouble()));
            break;
        case QMetaType::QString:
            values.insert(entry.key(), PluginValue::string(value.toString()));
            break;
        default:
            break;
        }
    }
    return values;
}

QString effectName(const PluginRegisteredAction& action) {
    return action.toJson().value(QStringLiteral("effect")).toString();
}

} // namespace

QVariantMap NativePluginStore::submitForm(const QString& id, const QString& panelID, const QVariantMap& drawn,
                                          const QVariantMap& values) {
    // The form as the person saw it, field by field: the sessions compare all of it with the
    // plugin's current snapshot, so a form changed under the same revision is refused too.
    const PluginForm form = PluginForm::fromJson(JsonTree::fromValue(QJsonObject::fromVariantMap(drawn)));
    const QString formID = form.id;
    try {
        const QUuid run = m_sessions->submitForm(id, form, valuesFrom(values));
        const QList<ActionRun>& runs = router().runs();
        m_formRuns.removeIf([&runs](const FormRun& known) {
            return std::none_of(runs.cbegin(), runs.cend(),
                                [&known](const ActionRun& live) { return live.id == known.run; });
        });
        m_formRuns.append(FormRun{run, id, panelID, formID});
        emit routerChanged();
        return {{QStringLiteral("run"), uuidText(run)}};
    } catch (const ModuleProblem& problem) {
        return {{QStringLiteral("error"), problem.message()}};
    }
}

QString NativePluginStore::approveForm(const QString& id, const QString& panelID, const QString& formID,
                                       const QString& runID) {
    const QUuid run = QUuid::fromString(runID);
    // The form as it stands now; a form gone from the page leaves nothing that could match.
    PluginForm shown;
    if (const std::optional<PluginForm> form = m_sessions->currentForm(id, panelID, formID))
        shown = *form;
    try {
        m_sessions->approveForm(id, shown, run);
    } catch (const ModuleProblem& problem) {
        return problem.message();
    }
    return {};
}

QString NativePluginStore::cancelForm(const QString& runID) {
    return decline(runID);
}

QVariantMap NativePluginStore::formRunsForViews() const {
    QVariantMap runs;
    for (const ActionRun& run : router().runs()) {
        const auto origin = std::find_if(m_formRuns.cbegin(), m_formRuns.cend(),
                                         [&run](const FormRun& known) { return known.run == run.id; });
        if (origin == m_formRuns.cend())
            continue;
        QVariantList arguments;
        for (auto value = run.arguments.cbegin(); value != run.arguments.cend(); ++value)
            arguments.append(QVariantMap{{QStringLiteral("name"), value.key()},
                                         {QStringLiteral("value"), value->display()}});
        runs.insert(uuidText(run.id),
                    QVariantMap{
                        {QStringLiteral("plugin"), origin->pluginID},
                        {QStringLiteral("panel"), origin->panelID},
                        {QStringLiteral("form"), origin->formID},
                        {QStringLiteral("phase"), pluginRunPhaseName(run.phase())},
                        {QStringLiteral("message"), run.update.message},
                        {QStringLiteral("title"), run.definition.title},
                        {QStringLiteral("effect"), effectName(run.definition)},
                        {QStringLiteral("arguments"), arguments},
                        {QStringLiteral("expires"), (run.deadline + ReferenceTime::epoch) * 1000},
                    });
    }
    return runs;
}

QVariantList NativePluginStore::collectionItems(const QVariantList& items, const QString& query,
                                                const QString& filter, bool sortByName,
                                                const QVariant& day) const {
    // Items come from a validated snapshot; one that does not read as an item is not shown.
    QList<PluginCollectionItem> records;
    QVariantList decoded;
    for (const QVariant& item : items) {
        try {
            records.append(PluginCollectionItem::fromJson(QJsonObject::fromVariantMap(item.toMap())));
            decoded.append(item);
        } catch (const ModuleProblem&) {
        }
    }
    PluginCollectionFilter rows;
    rows.query = query;
    rows.filter = filter;
    rows.now = m_sessions->clock();
    rows.sortByName = sortByName;
    if (day.typeId() == QMetaType::Double || day.typeId() == QMetaType::Int)
        rows.day = day.toDouble();
    QVariantList shown;
    for (const qsizetype index : rows.select(records))
        shown.append(decoded.at(index));
    return shown;
}

} // namespace vell
