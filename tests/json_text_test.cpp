// JSON text in and out: what the parser accepts (malformed text, nesting deeper than 200
// levels, refused before json-glib's recursive parser sees it, on the main thread and on a
// 256 KiB thread stack alike) and what the serialiser writes: escapes, numbers, bytes that are
// not UTF-8, and a seeded set of generated documents through the JSON fuzz target (round trip,
// copies, changes to copies) whose text must be json-glib's own wherever json-glib's is JSON.
#include <json-glib/json-glib.h>
#include <pthread.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <iterator>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "FuzzTarget.h"
#include "SharedJson.h"
#include "TestSupport.h"

using common::json::JsonType;
using common::json::JsonValue;

namespace {

std::string Repeat(const std::string& piece, int n) {
    std::string out;
    while (n-- > 0) {
        out += piece;
    }
    return out;
}

std::string Arrays(int depth) {
    return Repeat("[", depth) + Repeat("]", depth);
}

// Runs `work` on a thread with a 256 KiB stack, as a framework's worker may have.
void OnSmallStack(const std::function<void()>& work) {
    pthread_attr_t attr;
    ASSERT_EQ(pthread_attr_init(&attr), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attr, 256 * 1024), 0);
    pthread_t thread;
    auto run = [](void* arg) -> void* {
        (*static_cast<const std::function<void()>*>(arg))();
        return nullptr;
    };
    ASSERT_EQ(pthread_create(&thread, &attr, run, const_cast<std::function<void()>*>(&work)), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attr);
}

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
        const int kind = depth >= 5 ? 2 + Pick(5) : Pick(7);
        return kind < 2    ? Container(Pick(2) == 0, depth + 1)
               : kind == 2 ? String()
               : kind == 3 ? std::to_string(Pick(3) == 0 ? Pick(2001) - 1000 : int64_t(rng64_()))
               : kind == 4 ? Double()
                           : OneOf({"null", "true", "false"});
    }

    std::string String() {
        std::string out = "\"";
        for (int i = Pick(8); i > 0; --i) {
            out += pieces_[Pick(static_cast<int>(pieces_.size()))];
        }
        return out + "\"";
    }

    // An edge case, or a random finite double printed with full precision in either notation.
    std::string Double() {
        if (Pick(3) == 0) {
            return OneOf({"0.0", "-0.0", "1.5", "2e10", "1E-5", "-3.25e+2", "5e-324",
                          "2.2250738585072014e-308", "1.7976931348623157e308",
                          "-1.7976931348623157E+308", "0.1", "123456789.125", "1e300", "1e-300",
                          "9223372036854775807", "-9223372036854775808"});
        }
        // Every binary exponent, subnormals included, with a random 53-bit mantissa.
        const double d =
            std::ldexp(std::uniform_real_distribution<double>(-1, 1)(rng_), Pick(2098) - 1074);
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

class JsonParse : public testsupport::SimTest {};

}  // namespace

