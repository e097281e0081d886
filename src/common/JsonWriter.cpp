#include "JsonWriter.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace common {
namespace json {
namespace detail {

namespace {

constexpr unsigned kIndent = 2;

// Appends `length` bytes of valid UTF-8 with JSON's escapes (json-glib's choice of them).
void append_escaped(std::string& out, const char* text, size_t length) {
    static const char kHex[] = "0123456789abcdef";
    const char* run = text;
    const char* const stop = text + length;
    for (const char* p = text; p != stop; ++p) {
        const unsigned char c = static_cast<unsigned char>(*p);
        const char* escape = nullptr;
        switch (c) {
            case '"':
                escape = "\\\"";
                break;
            case '\\':
                escape = "\\\\";
                break;
            case '\b':
                escape = "\\b";
                break;
            case '\f':
                escape = "\\f";
                break;
            case '\n':
                escape = "\\n";
                break;
            case '\r':
                escape = "\\r";
                break;
            case '\t':
                escape = "\\t";
                break;
            default:
                if (c >= 0x20 && c != 0x7f) {
                    continue;
                }
                break;
        }
        out.append(run, p - run);
        run = p + 1;
        if (escape != nullptr) {
            out += escape;
        } else {
            const char unicode[] = {'\\', 'u', '0', '0', kHex[c >> 4], kHex[c & 0xf]};
            out.append(unicode, sizeof(unicode));
        }
    }
    out.append(run, stop - run);
}

// Writes `text` as a JSON string. Bytes that are not UTF-8 (a string built from arbitrary
// bytes, or a lone surrogate escape that json-glib decodes into one) each become U+FFFD, so
// the text stays UTF-8 and readable by json-glib and any other JSON reader.
void append_quoted(std::string& out, const char* text) {
    out += '"';
    const char* p = text;
    for (;;) {
        const gchar* valid_end = nullptr;
        const bool valid = g_utf8_validate(p, -1, &valid_end);
        append_escaped(out, p, valid_end - p);
        if (valid) {
            break;
        }
        out += "\xEF\xBF\xBD";
        p = valid_end + 1;
    }
    out += '"';
}

void append_double(std::string& out, double d) {
    if (!std::isfinite(d)) {
        out += "null";
        return;
    }
    // The text of g_ascii_dtostr ("%.17g" in the C locale), which std::to_chars gives
    // without going through printf.
    char text[G_ASCII_DTOSTR_BUF_SIZE];
    const std::to_chars_result r =
        std::to_chars(text, text + sizeof(text) - 1, d, std::chars_format::general, 17);
    *r.ptr = '\0';
    // Keep a double recognisable as one: "100" becomes "100.0", "1e-300" becomes "1.0e-300".
    if (std::strchr(text, '.') != nullptr) {
        out += text;
        return;
    }
    const char* exponent = std::strpbrk(text, "eE");
    if (exponent == nullptr) {
        out += text;
        out += ".0";
    } else {
        out.append(text, exponent - text);
        out += ".0";
        out += exponent;
    }
}

void append_value(std::string& out, JsonNode* node) {
    const GType type = json_node_get_value_type(node);
    if (type == G_TYPE_INT64) {
        char text[24];
        const std::to_chars_result r =
            std::to_chars(text, text + sizeof(text), json_node_get_int(node));
        out.append(text, r.ptr - text);
    } else if (type == G_TYPE_DOUBLE) {
        append_double(out, json_node_get_double(node));
    } else if (type == G_TYPE_BOOLEAN) {
        out += json_node_get_boolean(node) ? "true" : "false";
    } else if (type == G_TYPE_STRING) {
        const gchar* text = json_node_get_string(node);
        append_quoted(out, text != nullptr ? text : "");
    } else {
        out += "null";
    }
}

void append_node(std::string& out, JsonNode* node, bool pretty, unsigned level);

struct MemberWriter {
    std::string& out;
    bool pretty;
    unsigned level;  // level of the members
    bool first;
};

void append_member(JsonObject*, const gchar* name, JsonNode* member, gpointer user_data) {
    MemberWriter& w = *static_cast<MemberWriter*>(user_data);
    if (!w.first) {
        w.out += w.pretty ? ",\n" : ",";
    }
    w.first = false;
    if (w.pretty) {
        w.out.append(w.level * kIndent, ' ');
    }
    append_quoted(w.out, name);
    w.out += w.pretty ? " : " : ":";
    append_node(w.out, member, w.pretty, w.level);
}

void append_node(std::string& out, JsonNode* node, bool pretty, unsigned level) {
    switch (json_node_get_node_type(node)) {
        case JSON_NODE_OBJECT: {
            JsonObject* object = json_node_get_object(node);
            out += '{';
            if (pretty && json_object_get_size(object) > 0) {
                out += '\n';
            }
            MemberWriter writer{out, pretty, level + 1, true};
            json_object_foreach_member(object, &append_member, &writer);
            if (pretty) {
                if (!writer.first) {
                    out += '\n';
                }
                out.append(level * kIndent, ' ');  // json-glib pads even an empty object
            }
            out += '}';
            break;
        }
        case JSON_NODE_ARRAY: {
            JsonArray* array = json_node_get_array(node);
            const guint n = json_array_get_length(array);
            out += '[';
            for (guint i = 0; i < n; ++i) {
                if (pretty) {
                    out += i == 0 ? "\n" : ",\n";
                    out.append((level + 1) * kIndent, ' ');
                } else if (i > 0) {
                    out += ',';
                }
                append_node(out, json_array_get_element(array, i), pretty, level + 1);
            }
            if (pretty && n > 0) {
                out += '\n';
                out.append(level * kIndent, ' ');
            }
            out += ']';
            break;
        }
        case JSON_NODE_VALUE:
            append_value(out, node);
            break;
        case JSON_NODE_NULL:
        default:
            out += "null";
            break;
    }
}

}  // namespace

void WriteNode(std::string& out, JsonNode* node, bool pretty) {
    append_node(out, node, pretty, 0);
}

}  // namespace detail
}  // namespace json
}  // namespace common
