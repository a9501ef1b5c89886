#include "VellPluginSDK/Json/JsonTreeParser.h"

#include <QByteArray>
#include <QString>

#include <cmath>
#include <cstring>

namespace vell {

namespace {

using ParseError = QJsonParseError::ParseError;

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isContinuation(uchar byte) {
    return (byte & 0xc0) == 0x80;
}

bool addHexDigit(char digit, char32_t& value) {
    value <<= 4;
    if (digit >= '0' && digit <= '9')
        value |= char32_t(digit - '0');
    else if (digit >= 'a' && digit <= 'f')
        value |= char32_t(digit - 'a' + 10);
    else if (digit >= 'A' && digit <= 'F')
        value |= char32_t(digit - 'A' + 10);
    else
        return false;
    return true;
}

// A double that is whole and within the 64-bit range is kept as that integer, as Qt keeps it.
bool wholeInRange(double number, qint64& whole) {
    constexpr double lowest = -9223372036854775808.0;
    if (!(number >= lowest && number < -lowest) || std::trunc(number) != number)
        return false;
    whole = static_cast<qint64>(number);
    return true;
}

} // namespace

bool JsonTreeParser::decodeUtf8(const char*& from, const char* end, char32_t& codePoint) {
    const auto* bytes = reinterpret_cast<const uchar*>(from);
    const uchar lead = bytes[0];
    int length;
    char32_t least;
    if (lead < 0x80) {
        codePoint = lead;
        ++from;
        return true;
    } else if (lead < 0xc2) {
        return false; // a continuation byte, or the lead of an overlong two-byte form
    } else if (lead < 0xe0) {
        length = 2;
        least = 0x80;
        codePoint = lead & 0x1f;
    } else if (lead < 0xf0) {
        length = 3;
        least = 0x800;
        codePoint = lead & 0x0f;
    } else if (lead < 0xf5) {
        length = 4;
        least = 0x10000;
        codePoint = lead & 0x07;
    } else {
        return false;
    }
    if (end - from < length)
        return false;
    for (int i = 1; i < length; ++i) {
        if (!isContinuation(bytes[i]))
            return false;
        codePoint = (codePoint << 6) | (bytes[i] & 0x3f);
    }
    if (codePoint < least || (codePoint >= 0xd800 && codePoint <= 0xdfff) || codePoint > 0x10ffff)
        return false;
    from += length;
    return true;
}

JsonTreeParser::JsonTreeParser(JsonTree& tree, QByteArrayView data)
    : m_tree(tree)
    , m_begin(tree.m_source.constData())
    , m_at(m_begin)
    , m_end(m_begin + data.size()) {}

ParseError JsonTreeParser::parse() {
    static const char bom[] = "\xef\xbb\xbf";
    // As Qt does: the mark is skipped only when something follows it.
    if (m_end - m_at > 3 && std::memcmp(m_at, bom, 3) == 0)
        m_at += 3;
    const char token = nextToken();
    bool parsed = false;
    if (token == '[')
        parsed = parseArray(noKey());
    else if (token == '{')
        parsed = parseObject(noKey());
    else
        fail(QJsonParseError::IllegalValue);
    if (parsed && skipSpace())
        fail(QJsonParseError::GarbageAtEnd);
    return m_error;
}

// The small steps are inline: they run for every byte or value, and all their callers are here.
inline bool JsonTreeParser::fail(ParseError error) {
    m_error = error;
    return false;
}

inline bool JsonTreeParser::skipSpace() {
    while (m_at < m_end && (*m_at == ' ' || *m_at == '\t' || *m_at == '\n' || *m_at == '\r'))
        ++m_at;
    return m_at < m_end;
}

inline char JsonTreeParser::nextToken() {
    if (!skipSpace())
        return 0;
    const char token = *m_at++;
    switch (token) {
    case '[':
    case '{':
    case ':':
    case ',':
    case ']':
    case '}':
    case '"':
        return token;
    default:
        return 0;
    }
}

inline JsonTree::Node& JsonTreeParser::push(JsonTree::Kind kind, const Key& key) {
    const auto index = static_cast<JsonTree::Index>(m_tree.m_nodes.size());
    JsonTree::Node& node = m_tree.m_nodes.emplace_back();
    node.kind = kind;
    node.keyEncoding = key.encoding;
    node.key = key.text;
    node.next = index + 1;
    return node;
}

inline void JsonTreeParser::finishContainer(JsonTree::Index index, JsonTree::Index children) {
    JsonTree::Node& node = m_tree.m_nodes[index];
    node.payload.children = children;
    node.next = static_cast<JsonTree::Index>(m_tree.m_nodes.size());
}

bool JsonTreeParser::parseObject(const Key& key) {
    if (++m_depth > JsonTree::maximumDepth)
        return fail(QJsonParseError::DeepNesting);
    const auto index = static_cast<JsonTree::Index>(m_tree.m_nodes.size());
    push(JsonTree::Kind::object, key);
    JsonTree::Index children = 0;
    char token = nextToken();
    while (token == '"') {
        if (!parseMember())
            return false;
        ++children;
        token = nextToken();
        if (token != ',')
            break;
        token = nextToken();
        if (token == '}')
            return fail(QJsonParseError::MissingObject);
    }
    if (token != '}')
        return fail(QJsonParseError::UnterminatedObject);
    --m_depth;
    finishContainer(index, children);
    return true;
}

bool JsonTreeParser::parseMember() {
    Key key;
    if (!parseString(key.encoding, key.text))
        return false;
    if (nextToken() != ':')
        return fail(QJsonParseError::MissingNameSeparator);
    if (!skipSpace())
        return fail(QJsonParseError::UnterminatedObject);
    return parseValue(key);
}

bool JsonTreeParser::parseArray(const Key& key) {
    if (++m_depth > JsonTree::maximumDepth)
        return fail(QJsonParseError::DeepNesting);
    const auto index = static_cast<JsonTree::Index>(m_tree.m_nodes.size());
    push(JsonTree::Kind::array, key);
    JsonTree::Index children = 0;
    if (!skipSpace())
        return fail(QJsonParseError::UnterminatedArray);
    if (*m_at == ']') {
        ++m_at;
    } else {
        while (true) {
            if (!skipSpace())
                return fail(QJsonParseError::UnterminatedArray);
            if (!parseValue(noKey()))
                return false;
            ++children;
            const char token = nextToken();
            if (token == ']')
                break;
            if (token != ',')
                return fail(skipSpace() ? QJsonParseError::MissingValueSeparator
                                        : QJsonParseError::UnterminatedArray);
        }
    }
    --m_depth;
    finishContainer(index, children);
    return true;
}

inline bool JsonTreeParser::parseLiteral(const char* rest, int length, qsizetype required) {
    if (m_end - m_at < required)
        return fail(QJsonParseError::IllegalValue);
    for (int i = 0; i < length; ++i) {
        if (*m_at++ != rest[i])
            return fail(QJsonParseError::IllegalValue);
    }
    return true;
}

bool JsonTreeParser::parseValue(const Key& key) {
    switch (*m_at++) {
    case 'n':
        if (!parseLiteral("ull", 3, 4))
            return false;
        push(JsonTree::Kind::null, key);
        return true;
    case 't':
        if (!parseLiteral("rue", 3, 4))
            return false;
        push(JsonTree::Kind::boolean, key).payload.truth = true;
        return true;
    case 'f':
        if (!parseLiteral("alse", 4, 5))
            return false;
        push(JsonTree::Kind::boolean, key).payload.truth = false;
        return true;
    case '"': {
        JsonTree::Encoding encoding;
        JsonTree::Text text;
        if (!parseString(encoding, text))
            return false;
        JsonTree::Node& node = push(JsonTree::Kind::string, key);
        node.textEncoding = encoding;
        node.payload.text = text;
        return true;
    }
    case '[':
        return parseArray(key);
    case '{':
        return parseObject(key);
    case ',':
        return fail(QJsonParseError::IllegalValue);
    case ']':
    case '}':
        return fail(QJsonParseError::MissingObject);
    default:
        --m_at;
        return parseNumber(key);
    }
}

bool JsonTreeParser::parseNumber(const Key& key) {
    const char* start = m_at;
    bool integral = true;
    if (m_at < m_end && *m_at == '-')
        ++m_at;
    const char* digits = m_at;
    if (m_at < m_end && *m_at == '0') {
        ++m_at;
    } else {
        while (m_at < m_end && isDigit(*m_at))
            ++m_at;
    }
    const qsizetype digitCount = m_at - digits;
    if (m_at < m_end && *m_at == '.') {
        ++m_at;
        while (m_at < m_end && isDigit(*m_at)) {
            integral = integral && *m_at == '0';
            ++m_at;
        }
    }
    if (m_at < m_end && (*m_at == 'e' || *m_at == 'E')) {
        integral = false;
        ++m_at;
        if (m_at < m_end && (*m_at == '-' || *m_at == '+'))
            ++m_at;
        while (m_at < m_end && isDigit(*m_at))
            ++m_at;
    }
    if (m_at >= m_end)
        return fail(QJsonParseError::TerminationByNumber);

    const qsizetype length = m_at - start;
    const bool plainInteger = integral && digitCount > 0 && digits + digitCount == m_at;
    // Eighteen digits cannot overflow; longer ones go through the same conversion Qt uses.
    if (plainInteger && digitCount <= 18) {
        qint64 value = 0;
        for (const char* c = digits; c < m_at; ++c)
            value = value * 10 + (*c - '0');
        push(JsonTree::Kind::integer, key).payload.integer = digits == start ? value : -value;
        return true;
    }
    const QByteArray text = QByteArray::fromRawData(start, length);
    bool ok = false;
    if (plainInteger) {
        const qint64 value = text.toLongLong(&ok);
        if (ok) {
            push(JsonTree::Kind::integer, key).payload.integer = value;
            return true;
        }
    }
    const double number = text.toDouble(&ok);
    if (!ok)
        return fail(QJsonParseError::IllegalNumber);
    qint64 whole = 0;
    if (wholeInRange(number, whole))
        push(JsonTree::Kind::integer, key).payload.integer = whole;
    else
        push(JsonTree::Kind::real, key).payload.real = number;
    return true;
}

bool JsonTreeParser::parseString(JsonTree::Encoding& encoding, JsonTree::Text& text) {
    const char* start = m_at;
    bool ascii = true;
    while (m_at < m_end) {
        const char c = *m_at;
        if (c == '"')
            break;
        if (c == '\\')
            return parseEscapedString(start, encoding, text);
        if (static_cast<uchar>(c) < 0x80) {
            ++m_at;
            continue;
        }
        ascii = false;
        char32_t codePoint;
        if (!decodeUtf8(m_at, m_end, codePoint))
            return fail(QJsonParseError::IllegalUTF8String);
    }
    // A document never ends in a string, so a closing quote as the last byte is no end either.
    if (++m_at >= m_end)
        return fail(QJsonParseError::UnterminatedString);
    encoding = ascii ? JsonTree::Encoding::ascii : JsonTree::Encoding::utf8;
    text = {static_cast<quint32>(start - m_begin), static_cast<quint32>(m_at - 1 - start)};
    return true;
}

bool JsonTreeParser::parseEscapedString(const char* start, JsonTree::Encoding& encoding,
                                        JsonTree::Text& text) {
    // Qt's first scan stops at the first backslash and wants at least one byte after it.
    if (++m_at >= m_end)
        return fail(QJsonParseError::UnterminatedString);
    QString& decoded = m_tree.m_decoded;
    const auto offset = static_cast<quint32>(decoded.size());
    m_at = start;
    while (m_at < m_end) {
        char32_t codePoint = 0;
        if (*m_at == '"')
            break;
        if (*m_at == '\\') {
            if (!parseEscape(codePoint))
                return fail(QJsonParseError::IllegalEscapeSequence);
        } else if (!decodeUtf8(m_at, m_end, codePoint)) {
            return fail(QJsonParseError::IllegalUTF8String);
        }
        if (codePoint > 0xffff) {
            decoded.append(QChar::highSurrogate(codePoint));
            decoded.append(QChar::lowSurrogate(codePoint));
        } else {
            decoded.append(QChar(static_cast<char16_t>(codePoint)));
        }
    }
    if (++m_at >= m_end)
        return fail(QJsonParseError::UnterminatedString);
    encoding = JsonTree::Encoding::utf16;
    text = {offset, static_cast<quint32>(decoded.size()) - offset};
    return true;
}

bool JsonTreeParser::parseEscape(char32_t& codePoint) {
    if (++m_at >= m_end)
        return false;
    const auto escaped = static_cast<uchar>(*m_at++);
    switch (escaped) {
    case 'b':
        codePoint = 0x8;
        return true;
    case 'f':
        codePoint = 0xc;
        return true;
    case 'n':
        codePoint = 0xa;
        return true;
    case 'r':
        codePoint = 0xd;
        return true;
    case 't':
        codePoint = 0x9;
        return true;
    case 'u':
        if (m_end - m_at < 4)
            return false;
        for (int i = 0; i < 4; ++i) {
            if (!addHexDigit(*m_at, codePoint))
                return false;
            ++m_at;
        }
        return true;
    default:
        codePoint = escaped;
        return true;
    }
}

} // namespace vell
