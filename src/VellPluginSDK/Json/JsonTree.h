#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QJsonParseError>
#include <QString>
#include <QStringView>

#include <memory>
#include <vector>

class QJsonValue;

namespace vell {

class JsonNode;

// One JSON document, immutable once built: every value is a node in one flat array, in document
// order, and the text of strings and keys stays in the bytes it was parsed from. A container's
// children follow it directly; each node knows where the nodes after its subtree begin, so that
// siblings are a hop apart. Objects are small in what we read, so a key is found by walking the
// members and comparing their UTF-8 bytes, with no index to build.
//
// parse() accepts exactly what QJsonDocument::fromJson accepts, answers the same values for it
// and fails with the same ParseError, so that swapping one for the other changes no message:
// one object or array at the top, Qt's lenient escapes ("\x" is "x", lone surrogates are kept),
// control characters inside strings taken as they are, a literal integer that fits in 64 bits
// kept exact, any other number a double (a whole one in range is kept as an integer, as Qt
// does), duplicate keys resolved in favour of the last one.
class JsonTree final {
public:
    using Index = quint32;
    static constexpr Index none = ~Index(0);
    // The deepest nesting of objects and arrays, the document's own outermost one included.
    static constexpr int maximumDepth = 1024;

    enum class Kind : quint8 { null, boolean, integer, real, string, array, object };
    // Where a text lives and how it is encoded: plain text as it was written (ASCII or UTF-8),
    // text with escapes decoded to UTF-16, which can hold the lone surrogates JSON allows.
    enum class Encoding : quint8 { ascii, utf8, utf16 };

    // The document in data, as the root node; an undefined node and the reason when the text is
    // not JSON. error, when given, is filled as QJsonDocument::fromJson fills it.
    static JsonNode parse(QByteArrayView data, QJsonParseError* error = nullptr);
    // The same tree for a value already decoded by Qt; undefined stays undefined.
    static JsonNode fromValue(const QJsonValue& value);

    Kind kind(Index index) const { return m_nodes[index].kind; }
    bool boolean(Index index) const { return m_nodes[index].payload.truth; }
    qint64 integer(Index index) const { return m_nodes[index].payload.integer; }
    // Any number, as a double.
    double number(Index index) const;
    QString string(Index index) const {
        return text(m_nodes[index].textEncoding, m_nodes[index].payload.text);
    }
    // The bytes of a string written without escapes; null for one that had them.
    QByteArrayView rawString(Index index) const;
    // The string of an escaped text; empty for one without escapes.
    QStringView decodedString(Index index) const;

    // Arrays and objects: their children in document order. An object's children include the
    // members a later duplicate overrides.
    Index childCount(Index index) const { return m_nodes[index].payload.children; }
    Index firstChild(Index index) const { return index + 1; }
    Index nextSibling(Index index) const { return m_nodes[index].next; }

    // The key of an object's child.
    QString key(Index index) const { return text(m_nodes[index].keyEncoding, m_nodes[index].key); }
    bool keyEquals(Index index, QStringView key) const;
    // The child of object under key, the last one when the key repeats; none when missing.
    Index member(Index object, QStringView key) const;
    // The children of object as QJsonObject holds them: sorted by key, a repeated key resolved to
    // its last occurrence. Qt's order depends on how each key was written: keys without escapes
    // compare by code point, two escaped keys by UTF-16 unit, and a lone surrogate by its unit.
    std::vector<Index> members(Index object) const;

    struct Tag {};
    explicit JsonTree(Tag) {}

private:
    friend class JsonTreeParser;
    friend class JsonTreeBuilder;

    struct Text {
        quint32 offset;
        quint32 length;
    };

    // 24 bytes: a snapshot line of 10 KB makes a few hundred of them.
    struct Node {
        Kind kind;
        Encoding textEncoding;
        Encoding keyEncoding;
        Text key;
        // The index just past this node's subtree.
        Index next;
        union {
            bool truth;
            qint64 integer;
            double real;
            Text text;
            Index children;
        } payload;
    };

    QString text(Encoding encoding, Text text) const;
    int compareKeys(Index a, Index b) const;

    std::vector<Node> m_nodes;
    // The document's own bytes, which plain strings and keys point into.
    QByteArray m_source;
    // Decoded escaped strings and keys, and every string of a tree made from a QJsonValue.
    QString m_decoded;
    // Made from a QJsonObject, whose members are already in its order and distinct.
    bool m_membersInOrder = false;
};

} // namespace vell
