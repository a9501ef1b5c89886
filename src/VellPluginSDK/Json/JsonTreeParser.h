#pragma once

#include "VellPluginSDK/Json/JsonTree.h"

#include <QByteArrayView>
#include <QJsonParseError>

namespace vell {

// The grammar and its failures follow QJsonDocument::fromJson decision by decision, including
// where Qt is more lenient than the JSON grammar (".5", "1.", unknown escapes, raw control
// characters) and which error a malformed text reports first, since those errors are messages
// that reach plugin authors.
// Parses into a tree that holds a copy of the bytes and nothing else yet.
class JsonTreeParser final {
public:
    JsonTreeParser(JsonTree& tree, QByteArrayView data);

    QJsonParseError::ParseError parse();
    // Where the parse stopped, as QJsonParseError::offset counts it.
    qsizetype offset() const { return m_at - m_begin; }

    // One code point of strict UTF-8 at from, before end: no overlong forms, no surrogates,
    // nothing past U+10FFFF, nothing cut short. Noncharacters are fine. Advances from past it
    // when valid.
    static bool decodeUtf8(const char*& from, const char* end, char32_t& codePoint);

private:
    struct Key {
        JsonTree::Encoding encoding;
        JsonTree::Text text;
    };

    static Key noKey() { return {JsonTree::Encoding::ascii, {0, 0}}; }

    bool fail(QJsonParseError::ParseError error);
    bool skipSpace();

    // The next structural character or quote, consumed; 0, also consumed, for anything else.
    char nextToken();
    JsonTree::Node& push(JsonTree::Kind kind, const Key& key);
    void finishContainer(JsonTree::Index index, JsonTree::Index children);
    bool parseObject(const Key& key);
    bool parseMember();
    bool parseArray(const Key& key);

    // The rest of a literal after its first letter. Qt wants one byte more than the literal
    // needs before it even looks, and consumes up to the first byte that differs.
    bool parseLiteral(const char* rest, int length, qsizetype required);
    bool parseValue(const Key& key);
    bool parseNumber(const Key& key);

    // A string after its opening quote. Plain text stays where it is in the source; text with
    // escapes is decoded to UTF-16, as Qt stores it.
    bool parseString(JsonTree::Encoding& encoding, JsonTree::Text& text);
    bool parseEscapedString(const char* start, JsonTree::Encoding& encoding, JsonTree::Text& text);

    // One escape at the backslash. \uXXXX is one UTF-16 unit, so a pair of them makes a
    // surrogate pair and a single one stays a lone surrogate; any other character stands for
    // itself, byte for byte.
    bool parseEscape(char32_t& codePoint);

    JsonTree& m_tree;
    const char* m_begin;
    const char* m_at;
    const char* m_end;
    int m_depth = 0;
    QJsonParseError::ParseError m_error = QJsonParseError::NoError;
};

} // namespace vell
