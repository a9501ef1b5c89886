#include "VellPluginSDK/Json/JsonTree.h"

#include "VellPluginSDK/Json/JsonNode.h"
#include "VellPluginSDK/Json/JsonTreeParser.h"

#include <QAnyStringView>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QUtf8StringView>
#include <QVariant>

#include <algorithm>
#include <cstring>
#include <limits>

namespace vell {

// Copies a value Qt has decoded into a tree: keys and strings into the UTF-16 buffer, numbers as
// Qt holds them (an integer stays exact).
class JsonTreeBuilder final {
public:
    explicit JsonTreeBuilder(JsonTree& tree)
        : m_tree(tree) {}

    void add(const QJsonValue& value, QStringView key) {
        const auto index = static_cast<JsonTree::Index>(m_tree.m_nodes.size());
        JsonTree::Node& node = m_tree.m_nodes.emplace_back();
        node.keyEncoding = JsonTree::Encoding::utf16;
        node.key = store(key);
        node.next = index + 1;
        switch (value.type()) {
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            node.kind = JsonTree::Kind::null;
            break;
        case QJsonValue::Bool:
            node.kind = JsonTree::Kind::boolean;
            node.payload.truth = value.toBool();
            break;
        case QJsonValue::Double:
            if (value.toVariant().typeId() == QMetaType::LongLong) {
                node.kind = JsonTree::Kind::integer;
                node.payload.integer = value.toInteger();
            } else {
                node.kind = JsonTree::Kind::real;
                node.payload.real = value.toDouble();
            }
            break;
        case QJsonValue::String:
            node.kind = JsonTree::Kind::string;
            node.textEncoding = JsonTree::Encoding::utf16;
            node.payload.text = store(value.toString());
            break;
        case QJsonValue::Array:
            addArray(index, value.toArray());
            break;
        case QJsonValue::Object:
            addObject(index, value.toObject());
            break;
        }
    }

private:
    // node is not held across the calls below: adding children moves the array.
    void addArray(JsonTree::Index index, const QJsonArray& array) {
        m_tree.m_nodes[index].kind = JsonTree::Kind::array;
        for (const QJsonValue& element : array)
            add(element, {});
        finish(index, array.size());
    }

    void addObject(JsonTree::Index index, const QJsonObject& object) {
        m_tree.m_nodes[index].kind = JsonTree::Kind::object;
        for (auto it = object.begin(); it != object.end(); ++it)
            add(it.value(), it.key());
        finish(index, object.size());
    }

    void finish(JsonTree::Index index, qsizetype children) {
        m_tree.m_nodes[index].payload.children = static_cast<JsonTree::Index>(children);
        m_tree.m_nodes[index].next = static_cast<JsonTree::Index>(m_tree.m_nodes.size());
    }

    JsonTree::Text store(QStringView text) {
        const auto offset = static_cast<quint32>(m_tree.m_decoded.size());
        m_tree.m_decoded.append(text);
        return {offset, static_cast<quint32>(text.size())};
    }

