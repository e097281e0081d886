// Round trip and differential test of the serialiser: over a seeded set of generated documents
// and the documents in tests/data/json, the compact text of a parse parses again to an equal
// document and prints the same, a deep copy equals and prints as its source, and the text is
// json-glib's own wherever json-glib's text is JSON.
#include <dirent.h>

#include <algorithm>
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <limits>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SharedJson.h"

#include <json-glib/json-glib.h>

using common::json::JsonType;
using common::json::JsonValue;

namespace {

struct GObjectUnref {
    void operator()(gpointer object) const { g_object_unref(object); }
};
using ParserPtr = std::unique_ptr<JsonParser, GObjectUnref>;
struct GFree {
    void operator()(gpointer p) const { g_free(p); }
};
using GCharPtr = std::unique_ptr<gchar, GFree>;

// Builds JSON text directly, so that the parser sees escapes, exponents and spacing that the
// serialiser itself would never produce.
class DocumentGenerator {
  public:
    explicit DocumentGenerator(uint32_t seed) : rng_(seed) {}

    std::string Document() {
        std::string out;
        if (Chance(2)) {
            Object(out, 0);
        } else {
            Array(out, 0);
        }
        return out;
    }

  private:
    bool Chance(int one_in) { return Pick(one_in) == 0; }
    int Pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }

    void Space(std::string& out) {
        static const char* const kSpaces[] = {"", "", "", " ", "\n", "\t", "  \r\n "};
        out += kSpaces[Pick(7)];
    }

    void Value(std::string& out, int depth) {
        const int kind = depth >= 5 ? 2 + Pick(5) : Pick(7);
        switch (kind) {
            case 0:
                Object(out, depth + 1);
                break;
            case 1:
                Array(out, depth + 1);
                break;
            case 2:
                String(out);
                break;
            case 3:
                Integer(out);
                break;
            case 4:
                Double(out);
                break;
            case 5:
                out += Chance(2) ? "true" : "false";
                break;
            default:
                out += "null";
                break;
        }
    }

    void Object(std::string& out, int depth) {
        out += '{';
        const int n = Pick(6);
        std::set<std::string> keys;
        for (int i = 0; i < n; ++i) {
            std::string key;
            String(key);
            if (!keys.insert(key).second) {
                continue;  // duplicate names would make the last one win
            }
            if (!out.empty() && out.back() != '{') {
                out += ',';
            }
            Space(out);
            out += key;
            Space(out);
            out += ':';
            Space(out);
            Value(out, depth);
        }
        Space(out);
        out += '}';
    }

    void Array(std::string& out, int depth) {
        out += '[';
        const int n = Pick(6);
        for (int i = 0; i < n; ++i) {
            if (i > 0) {
                out += ',';
            }
            Space(out);
            Value(out, depth);
        }
        out += ']';
    }

    void String(std::string& out) {
        static const char* const kPieces[] = {
            "a",
            "Z",
            "energy",
            " ",
            "\\n",
            "\\t",
            "\\\"",
            "\\\\",
            "\\/",
            "\\b",
            "\\f",
            "\\r",
            "\\u00e9",
            "\\u65E5",
            "\\u0001",
            "\\u001f",
            "\xc3\xbc",
            "\xe2\x82\xac",
            "\xf0\x9f\x93\xba",
            "\\ud83d\\udcfa",
            "\\uD834\\uDD1E",
            "%s",
            "'",
        };
        const int count = sizeof(kPieces) / sizeof(kPieces[0]);
        out += '"';
        const int n = Pick(8);
        for (int i = 0; i < n; ++i) {
            out += kPieces[Pick(count)];
        }
        out += '"';
    }

    void Integer(std::string& out) {
        char text[32];
        long long v = 0;
        switch (Pick(5)) {
            case 0:
                v = Pick(2001) - 1000;
                break;
            case 1:
                v = std::numeric_limits<long long>::max();
                break;
            case 2:
                v = std::numeric_limits<long long>::min();
                break;
            default:
                v = static_cast<long long>(rng64_());
                break;
        }
        std::snprintf(text, sizeof(text), "%lld", v);
        out += text;
    }

