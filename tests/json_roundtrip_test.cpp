// Round trip and differential test of the serialiser: a seeded set of generated documents and
// the documents in tests/data/json go through the JSON fuzz target (round trip, copies, changes
// to copies), and their text is json-glib's own wherever json-glib's text is JSON.
#include <dirent.h>
#include <json-glib/json-glib.h>

#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "FuzzTarget.h"
#include "SharedJson.h"

using common::json::JsonValue;

namespace {

std::vector<std::string> Words(const std::string& text) {
    std::istringstream in(text);
    return {std::istream_iterator<std::string>(in), {}};
}

// Builds JSON text directly, so that the parser sees escapes and number forms that the
// serialiser itself would never produce.
class DocumentGenerator {
  public:
    explicit DocumentGenerator(uint32_t seed) : rng_(seed) {}
    std::string Container(bool object, int depth = 0) {
        std::string out;
        std::set<std::string> keys;
        for (int i = Pick(6); i > 0; --i) {
            const std::string key = String();
            if (object && !keys.insert(key).second) {
                continue;  // duplicate names would make the last one win
            }
            out += (out.empty() ? "" : ",") + (object ? key + ":" : "") + Value(depth);
        }
        return object ? "{" + out + "}" : "[" + out + "]";
    }

  private:
    int Pick(int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng_); }
    template <size_t N>
    const char* OneOf(const char* const (&choices)[N]) {
        return choices[Pick(static_cast<int>(N))];
    }

    std::string Value(int depth) {
        switch (depth >= 5 ? 2 + Pick(5) : Pick(7)) {
            case 0:
            case 1:
                return Container(Pick(2) == 0, depth + 1);
            case 2:
                return String();
            case 3:
                return std::to_string(Pick(3) == 0 ? Pick(2001) - 1000 : int64_t(rng64_()));
            case 4:
                return Double();
            default:
                return Pick(3) == 0 ? "null" : Pick(2) == 0 ? "true" : "false";
        }
    }

    std::string String() {
        std::string out = "\"";
        for (int i = Pick(8); i > 0; --i) {
            out += pieces_[Pick(static_cast<int>(pieces_.size()))];
        }
        return out + "\"";
    }

    // An edge case, or a random finite bit pattern printed with full precision in either
    // notation.
    std::string Double() {
        if (Pick(3) == 0) {
            return OneOf({"0.0", "-0.0", "1.5", "2e10", "1E-5", "-3.25e+2", "5e-324",
                          "2.2250738585072014e-308", "1.7976931348623157e308",
                          "-1.7976931348623157E+308", "0.1", "123456789.125", "1e300", "1e-300",
                          "9223372036854775807", "-9223372036854775808"});
        }
        double d;
        do {
            const uint64_t bits = rng64_();
            std::memcpy(&d, &bits, sizeof d);
        } while (!std::isfinite(d));
        char text[40];
        std::snprintf(text, sizeof text, Pick(2) == 0 ? "%.17g" : "%.17e", d);
        return text;
    }

    // String contents: plain text, every escape, multi-byte UTF-8, surrogate pairs.
    const std::vector<std::string> pieces_ = Words(
        "a Z energy \\n \\t \\\" \\\\ \\/ \\b \\f \\r \\u00e9 \\u65E5 \\u0001 \\u001f "
        "\xc3\xbc \xe2\x82\xac \xf0\x9f\x93\xba \\ud83d\\udcfa \\uD834\\uDD1E %s '");
    std::mt19937 rng_;
    std::mt19937_64 rng64_{rng_()};
};

std::vector<std::string> Documents() {
    std::vector<std::string> texts = {"0",      "-0",   "-9223372036854775808", "1.0", "-0.0",
                                      "5e-324", "true", "\"\\ud83d\\udcfa\""};
    DocumentGenerator generator(20240611u);
    for (int i = 0; i < 1200; ++i) {
        texts.push_back(generator.Container(i % 2 == 0));
    }
    const std::string dir = std::string(EC_SOURCE_DIR) + "/tests/data/json/";
    std::unique_ptr<DIR, int (*)(DIR*)> d(opendir(dir.c_str()), &closedir);
    while (dirent* entry = d ? readdir(d.get()) : nullptr) {
        if (std::strstr(entry->d_name, ".json") != nullptr) {
            std::ostringstream text;
            text << std::ifstream(dir + entry->d_name).rdbuf();
            texts.push_back(text.str());
        }
    }
    return texts;
}

}  // namespace

TEST(JsonRoundTrip, DocumentsKeepTheFuzzInvariantsAndMatchJsonGlib) {
    const std::vector<std::string> texts = Documents();
    ASSERT_GE(texts.size(), 1213u) << "tests/data/json is missing";
    const fuzz::Entry invariants = fuzz::Registry().at("JsonValue");
    size_t compared = 0;
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 200));
        const JsonValue doc = JsonValue::Create(text);
        ASSERT_FALSE(doc.isNull()) << "not accepted";
        invariants(reinterpret_cast<const uint8_t*>(text.data()), text.size());

        std::unique_ptr<JsonParser, void (*)(gpointer)> parser(json_parser_new(), g_object_unref);
        ASSERT_TRUE(json_parser_load_from_data(parser.get(), text.c_str(), -1, nullptr));
        for (const bool pretty : {false, true}) {
            std::unique_ptr<gchar, void (*)(gpointer)> glib(
                json_to_string(json_parser_get_root(parser.get()), pretty), g_free);
            std::unique_ptr<JsonParser, void (*)(gpointer)> again(json_parser_new(),
                                                                  g_object_unref);
            if (std::strchr(glib.get(), '\x1f') != nullptr ||
                !json_parser_load_from_data(again.get(), glib.get(), -1, nullptr)) {
                continue;  // json-glib's own text is not JSON here
            }
            EXPECT_EQ(doc.toString(pretty), glib.get());
            ++compared;
        }
    }
    EXPECT_GT(compared, texts.size());  // most documents take part, in both layouts
}
