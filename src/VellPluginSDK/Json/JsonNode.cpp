#include "VellPluginSDK/Json/JsonNode.h"

#include <QJsonArray>
#include <QJsonObject>

namespace vell {

namespace {

QJsonValue toValue(const JsonTree& tree, JsonTree::Index index) {
    switch (tree.kind(index)) {
    case JsonTree::Kind::null:
        return QJsonValue::Null;
    case JsonTree::Kind::boolean:
        return tree.boolean(index);
    case JsonTree::Kind::integer:
        return tree.integer(index);
    case JsonTree::Kind::real:
        return tree.number(index);
    case JsonTree::Kind::string:
        return tree.string(index);
    case JsonTree::Kind::array: {
        QJsonArray array;
        JsonTree::Index child = tree.firstChild(index);
        for (JsonTree::Index i = 0; i < tree.childCount(index); ++i, child = tree.nextSibling(child))
            array.append(toValue(tree, child));
        return array;
    }
    case JsonTree::Kind::object:
        break;
    }
    QJsonObject object;
    JsonTree::Index child = tree.firstChild(index);
    for (JsonTree::Index i = 0; i < tree.childCount(index); ++i, child = tree.nextSibling(child))
        object.insert(tree.key(child), toValue(tree, child));
    return object;
}

} // namespace

bool JsonNode::toBool(bool defaultValue) const {
    return isBool() ? m_tree->boolean(m_index) : defaultValue;
}

double JsonNode::toDouble(double defaultValue) const {
    return isNumber() ? m_tree->number(m_index) : defaultValue;
}

qint64 JsonNode::toInteger(qint64 defaultValue) const {
    if (isInteger())
        return m_tree->integer(m_index);
    // QJsonValue's own rule for a double: whole and in range, or the default.
    return isNumber() ? QJsonValue(m_tree->number(m_index)).toInteger(defaultValue) : defaultValue;
}

QString JsonNode::toString() const {
    return isString() ? m_tree->string(m_index) : QString();
}

qsizetype JsonNode::size() const {
    if (isArray())
        return m_tree->childCount(m_index);
    return isObject() ? members().size() : 0;
}

JsonNode JsonNode::at(qsizetype index) const {
    if (!isArray() || index < 0 || index >= m_tree->childCount(m_index))
        return {};
    JsonTree::Index child = m_tree->firstChild(m_index);
    for (qsizetype i = 0; i < index; ++i)
        child = m_tree->nextSibling(child);
    return node(child);
}

JsonNode JsonNode::value(QStringView key) const {
    if (!isObject())
        return {};
    const JsonTree::Index found = m_tree->member(m_index, key);
    return found == JsonTree::none ? JsonNode() : node(found);
}

QList<JsonMember> JsonNode::members() const {
    QList<JsonMember> result;
    if (!isObject())
        return result;
    const std::vector<JsonTree::Index> members = m_tree->members(m_index);
    result.reserve(static_cast<qsizetype>(members.size()));
    for (const JsonTree::Index member : members)
        result.append({m_tree->key(member), node(member)});
    return result;
}

QJsonValue JsonNode::toJsonValue() const {
    return m_tree ? toValue(*m_tree, m_index) : QJsonValue(QJsonValue::Undefined);
}

} // namespace vell