    void Double(std::string& out) {
        static const char* const kFixed[] = {"0.0",
                                             "-0.0",
                                             "1.5",
                                             "2e10",
                                             "1E-5",
                                             "-3.25e+2",
                                             "5e-324",
                                             "2.2250738585072014e-308",
                                             "1.7976931348623157e308",
                                             "-1.7976931348623157E+308",
                                             "0.1",
                                             "123456789.125",
                                             "1e300",
                                             "1e-300"};
        char text[40];
        if (Chance(3)) {
            out += kFixed[Pick(sizeof(kFixed) / sizeof(kFixed[0]))];
            return;
        }
        // Random finite bit patterns, printed with full precision in either notation.
        double d;
        do {
            const uint64_t bits = rng64_();
            std::memcpy(&d, &bits, sizeof(d));
        } while (!std::isfinite(d));
        std::snprintf(text, sizeof(text), Chance(2) ? "%.17g" : "%.17e", d);
        out += text;
    }

    std::mt19937 rng_;
    std::mt19937_64 rng64_{rng_()};
};

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> Documents() {
    std::vector<std::string> texts;
    DocumentGenerator generator(20240611u);
    for (int i = 0; i < 1200; ++i) {
        texts.push_back(generator.Document());
    }
    const std::string dir = std::string(EC_SOURCE_DIR) + "/tests/data/json";
    DIR* d = opendir(dir.c_str());
    while (dirent* entry = d != nullptr ? readdir(d) : nullptr) {
        const std::string name = entry->d_name;
        if (name.size() > 5 && name.compare(name.size() - 5, 5, ".json") == 0) {
            texts.push_back(ReadFile(dir + "/" + name));
        }
    }
    if (d != nullptr) {
        closedir(d);
    }
    return texts;
}

}  // namespace

TEST(JsonRoundTrip, DocumentsSurviveTheTripAndMatchJsonGlib) {
    std::vector<std::string> texts = Documents();
    ASSERT_GE(texts.size(), 1205u) << "tests/data/json is missing";
    for (const char* scalar : {"0", "-0", "-9223372036854775808", "9223372036854775807", "1.0",
                               "-0.0", "5e-324", "\"\\ud83d\\udcfa\"", "true", "false"}) {
        texts.push_back(scalar);
    }
    size_t compared = 0;
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 200));
        const JsonValue first = JsonValue::Create(text);
        ASSERT_FALSE(first.isNull()) << "not accepted";
        const std::string compact = first.toString(false);
        const JsonValue second = JsonValue::Create(compact);
        EXPECT_TRUE(second == first) << compact;
        EXPECT_EQ(second.toString(false), compact);
        EXPECT_TRUE(JsonValue::Create(first.toString(true)) == first);
        const JsonValue copy(first);
        EXPECT_EQ(copy.toString(false), compact);  // the copy keeps member order too
        JsonValue assigned(JsonType::Array);
        assigned = first;
        EXPECT_TRUE(assigned == first);

        ParserPtr parser(json_parser_new());
        ASSERT_TRUE(json_parser_load_from_data(parser.get(), text.c_str(), -1, nullptr));
        for (const bool pretty : {false, true}) {
            GCharPtr glib(json_to_string(json_parser_get_root(parser.get()), pretty));
            const std::string glib_text = glib.get();
            ParserPtr again(json_parser_new());
            if (glib_text.find('\x1f') != std::string::npos ||
                !json_parser_load_from_data(again.get(), glib.get(), -1, nullptr)) {
                continue;  // json-glib's own text is not JSON here
            }
            EXPECT_EQ(first.toString(pretty), glib_text);
            ++compared;
        }
    }
    EXPECT_GT(compared, texts.size());  // most documents take part, in both layouts
}

TEST(JsonRoundTrip, OverflowingNumbers) {
    // json-glib parses an overflowing double as infinity, which JSON cannot carry: it is
    // written as null, so that one value does not survive the trip but the text stays JSON.
    EXPECT_EQ(JsonValue::Create("[1e999,-1e999]").toString(false), "[null,null]");
    // Integers beyond int64 wrap while parsing and then round-trip as the wrapped value.
    const JsonValue wrapped = JsonValue::Create("[9223372036854775808]");
    EXPECT_TRUE(JsonValue::Create(wrapped.toString(false)) == wrapped);
}
