#pragma once

// Forms and collections as a hostile plugin would send them to the views: every text the views
// show carries markup that would fetch from img's address if it were ever read as rich text.

#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <optional>

namespace vell::test {

// A form with every style of input, each text of which would fetch from img's address.
template <typename Img> QVariantMap hostileForm(const Img& img) {
    const auto field = [](const QString& name, const QString& kind) {
        QVariantMap map{{QStringLiteral("name"), name},
                        {QStringLiteral("kind"), kind},
                        {QStringLiteral("required"), true}};
        if (kind == u"number")
            map.insert({{QStringLiteral("minimum"), 0.0}, {QStringLiteral("maximum"), 10.0}});
        return map;
    };
    const auto input = [&](const QString& id, const QString& style, const QVariant& value) {
        return QVariantMap{{QStringLiteral("id"), id},
                           {QStringLiteral("label"), img(id + QStringLiteral("-label"))},
                           {QStringLiteral("style"), style},
                           {QStringLiteral("value"), value}};
    };
    QVariantMap choice = input(QStringLiteral("c"), QStringLiteral("choice"), img(QStringLiteral("c-value")));
    choice.insert(QStringLiteral("choices"),
                  QStringList{img(QStringLiteral("c-value")), img(QStringLiteral("c-other"))});
    const QVariantMap action{
        {QStringLiteral("id"), QStringLiteral("act")},
        {QStringLiteral("title"), img(QStringLiteral("action-title"))},
        {QStringLiteral("input"),
         QVariantMap{{QStringLiteral("fields"),
                      QVariantList{field("t", "string"), field("n", "number"), field("s", "number"),
                                   field("b", "boolean"), field("c", "string")}}}},
        {QStringLiteral("output"), QVariantMap{{QStringLiteral("fields"), QVariantList()}}},
        {QStringLiteral("effect"), QStringLiteral("localChange")},
        {QStringLiteral("cancellable"), false},
        {QStringLiteral("timeoutSeconds"), 10.0}};
    return {{QStringLiteral("id"), QStringLiteral("hostile")},
            {QStringLiteral("title"), img(QStringLiteral("form-title"))},
            {QStringLiteral("revision"), img(QStringLiteral("revision"))},
            {QStringLiteral("action"), action},
            {QStringLiteral("enabled"), true},
            {QStringLiteral("inputs"),
             QVariantList{input("t", "text", img(QStringLiteral("t-value"))), input("n", "number", 3.0),
                          input("s", "slider", 4.0), input("b", "toggle", true), choice}}};
}

// A collection of layout with hostile texts everywhere, one item dated and one not.
template <typename Img> QVariantMap hostileCollection(const Img& img, const QString& layout) {
    const auto hostileAction = [&](const QString& id) {
        return QVariantMap{{QStringLiteral("id"), id},
                           {QStringLiteral("label"), img(id + QStringLiteral("-label"))},
                           {QStringLiteral("enabled"), true},
                           {QStringLiteral("confirmation"), img(id + QStringLiteral("-confirmation"))}};
    };
    const auto entry = [&](const QString& id, std::optional<double> date) {
        QVariantMap map{{QStringLiteral("id"), id},
                        {QStringLiteral("title"), img(id + QStringLiteral("-title"))},
                        {QStringLiteral("subtitle"), img(id + QStringLiteral("-subtitle"))},
                        {QStringLiteral("detail"), img(id + QStringLiteral("-detail"))},
                        {QStringLiteral("category"), img(id + QStringLiteral("-category"))},
                        {QStringLiteral("symbol"), img(id + QStringLiteral("-symbol"))},
                        {QStringLiteral("unread"), true},
                        {QStringLiteral("completed"), false},
                        {QStringLiteral("action"), hostileAction(id + QStringLiteral("act"))}};
        if (date)
            map.insert(QStringLiteral("date"), *date);
        return map;
    };
    QVariantMap collection{
        {QStringLiteral("layout"), layout},
        {QStringLiteral("title"), img(layout + QStringLiteral("-title"))},
        {QStringLiteral("subtitle"), img(layout + QStringLiteral("-subtitle"))},
        {QStringLiteral("emptyText"), img(layout + QStringLiteral("-empty"))},
        {QStringLiteral("items"), QVariantList{entry(layout + "i1", 0.0), entry(layout + "i2", {})}},
        {QStringLiteral("actions"), QVariantList{hostileAction(layout + QStringLiteral("tool"))}}};
    if (layout == u"calendar")
        collection.insert(
            QStringLiteral("days"),
            QVariantList{QVariantMap{{QStringLiteral("date"), 0.0},
                                     {QStringLiteral("action"), hostileAction(QStringLiteral("day"))}}});
    return collection;
}

} // namespace vell::test
