#pragma once

#include "VellPluginSDK/Presentation/PluginSnapshot.h"

#include "TestSupport.h"

namespace vell::test {

// Valid presentation records to start each row from; a row changes only what it tests.

inline QString text(int characters, char16_t c = u'x') {
    return QString(characters, QChar(c));
}

inline PluginAction button(const QString& id = "on", const QString& label = "On", bool enabled = true) {
    return {id, label, enabled, std::nullopt, std::nullopt};
}

inline PluginParameter parameter(const QString& name, PluginParameter::Kind kind,
                                 std::optional<double> minimum = {}, std::optional<double> maximum = {}) {
    return {name, kind, false, minimum, maximum};
}

// A form over one string field "name", entered as text.
inline PluginForm form(const QString& id = "rename") {
    PluginForm form{id, "Rename", "r1", action("rename", "Rename"), {}, true};
    form.action.input.fields = {parameter("name", PluginParameter::Kind::string)};
    form.inputs = {{"name", "Name", PluginFormInput::Style::text, PluginValue::string("Desk"), std::nullopt}};
    return form;
}

inline PluginCollectionItem item(const QString& id) {
    return {id, "Title", "", "", "", std::nullopt, std::nullopt, false, false, std::nullopt};
}

inline PluginCollection collection(int items = 1,
                                   PluginCollection::Layout layout = PluginCollection::Layout::inbox) {
    PluginCollection collection{layout, "Messages", "", "Nothing here", {}, std::nullopt, std::nullopt, {}};
    for (int i = 0; i < items; ++i)
        collection.items.append(item("i" + QString::number(i)));
    return collection;
}

inline PluginCustomView customView() {
    PluginCustomView view{"index.html", "r1",         {{"level", PluginValue::number(3)}},
                          {},           std::nullopt, std::nullopt};
    view.events = {{"pick", {{parameter("choice", PluginParameter::Kind::string)}}}};
    return view;
}

inline PluginDiagram diagram(const QString& id = "flow") {
    PluginDiagram diagram{id, "Flow", 200, 100, "Two boxes", {}};
    diagram.elements = {{PluginDiagramElement::Kind::box, 10, 10, 50, 50, "#336699", std::nullopt,
                         std::nullopt, std::nullopt, 4.0, std::nullopt}};
    return diagram;
}

// A copy of record after change.
template <typename Record, typename Change> Record with(Record record, Change change) {
    change(record);
    return record;
}

// Two rows of a check table for one limit: make(last) passes, make(last + 1) fails with message.
template <typename Make> void bothSides(const char* name, int last, const QString& message, Make make) {
    check(qPrintable(QStringLiteral("%1 %2").arg(QLatin1String(name)).arg(last)), make(last), QString());
    check(qPrintable(QStringLiteral("%1 %2").arg(QLatin1String(name)).arg(last + 1)), make(last + 1),
          message);
}

// A maker of rows for the length limits of record's text fields: (name, last, &Record::field) adds the
// bothSides rows of the field made of last and last + 1 units; wrap turns the changed record into
// what is validated.
template <typename Record, typename Wrap = std::identity>
auto textLimits(const QString& message, const Record& record, Wrap wrap = {}, const QString& unit = "x") {
    return [=](const char* name, int last, auto Record::*field) {
        bothSides(name, last, message,
                  [&](int n) { return wrap(with(record, [&](Record& r) { r.*field = unit.repeated(n); })); });
    };
}

} // namespace vell::test
