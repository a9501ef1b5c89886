#pragma once

// Forms and collections as a hostile plugin would send them to the views: every text the views
// show carries markup that would fetch from the listener if it were ever read as rich text.

#include <QStringList>
#include <QVariantList>
#include <QVariantMap>

#include <functional>

namespace vell::test {

// The markup that fetches its path once read as rich text.
using Markup = std::function<QString(const QString&)>;

// The map with each of keys holding markup that fetches prefix + key.
inline QVariantMap marked(const Markup& img, const QString& prefix, const QStringList& keys,
                          QVariantMap map = {}) {
    for (const QString& key : keys)
        map.insert(key, img(prefix + key));
    return map;
}

// A form with every style of input.
inline QVariantMap hostileForm(const Markup& img) {
    const auto field = [](const QString& name, const QString& kind) {
        QVariantMap map{{"name", name}, {"kind", kind}, {"required", true}};
        if (kind == u"number")
            map.insert({{"minimum", 0.0}, {"maximum", 10.0}});
        return map;
    };
    const auto input = [&](const QString& id, const QString& style, const QVariant& value) {
        return marked(img, id + "-", {"label"}, {{"id", id}, {"style", style}, {"value", value}});
    };
    QVariantMap choice = input("c", "choice", img("c-value"));
    choice.insert("choices", QStringList{img("c-value"), img("c-other")});
    const QVariantMap action =
        marked(img, "action-", {"title"},
               {{"id", "act"},
                {"input", QVariantMap{{"fields", QVariantList{field("t", "string"), field("n", "number"),
                                                              field("s", "number"), field("b", "boolean"),
                                                              field("c", "string")}}}},
                {"output", QVariantMap{{"fields", QVariantList()}}},
                {"effect", "localChange"},
                {"cancellable", false},
                {"timeoutSeconds", 10.0}});
    return marked(img, "form-", {"title", "revision"},
                  {{"id", "hostile"},
                   {"action", action},
                   {"enabled", true},
                   {"inputs", QVariantList{input("t", "text", img("t-value")), input("n", "number", 3.0),
                                           input("s", "slider", 4.0), input("b", "toggle", true), choice}}});
}

// A collection of that layout, one item dated and one not.
inline QVariantMap hostileCollection(const Markup& img, const QString& layout) {
    const auto action = [&](const QString& id) {
        return marked(img, id + "-", {"label", "confirmation"}, {{"id", id}, {"enabled", true}});
    };
    const auto entry = [&](const QString& id, const QVariant& date) {
        QVariantMap map =
            marked(img, id + "-", {"title", "subtitle", "detail", "category", "symbol"},
                   {{"id", id}, {"unread", true}, {"completed", false}, {"action", action(id + "act")}});
        if (date.isValid())
            map.insert("date", date);
        return map;
    };
    QVariantMap collection =
        marked(img, layout + "-", {"title", "subtitle", "emptyText"},
               {{"layout", layout},
                {"items", QVariantList{entry(layout + "i1", 0.0), entry(layout + "i2", QVariant())}},
                {"actions", QVariantList{action(layout + "tool")}}});
    if (layout == u"calendar")
        collection.insert("days", QVariantList{QVariantMap{{"date", 0.0}, {"action", action("day")}}});
    return collection;
}

} // namespace vell::test
