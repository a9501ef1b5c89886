#include "VellPluginSDK/Actions/PluginCatalogEntry.h"

#include "VellPluginSDK/Json/JsonReader.h"
#include "VellPluginSDK/Json/JsonWriter.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace vell {

namespace {

// Written by hand rather than through QJsonDocument, so that the bytes depend on nothing
// but this function: Qt is free to change its number format or escaping between releases.
class CanonicalWriter final {
public:
    bool write(const QJsonValue& value) {
        switch (value.type()) {
        case QJsonValue::Null:
        case QJsonValue::Undefined:
            m_out += "null";
            return true;
        case QJsonValue::Bool:
            m_out += value.toBool() ? "true" : "false";
            return true;
        case QJsonValue::Double:
            return writeNumber(value.toDouble());
        case QJsonValue::String:
            writeString(value.toString());
            return true;
        case QJsonValue::Array:
            return writeArray(value.toArray());
        case QJsonValue::Object:
            return writeObject(value.toObject());
        }
        return false;
    }

    QByteArray bytes() const { return m_out; }

private:
    bool writeNumber(double number) {
        if (!std::isfinite(number))
            return false;
        // The shortest text that reads back as the same double, as the C++ standard fixes it.
        char buffer[64];
        const auto result = std::to_chars(buffer, buffer + sizeof buffer, number);
        m_out.append(buffer, result.ptr - buffer);
        return true;
    }

    void writeString(const QString& text) {
        static const char hex[] = "0123456789abcdef";
        m_out += '"';
        for (const char byte : text.toUtf8()) {
            const auto unit = static_cast<unsigned char>(byte);
            switch (byte) {
            case '"':
                m_out += "\\\"";
                break;
            case '\\':
                m_out += "\\\\";
                break;
            case '\n':
                m_out += "\\n";
                break;
            case '\r':
                m_out += "\\r";
                break;
            case '\t':
                m_out += "\\t";
                break;
            case '\b':
                m_out += "\\b";
                break;
            case '\f':
                m_out += "\\f";
                break;
            default:
                if (unit < 0x20) {
                    m_out += "\\u00";
                    m_out += hex[unit >> 4];
                    m_out += hex[unit & 0xf];
                } else {
                    m_out += byte;
                }
            }
        }
        m_out += '"';
    }

    bool writeArray(const QJsonArray& array) {
        m_out += '[';
        for (qsizetype i = 0; i < array.size(); ++i) {
            if (i > 0)
                m_out += ',';
            if (!write(array.at(i)))
                return false;
        }
        m_out += ']';
        return true;
    }

    bool writeObject(const QJsonObject& object) {
        QStringList keys = object.keys();
        std::sort(keys.begin(), keys.end(), [](const QString& a, const QString& b) {
            return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                                [](QChar x, QChar y) { return x.unicode() < y.unicode(); });
        });
        m_out += '{';
        bool first = true;
        for (const QString& key : keys) {
            if (!first)
                m_out += ',';
            first = false;
            writeString(key);
            m_out += ':';
            if (!write(object.value(key)))
                return false;
        }
        m_out += '}';
        return true;
    }

    QByteArray m_out;
};

} // namespace

PluginCatalogEntry PluginCatalogEntry::fromJson(const JsonNode& json) {
    const JsonReader reader(json);
    PluginCatalogEntry entry;
    entry.address = reader.record<PluginActionAddress>(u"address");
    entry.action = reader.optionalRecord<PluginRegisteredAction>(u"action");
    entry.channel = reader.optionalRecord<PluginChannel>(u"channel");
    return entry;
}

QByteArray PluginCatalogEntry::encoded() const {
    return JsonWriter()
        .addRecord(u"address", address)
        .addRecordIfPresent(u"action", action)
        .addRecordIfPresent(u"channel", channel)
        .bytes();
}

QJsonObject PluginCatalogEntry::toJson() const {
    return QJsonDocument::fromJson(encoded()).object();
}

namespace {

bool finite(std::optional<double> number) {
    return !number || std::isfinite(*number);
}

bool finite(const PluginValueSchema& schema) {
    return std::all_of(schema.fields.begin(), schema.fields.end(), [](const PluginParameter& field) {
        return finite(field.minimum) && finite(field.maximum);
    });
}

} // namespace

std::optional<QByteArray> PluginCatalogEntry::definitionData() const {
    // JSON has no text for a non-finite number: such an entry has no canonical form at all,
    // and its encoding would read back as something else.
    if (action && (!finite(action->timeoutSeconds) || !finite(action->completionTimeoutSeconds) ||
                   !finite(action->input) || !finite(action->output)))
        return std::nullopt;
    if (channel && !finite(channel->schema))
        return std::nullopt;
    CanonicalWriter writer;
    if (!writer.write(toJson()))
        return std::nullopt;
    return writer.bytes();
}

} // namespace vell
