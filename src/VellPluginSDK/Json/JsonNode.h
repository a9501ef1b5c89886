#pragma once

#include "VellPluginSDK/Json/JsonTree.h"

#include <QJsonValue>
#include <QList>
#include <QString>

#include <concepts>
#include <memory>
#include <type_traits>
#include <utility>

namespace vell {

struct JsonMember;

// One value of a JsonTree: a light handle that shares the document it points into. This is what
// a record's fromJson reads. It also converts implicitly from anything a QJsonValue converts
// from (QJsonValue, QJsonObject, QJsonArray, a value reference, a scalar), through a copy into a
// tree of its own: slower than parsing bytes straight into a tree, which is how plugin lines
// arrive, but it keeps every caller that holds a Qt value as it is.
class JsonNode final {
public:
    // The undefined value, as a missing key answers.
    JsonNode() = default;

    template <typename T>
    requires(!std::same_as<std::remove_cvref_t<T>, JsonNode> && std::convertible_to<T, QJsonValue>)
        JsonNode(T&& value) // NOLINT(google-explicit-constructor): stands in for QJsonValue.
        : JsonNode(JsonTree::fromValue(QJsonValue(std::forward<T>(value)))) {}

    bool isUndefined() const { return !m_tree; }
    bool isNull() const { return is(JsonTree::Kind::null); }
    bool isBool() const { return is(JsonTree::Kind::boolean); }
    bool isNumber() const { return is(JsonTree::Kind::integer) || is(JsonTree::Kind::real); }
    // A number held exactly as a 64-bit integer.
    bool isInteger() const { return is(JsonTree::Kind::integer); }
    bool isString() const { return is(JsonTree::Kind::string); }
    bool isArray() const { return is(JsonTree::Kind::array); }
    bool isObject() const { return is(JsonTree::Kind::object); }

    // As QJsonValue answers them: a default for a value of another kind.
    bool toBool(bool defaultValue = false) const;
    double toDouble(double defaultValue = 0) const;
    // The number when it is whole and fits in 64 bits, otherwise defaultValue.
    qint64 toInteger(qint64 defaultValue = 0) const;
    QString toString() const;

    // The elements of an array, or the distinct members of an object; 0 for anything else.
    qsizetype size() const;
    // The element at index of an array; undefined when there is none.
    JsonNode at(qsizetype index) const;
    // The member of an object under key, the last one when it repeats; undefined when missing.
    JsonNode value(QStringView key) const;

    // The members of an object in QJsonObject's order, each repeated key resolved to its last
    // occurrence.
    QList<JsonMember> members() const;

    QJsonValue toJsonValue() const;

    // Another node of the same document, by its index there.
    JsonNode node(JsonTree::Index index) const { return JsonNode(m_tree, index); }
    // The document and this node's index in it; null for the undefined node.
    const JsonTree* tree() const { return m_tree.get(); }
    JsonTree::Index index() const { return m_index; }

private:
    friend class JsonTree;

    JsonNode(std::shared_ptr<const JsonTree> tree, JsonTree::Index index)
        : m_tree(std::move(tree))
        , m_index(index) {}

    bool is(JsonTree::Kind kind) const { return m_tree && m_tree->kind(m_index) == kind; }

    std::shared_ptr<const JsonTree> m_tree;
    JsonTree::Index m_index = 0;
};

// One member of an object.
struct JsonMember {
    QString key;
    JsonNode value;
};

} // namespace vell