// Each text parses to a value ('v'), or gives null with an error logged ('e') or without one
// ('n': json-glib accepts empty and blank text as a document without a root).
TEST_F(JsonParse, MalformedAndTooDeepTextGivesNull) {
    auto check = [this] {
        // Built per run, so that the long texts do not stay on the heap of the test binary.
        const std::vector<std::pair<std::string, char>> rows = {
            {"{bad", 'e'},
            {"[1,]", 'e'},
            {"", 'n'},
            {" \n\t", 'n'},
            {Arrays(200), 'v'},
            {Arrays(201), 'e'},
            {Repeat("{\"a\":", 200) + "{}" + Repeat("}", 200), 'e'},
            {Repeat("[", 80000), 'e'},
            {"[\"" + Repeat("[{", 5000) + "\"]", 'v'},  // brackets inside a string
            {"[\"\\\"[[\"," + Arrays(199) + "]", 'v'},  // an escaped quote ends no string
            {"['\"'," + Arrays(200) + "]", 'e'},        // a double quote in a single-quoted string
            {"/* \" */" + Arrays(201), 'e'},            // a double quote in a comment
            {Repeat("]", 500) + Arrays(201), 'e'},      // closing brackets first buy no depth
            // json-glib 1.6 skips from a '/' to the next '/': a quote there opens no string,
            // a bracket there closes nothing, and a '/' in a string starts no comment.
            {"/\"/" + Repeat("[", 300000), 'e'},
            {Repeat("[/]/", 201) + "1" + Repeat("]", 201), 'e'},
            {"[\"/\"," + Arrays(199) + "]", 'v'},
            // Later versions read "/*" to "*/" as one comment: what follows it counts too.
            {"/*/\"*/" + Arrays(201) + "\"", 'e'},
            // A \u escape takes the first character that is no hex digit, a quote included;
            // half a surrogate pair takes the character after it.
            {"[\"\\u1\"\"," + Arrays(200) + "]", 'e'},
            {"[\"\\uD800\"\"," + Arrays(200) + "]", 'e'},
            {"[\"\\uD83D\\\"\"," + Arrays(199) + "]", 'v'},
        };
        for (const auto& [text, outcome] : rows) {
            const std::string name = text.substr(0, 40);
            EXPECT_EQ(JsonValue::Create(text).isNull(), outcome != 'v') << name;
            EXPECT_EQ(Logged(DLOG_ERROR, "WEXF_COMMON", "failed to parse: " + text), outcome == 'e')
                << name;
        }
    };
    check();
    OnSmallStack(check);
    EXPECT_EQ(common::json::SharedJson::Create(static_cast<const char*>(nullptr)).type(),
              JsonType::Null);
    EXPECT_TRUE(Logged(DLOG_ERROR, "WEXF_COMMON", "failed to parse: (null)"));
}

TEST(JsonSerialise, TextForms) {
    const std::pair<JsonValue, const char*> rows[] = {
        {JsonValue("tab\there\\ \"q\" \x1f"), "\"tab\\there\\\\ \\\"q\\\" \\u001f\""},
        {JsonValue::Create("{\"a\\\"b\\\\c\\u001f\":\"\\u001f\"}"),
         "{\"a\\\"b\\\\c\\u001f\":\"\\u001f\"}"},
        // A double whose text has an exponent but no point gets one, to stay a double.
        {JsonValue(1e-300), "1.0e-300"},
        // Bytes that are not UTF-8 become U+FFFD, each of them.
        {JsonValue(std::string("a\xff\xc3(b")), "\"a\xEF\xBF\xBD\xEF\xBF\xBD(b\""},
        {JsonValue::Create("[\"\\udcfaa\"]"), "[\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"]"},
    };
    for (const auto& [value, text] : rows) {
        EXPECT_EQ(value.toString(false), text);
    }
}

TEST(JsonRoundTrip, DocumentsKeepTheFuzzInvariantsAndMatchJsonGlib) {
    std::vector<std::string> texts = {"0",      "-0",   "-9223372036854775808", "1.0", "-0.0",
                                      "5e-324", "true", "\"\\ud83d\\udcfa\""};
    DocumentGenerator generator(20240611u);
    for (int i = 0; i < 1200; ++i) {
        texts.push_back(generator.Container(i % 2 == 0));
    }
    const fuzz::Entry invariants = fuzz::Registry().at("JsonValue");
    size_t compared = 0;
    for (const std::string& text : texts) {
        SCOPED_TRACE(text.substr(0, 200));
        const JsonValue doc = JsonValue::Create(text);
        ASSERT_FALSE(doc.isNull()) << "not accepted";
        invariants(reinterpret_cast<const uint8_t*>(text.data()), text.size());

        g_autoptr(JsonParser) parser = json_parser_new();
        ASSERT_TRUE(json_parser_load_from_data(parser, text.c_str(), -1, nullptr));
        for (const bool pretty : {false, true}) {
            g_autofree gchar* glib = json_to_string(json_parser_get_root(parser), pretty);
            g_autoptr(JsonParser) again = json_parser_new();
            if (std::strchr(glib, '\x1f') != nullptr ||
                !json_parser_load_from_data(again, glib, -1, nullptr)) {
                continue;  // json-glib's own text is not JSON here
            }
            EXPECT_EQ(doc.toString(pretty), glib);
            ++compared;
        }
    }
    EXPECT_GT(compared, texts.size());  // most documents take part, in both layouts
}
