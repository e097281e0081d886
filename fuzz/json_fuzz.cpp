// Parses arbitrary bytes and walks the JSON value layer over the result: every query and
// conversion, member and element access (const and creating), copies, moves, assignment into
// children, and serialisation. Traps when a document stops round-tripping through its text,
// or when json-glib's parser nests deeper than the nesting guard counted.
#include <glib.h>
#include <json-glib/json-glib.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "FuzzTarget.h"
#include "JsonNesting.h"
#include "SharedJson.h"

#if defined(EC_LIBFUZZER)
#include "tvsim/Simulator.h"
#endif

using common::json::JsonException;
using common::json::JsonType;
using common::json::JsonValue;

namespace {

constexpr int kMaxDepth = 48;

// Calls `f`; true when it fails with a JsonException. Range and kind failures are expected,
// anything else is not.
template <typename F>
bool Throws(F f) {
    try {
        (void)f();
        return false;
    } catch (const JsonException&) {
        return true;
    }
}

// Calls every conversion and predicate.
void Convert(const JsonValue& v) {
    (void)(Throws([&] { return v.asInt(); }) + Throws([&] { return v.asUInt(); }) +
           Throws([&] { return v.asInt64(); }) + Throws([&] { return v.asDouble(); }) +
           Throws([&] { return v.asBool(); }) + Throws([&] { return v.asString(); }));
    for (int t = 0; t <= 7; ++t) {
        Throws([&] { return v.isConvertibleTo(static_cast<JsonType>(t)); });
    }
    (void)(v.isNull() + v.isBool() + v.isString() + v.isInt() + v.isDouble() + v.empty());
}

// Reads the whole tree through const access. Returns false when it holds what JSON text
// cannot carry: an infinite double, or a string that is not UTF-8 (json-glib decodes a lone
// surrogate escape into one). Such a document legitimately does not round-trip.
bool Walk(const JsonValue& v, int depth) {
    Convert(v);
    bool representable = true;
    if (v.type() == JsonType::Double) {
        representable = std::isfinite(v.asDouble());
    } else if (v.type() == JsonType::String) {
        representable = g_utf8_validate(v.asString().c_str(), -1, nullptr);
    }
    if (depth >= kMaxDepth) {
        return representable;
    }
    switch (v.type()) {
        case JsonType::Object:
            for (const std::string& name : v.getMemberNames()) {
                representable = g_utf8_validate(name.c_str(), -1, nullptr) && representable;
                if (!v.isMember(name) || v[name].type() != v.get(name, JsonValue()).type()) {
                    __builtin_trap();
                }
                representable = Walk(v[name], depth + 1) && representable;
            }
            if (!Throws([&] { return v[0]; })) {
                __builtin_trap();  // an object has no elements
            }
            break;
        case JsonType::Array:
            for (unsigned i = 0; i < v.size(); ++i) {
                representable = Walk(v[i], depth + 1) && representable;
            }
            if (&v[v.size()] != &JsonValue::Null()) {
                __builtin_trap();
            }
            break;
        default:
            if (!v.isNull() && !Throws([&] { return v["k"]; })) {
                __builtin_trap();  // a scalar has no members
            }
            break;
    }
    return representable;
}

// Changes a copy in place through child references, checks through const access (which
// looks each child up afresh) that every change landed, and that the original is untouched.
void Mutate(const JsonValue& original, const std::string& original_text) {
    JsonValue copy(original);
    const JsonValue& c = copy;
    if (!(copy == original) || copy.toString(false) != original_text) {
        __builtin_trap();  // a copy keeps member order too
    }
    bool landed = true;
    switch (copy.type()) {
        case JsonType::Object: {
            const std::vector<std::string> names = copy.getMemberNames();
            if (!names.empty()) {
                copy[names.front()] = original;  // a deep copy of the whole document
                JsonValue& last = copy[names.back()];
                if (last.isNull() || last.type() == JsonType::Object) {
                    last["added"] = 1.5;
                }
                copy.removeMember(names[names.size() / 2]);
                landed = !c.isMember(names[names.size() / 2]) &&
                         (names.size() < 2 || c[names.front()] == original);
            }
            // Fails when "new" was already there, and not an array.
            if (!Throws([&] { copy["new"].append(JsonValue("x")); })) {
                landed = landed && c["new"][c["new"].size() - 1].asString() == "x";
            }
            break;
        }
        case JsonType::Array: {
            const unsigned n = copy.size();
            if (n > 0) {
                copy[0] = JsonValue(JsonType::Object);
                copy[0]["k"] = original;
                copy.resize(n / 2);
            }
            copy[n + 1] = true;
            copy.append(JsonValue(original));
            landed = c.size() == n + 3 && c[n + 1].asBool() && c[n + 2] == original &&
                     (n < 2 || c[0]["k"] == original);
            break;
        }
        default:
            copy = JsonValue(JsonType::Array);
            copy.append(original);
            landed = c.size() == 1 && c[0] == original;
            break;
    }
    JsonValue moved(std::move(copy));
    const std::string text = moved.toString(false);
    // The original stays as it was: the copy shares nothing with it.
    if (!landed || !copy.isNull() || JsonValue::Create(text).isNull() ||
        original.toString(false) != original_text) {
        __builtin_trap();
    }
}

// The deepest json-glib's own parser goes on `text`, from its start and end signals: every
// statement of the text, and up to the error in text it refuses.
unsigned ParserDepth(const char* text) {
    struct Depth {
        unsigned now = 0, deepest = 0;
    } depth;
    void (*start)(JsonParser*, gpointer) = [](JsonParser*, gpointer d) {
        auto* depth = static_cast<Depth*>(d);
        depth->deepest = std::max(depth->deepest, ++depth->now);
    };
    void (*end)(JsonParser*, gpointer, gpointer) = [](JsonParser*, gpointer, gpointer d) {
        --static_cast<Depth*>(d)->now;
    };
    JsonParser* parser = json_parser_new();
    g_signal_connect(parser, "array-start", G_CALLBACK(start), &depth);
    g_signal_connect(parser, "object-start", G_CALLBACK(start), &depth);
    g_signal_connect(parser, "array-end", G_CALLBACK(end), &depth);
    g_signal_connect(parser, "object-end", G_CALLBACK(end), &depth);
    json_parser_load_from_data(parser, text, -1, nullptr);
    g_object_unref(parser);
    return depth.deepest;
}

}  // namespace

FUZZ_TARGET(JsonValue) {
#if defined(EC_LIBFUZZER)
    static const bool quiet_log = (tvsim::SetLogRetention(64), true);
    (void)quiet_log;
#endif
    const std::string input(reinterpret_cast<const char*>(data), size);
    // On every text the guard hands to json-glib, json-glib nests no deeper than it counted.
    using common::json::detail::kMaxNesting;
    if (!common::json::detail::NestsDeeperThan(input.c_str(), kMaxNesting) &&
        ParserDepth(input.c_str()) > common::json::detail::NestingDepth(input.c_str())) {
        __builtin_trap();
    }
    const JsonValue doc = JsonValue::Create(input);
    const bool representable = Walk(doc, 0);

    const std::string compact = doc.toString(false);
    const JsonValue again = JsonValue::Create(compact);
    const bool written_null = compact == "null";  // a null, or an infinite double, as the root
    if ((!written_null && again.isNull()) || !g_utf8_validate(compact.c_str(), -1, nullptr)) {
        __builtin_trap();  // the text written is not JSON
    }
    if (representable && (!(again == doc) || !(JsonValue::Create(doc.toString(true)) == doc))) {
        __builtin_trap();
    }
    Mutate(doc, compact);
    return 0;
}
