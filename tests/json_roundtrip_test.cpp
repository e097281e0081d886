// Round trip: for documents json-glib accepts, the compact text of a parse parses again to an
// equal document, serialisation is stable, and a deep copy equals (and prints as) its source.
// Checked over a seeded set of generated documents and over the documents in tests/data/json.
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

// Checks the round-trip properties of one document text and returns the first parse.
void ExpectRoundTrip(const std::string& text, const std::string& label) {
    SCOPED_TRACE(label);
    const JsonValue first = JsonValue::Create(text);
    ASSERT_FALSE(first.isNull()) << "not accepted: " << text;

    const std::string compact = first.toString(false);
    const JsonValue second = JsonValue::Create(compact);
    EXPECT_TRUE(second == first) << text << "\n -> " << compact;
    EXPECT_EQ(second.toString(false), compact);  // serialisation is stable
    EXPECT_TRUE(JsonValue::Create(first.toString(true)) == first);

    const JsonValue copy(first);
    EXPECT_TRUE(copy == first);
    EXPECT_EQ(copy.toString(false), compact);  // the copy keeps member order too
    JsonValue assigned(JsonType::Array);
    assigned = first;
    EXPECT_TRUE(assigned == first);
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

std::vector<std::string> DataFiles() {
    const std::string dir = std::string(EC_SOURCE_DIR) + "/tests/data/json";
    std::vector<std::string> files;
    if (DIR* d = opendir(dir.c_str())) {
        while (dirent* entry = readdir(d)) {
            const std::string name = entry->d_name;
            if (name.size() > 5 && name.compare(name.size() - 5, 5, ".json") == 0) {
                files.push_back(dir + "/" + name);
            }
        }
        closedir(d);
    }
    return files;
}

}  // namespace

TEST(JsonRoundTrip, GeneratedDocuments) {
    DocumentGenerator generator(20240611u);
    for (int i = 0; i < 1500; ++i) {
        ExpectRoundTrip(generator.Document(), "document " + std::to_string(i));
        if (HasFatalFailure()) {
            return;
        }
    }
}

TEST(JsonRoundTrip, ScalarRoots) {
    for (const char* text : {"0", "-0", "-9223372036854775808", "9223372036854775807", "1.0",
                             "-0.0", "5e-324", "\"\\ud83d\\udcfa\"", "true", "false"}) {
        ExpectRoundTrip(text, text);
    }
    EXPECT_TRUE(JsonValue::Create("null") == JsonValue::Create("null"));
}

TEST(JsonRoundTrip, RealisticDocuments) {
    const std::vector<std::string> files = DataFiles();
    ASSERT_GE(files.size(), 5u) << "tests/data/json is missing";
    for (const std::string& file : files) {
        ExpectRoundTrip(ReadFile(file), file);
    }
}

TEST(JsonRoundTrip, PictureEnginePayloadReadsAsThePlugInReadsIt) {
    const JsonValue engine = JsonValue::Create(
        ReadFile(std::string(EC_SOURCE_DIR) + "/tests/data/json/picture_engine.json"));
    const char* const names[] = {"ANA", "DutySum", "APL", "BLOSD", "RESOLUTION",
                                 "PC",  "HDR",     "IDS", "TEMP"};
    const long expected[] = {512, 300, 128, 0, 2160, 0, 1, 3, 41};
    for (int i = 0; i < 9; ++i) {
        ASSERT_TRUE(engine.isMember(names[i])) << names[i];
        EXPECT_EQ(std::strtol(engine[names[i]].asString().c_str(), nullptr, 10), expected[i]);
    }
}

TEST(JsonRoundTrip, OverflowingNumbers) {
    // json-glib parses an overflowing double as infinity, which JSON cannot carry: it is
    // written as null, so that one value does not survive the trip but the text stays JSON.
    const JsonValue inf = JsonValue::Create("[1e999,-1e999]");
    EXPECT_EQ(inf.toString(false), "[null,null]");
    // Integers beyond int64 wrap while parsing and then round-trip as the wrapped value.
    const JsonValue wrapped = JsonValue::Create("[9223372036854775808]");
    EXPECT_TRUE(JsonValue::Create(wrapped.toString(false)) == wrapped);
}

TEST(JsonRoundTrip, TextIsJsonGlibsWhereverThatIsJson) {
    DocumentGenerator generator(7u);
    std::vector<std::string> texts;
    for (int i = 0; i < 800; ++i) {
        texts.push_back(generator.Document());
    }
    for (const std::string& file : DataFiles()) {
        texts.push_back(ReadFile(file));
    }
    size_t compared = 0;
    for (const std::string& text : texts) {
        const JsonValue value = JsonValue::Create(text);
        ParserPtr parser(json_parser_new());
        ASSERT_TRUE(json_parser_load_from_data(parser.get(), text.c_str(), -1, nullptr));
        JsonNode* root = json_parser_get_root(parser.get());
        for (const bool pretty : {false, true}) {
            GCharPtr glib(json_to_string(root, pretty));
            ParserPtr again(json_parser_new());
            const std::string glib_text = glib.get();
            const bool raw_control = std::find_if(glib_text.begin(), glib_text.end(), [](char c) {
                                         return c == '\x1f';
                                     }) != glib_text.end();
            if (raw_control || !json_parser_load_from_data(again.get(), glib.get(), -1, nullptr)) {
                continue;  // json-glib's own text is not JSON here
            }
            EXPECT_EQ(value.toString(pretty), glib.get()) << text;
            ++compared;
        }
    }
    EXPECT_GT(compared, texts.size());  // most documents take part, in both layouts
}