    JsonTree& m_tree;
};

JsonNode JsonTree::parse(QByteArrayView data, QJsonParseError* error) {
    const auto report = [&](QJsonParseError::ParseError code, qsizetype offset) {
        if (error) {
            error->error = code;
            error->offset = static_cast<int>(offset);
        }
    };
    // Offsets are 32 bits wide; our documents are a few hundred kilobytes at most.
    if (data.size() >= std::numeric_limits<qint32>::max()) {
        report(QJsonParseError::DocumentTooLarge, 0);
        return {};
    }
    auto tree = std::make_shared<JsonTree>(Tag{});
    tree->m_source = data.toByteArray();
    // Compact JSON averages a node every dozen bytes or so; growing past this is rare.
    tree->m_nodes.reserve(static_cast<std::size_t>(data.size() / 12 + 8));
    JsonTreeParser parser(*tree, data);
    const QJsonParseError::ParseError code = parser.parse();
    if (code != QJsonParseError::NoError) {
        report(code, parser.offset());
        return {};
    }
    report(QJsonParseError::NoError, 0);
    return JsonNode(std::move(tree), 0);
}

JsonNode JsonTree::fromValue(const QJsonValue& value) {
    if (value.isUndefined())
        return {};
    auto tree = std::make_shared<JsonTree>(Tag{});
    tree->m_membersInOrder = true;
    JsonTreeBuilder(*tree).add(value, {});
    return JsonNode(std::move(tree), 0);
}

double JsonTree::number(Index index) const {
    const Node& node = m_nodes[index];
    return node.kind == Kind::integer ? static_cast<double>(node.payload.integer) : node.payload.real;
}

QByteArrayView JsonTree::rawString(Index index) const {
    const Node& node = m_nodes[index];
    if (node.textEncoding == Encoding::utf16)
        return {};
    return QByteArrayView(m_source.constData() + node.payload.text.offset, node.payload.text.length);
}

QStringView JsonTree::decodedString(Index index) const {
    const Node& node = m_nodes[index];
    if (node.textEncoding != Encoding::utf16)
        return {};
    return QStringView(m_decoded).sliced(node.payload.text.offset, node.payload.text.length);
}

QString JsonTree::text(Encoding encoding, Text text) const {
    switch (encoding) {
    case Encoding::ascii:
        return QString::fromLatin1(m_source.constData() + text.offset, text.length);
    case Encoding::utf8:
        return QString::fromUtf8(m_source.constData() + text.offset, text.length);
    case Encoding::utf16:
        break;
    }
    return QStringView(m_decoded).sliced(text.offset, text.length).toString();
}

bool JsonTree::keyEquals(Index index, QStringView key) const {
    const Node& node = m_nodes[index];
    switch (node.keyEncoding) {
    case Encoding::ascii: {
        if (node.key.length != static_cast<quint32>(key.size()))
            return false;
        const char* bytes = m_source.constData() + node.key.offset;
        const char16_t* units = key.utf16();
        for (quint32 i = 0; i < node.key.length; ++i) {
            if (static_cast<char16_t>(bytes[i]) != units[i])
                return false;
        }
        return true;
    }
    case Encoding::utf8:
        return QAnyStringView::equal(QUtf8StringView(m_source.constData() + node.key.offset, node.key.length),
                                     key);
    case Encoding::utf16:
        break;
    }
    return QStringView(m_decoded).sliced(node.key.offset, node.key.length) == key;
}

JsonTree::Index JsonTree::member(Index object, QStringView key) const {
    Index found = none;
    Index child = firstChild(object);
    for (Index i = 0; i < m_nodes[object].payload.children; ++i, child = m_nodes[child].next) {
        if (keyEquals(child, key))
            found = child;
    }
    return found;
}

std::vector<JsonTree::Index> JsonTree::members(Index object) const {
    std::vector<Index> result;
    result.reserve(m_nodes[object].payload.children);
    Index child = firstChild(object);
    for (Index i = 0; i < m_nodes[object].payload.children; ++i, child = m_nodes[child].next)
        result.push_back(child);
    if (m_membersInOrder)
        return result;
    // The same stable sort over the same document order as Qt's, so that even its mixed
    // comparisons end in the same order.
    std::stable_sort(result.begin(), result.end(),
                     [this](Index a, Index b) { return compareKeys(a, b) < 0; });
    std::size_t kept = 0;
    for (std::size_t i = 0; i < result.size(); ++i) {
        if (kept > 0 && compareKeys(result[kept - 1], result[i]) == 0)
            result[kept - 1] = result[i];
        else
            result[kept++] = result[i];
    }
    result.resize(kept);
    return result;
}

namespace {

// Qt's comparison of a UTF-8 key with a UTF-16 one: code point by code point, a surrogate pair
// decoded only against a non-ASCII code point, a lone surrogate compared as its unit.
int compareMixed(QByteArrayView utf8, QStringView utf16) {
    const char* bytes = utf8.data();
    const char* bytesEnd = bytes + utf8.size();
    const char16_t* units = utf16.utf16();
    const char16_t* unitsEnd = units + utf16.size();
    while (bytes < bytesEnd && units < unitsEnd) {
        char32_t left = 0;
        if (!JsonTreeParser::decodeUtf8(bytes, bytesEnd, left)) {
            left = QChar::ReplacementCharacter;
            ++bytes;
        }
        char32_t right = *units++;
        if (left >= 0x80 && QChar::isHighSurrogate(right) && units < unitsEnd &&
            QChar::isLowSurrogate(*units))
            right = QChar::surrogateToUcs4(char16_t(right), *units++);
        if (left != right)
            return left < right ? -1 : 1;
    }
    return int(bytes < bytesEnd) - int(units < unitsEnd);
}

} // namespace

int JsonTree::compareKeys(Index a, Index b) const {
    const Node& left = m_nodes[a];
    const Node& right = m_nodes[b];
    const auto bytes = [this](const Text& text) {
        return QByteArrayView(m_source.constData() + text.offset, text.length);
    };
    const auto units = [this](const Text& text) {
        return QStringView(m_decoded).sliced(text.offset, text.length);
    };
    const bool leftUtf16 = left.keyEncoding == Encoding::utf16;
    const bool rightUtf16 = right.keyEncoding == Encoding::utf16;
    if (leftUtf16 && rightUtf16)
        return units(left.key).compare(units(right.key));
    if (leftUtf16)
        return -compareMixed(bytes(right.key), units(left.key));
    if (rightUtf16)
        return compareMixed(bytes(left.key), units(right.key));
    const QByteArrayView x = bytes(left.key);
    const QByteArrayView y = bytes(right.key);
    const int common =
        std::memcmp(x.data(), y.data(), static_cast<std::size_t>(std::min(x.size(), y.size())));
    if (common != 0)
        return common;
    return int(x.size() > y.size()) - int(x.size() < y.size());
}

} // namespace vell
