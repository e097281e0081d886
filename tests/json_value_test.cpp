// The JSON value layer: the conversion table and its bounds, predicates, access rules,
// shared-tree semantics, stale cached children, parsing, serialisation and the node layout.
#include <json-glib/json-glib.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "SharedJson.h"
#include "TestSupport.h"

using common::json::JsonException;
using common::json::JsonType;
using common::json::JsonValue;

namespace {

JsonValue Parse(const char* text) {
    return JsonValue::Create(text);
}

// The result of `f` as text, or "!" and the text of the JsonException it throws.
template <typename F>
std::string Outcome(F f) {
    try {
        return f();
    } catch (const JsonException& e) {
        return std::string("!") + e.what();
    }
}

std::string Number(double d) {
    char text[64];
    std::snprintf(text, sizeof text, "%.17g", d);
    return text;
}

constexpr char kI32[] = "!int64_t value exceed int32_t range";
constexpr char kU32[] = "!int64_t value exceed uint32_t range";
constexpr char kD32[] = "!double value exceed int32_t range";  // also for uint32
constexpr char kD64[] = "!double value exceed int64_t range";
constexpr char kInvalid[] = "invalid type";
const double kTwo63 = 9223372036854775808.0;

}  // namespace

// One row per source value; nullptr leaves a column unchecked.
TEST(JsonConversion, Table) {
    struct Row {
        JsonValue value;
        const char *as_int, *as_uint, *as_int64, *as_double, *as_bool, *as_string;
    };
    static const std::string kBig = std::to_string(1e300);
    const char* const no_int = "!cannot convert to int32_t type";
    const char* const no_uint = "!cannot convert to uint32_t type";
    const char* const no_int64 = "!cannot convert to int64_t type";
    const char* const no_double = "!cannot convert to double type";
    const char* const no_bool = "!cannot convert to bool type";
    const Row rows[] = {
        {JsonValue(), "0", "0", "0", "0", "false", ""},
        {JsonValue(true), "1", "1", "1", "1", "true", "true"},
        {JsonValue(false), "0", "0", "0", "0", "false", "false"},
        {JsonValue(0), "0", "0", "0", "0", "false", "0"},
        {JsonValue(-1), "-1", kU32, "-1", "-1", "true", "-1"},
        {JsonValue(2147483647LL), "2147483647", "2147483647", nullptr, nullptr, nullptr, nullptr},
        {JsonValue(-2147483648LL), "-2147483648", kU32, nullptr, nullptr, nullptr, nullptr},
        {JsonValue(2147483648LL), kI32, "2147483648", nullptr, nullptr, nullptr, nullptr},
        {JsonValue(-2147483649LL), kI32, kU32, nullptr, nullptr, nullptr, nullptr},
        {JsonValue(4294967295u), kI32, "4294967295", "4294967295", nullptr, nullptr, nullptr},
        {JsonValue(4294967296LL), kI32, kU32, "4294967296", nullptr, nullptr, nullptr},
        {JsonValue(std::numeric_limits<long long>::min()), kI32, kU32, "-9223372036854775808",
         nullptr, "true", "-9223372036854775808"},
        {JsonValue(2147483647.9), "2147483647", "2147483647", "2147483647", nullptr, "true",
         nullptr},
        {JsonValue(-2147483648.9), "-2147483648", kD32, "-2147483648", nullptr, nullptr, nullptr},
        {JsonValue(2147483648.0), kD32, "2147483648", nullptr, nullptr, nullptr, nullptr},
        {JsonValue(-2147483649.0), kD32, kD32, nullptr, nullptr, nullptr, nullptr},
        {JsonValue(-1.9), "-1", kD32, "-1", "-1.8999999999999999", "true", "-1.900000"},
        {JsonValue(-0.5), "0", kD32, "0", nullptr, "true", nullptr},
        {JsonValue(-0.0), "0", "0", "0", nullptr, "false", "-0.000000"},
        {JsonValue(7.9), "7", "7", "7", nullptr, nullptr, "7.900000"},
        {JsonValue(4294967295.5), kD32, "4294967295", "4294967295", nullptr, nullptr, nullptr},
        {JsonValue(4294967296.0), kD32, kD32, "4294967296", nullptr, nullptr, nullptr},
        {JsonValue(std::nan("")), kD32, kD32, kD64, nullptr, "false", nullptr},
        {JsonValue(-INFINITY), kD32, kD32, kD64, nullptr, "true", nullptr},
        {JsonValue(1e-310), "0", "0", "0", nullptr, "true", "0.000000"},
        {JsonValue(kTwo63), kD32, kD32, "9223372036854775807", nullptr, nullptr, nullptr},
        {JsonValue(-kTwo63), kD32, kD32, "-9223372036854775808", nullptr, nullptr, nullptr},
        {JsonValue(std::nextafter(kTwo63, INFINITY)), nullptr, nullptr, kD64, nullptr, nullptr,
         nullptr},
        {JsonValue(std::nextafter(-kTwo63, -INFINITY)), nullptr, nullptr, kD64, nullptr, nullptr,
         nullptr},
        {JsonValue(-2.5), "-2", kD32, "-2", "-2.5", "true", "-2.500000"},
        {JsonValue(1.5), "1", "1", "1", "1.5", "true", "1.500000"},
        {JsonValue(-0.0000004), nullptr, nullptr, nullptr, nullptr, "true", "-0.000000"},
        {JsonValue(1e300), nullptr, nullptr, nullptr, nullptr, nullptr, kBig.c_str()},
        {JsonValue("42"), no_int, no_uint, no_int64, no_double, no_bool, "42"},
        {JsonValue(std::string("a\"b")), nullptr, nullptr, nullptr, nullptr, nullptr, "a\"b"},
        {JsonValue(JsonType::Object), no_int, no_uint, no_int64, no_double, no_bool,
         "!cannot convert to string type"},
        {JsonValue(JsonType::Array), no_int, no_uint, no_int64, no_double, no_bool,
         "!cannot convert to string type"},
    };
    for (size_t i = 0; i < sizeof rows / sizeof rows[0]; ++i) {
        const Row& r = rows[i];
        const JsonValue& v = r.value;
        const std::string as_string = Outcome([&] { return v.asString(); });
        SCOPED_TRACE("row " + std::to_string(i) + ": " + as_string);
        const std::vector<std::pair<const char*, std::string>> cells = {
            {r.as_int, Outcome([&] { return std::to_string(v.asInt()); })},
            {r.as_uint, Outcome([&] { return std::to_string(v.asUInt()); })},
            {r.as_int64, Outcome([&] { return std::to_string(v.asInt64()); })},
            {r.as_double, Outcome([&] { return Number(v.asDouble()); })},
            {r.as_bool, Outcome([&] { return std::string(v.asBool() ? "true" : "false"); })},
            {r.as_string, as_string},
        };
        for (size_t c = 0; c < cells.size(); ++c) {
            if (cells[c].first != nullptr) {
                EXPECT_EQ(cells[c].second, cells[c].first) << "column " << c;
            }
        }
    }
}

TEST(JsonPredicates, Table) {
    const JsonType kTypes[] = {JsonType::Null,   JsonType::Bool,   JsonType::Int,  JsonType::Double,
                               JsonType::String, JsonType::Object, JsonType::Array};
    // Source, its type, then: isConvertibleTo for each type in kTypes order; isDouble, isInt,
    // isString, isBool; size and empty.
    const struct {
        JsonValue value;
        JsonType type;
        const char* predicates;
    } rows[] = {
        {JsonValue(), JsonType::Null, "1111111 0000 01"},
        {JsonValue(false), JsonType::Bool, "1111100 0001 00"},
        {JsonValue(true), JsonType::Bool, "0111100 0001 00"},
        {JsonValue(0), JsonType::Int, "1111100 1100 00"},
        {JsonValue(5LL), JsonType::Int, "0111100 1100 00"},
        {JsonValue(0.0), JsonType::Double, "1111100 1100 00"},
        {JsonValue(2.5), JsonType::Double, "0111100 1100 00"},
        {JsonValue(kTwo63), JsonType::Double, "0111100 1100 00"},
        {JsonValue(-kTwo63), JsonType::Double, "0111100 1100 00"},
        {JsonValue(1e19), JsonType::Double, "0101100 1000 00"},
        {JsonValue(std::nan("")), JsonType::Double, "0101100 1000 00"},
        {JsonValue(""), JsonType::String, "0000100 0010 00"},
        {JsonValue("s"), JsonType::String, "0000100 0010 00"},
        {JsonValue(JsonType::Object), JsonType::Object, "1000010 0000 01"},
        {Parse("{\"a\":1,\"b\":2}"), JsonType::Object, "0000010 0000 20"},
        {JsonValue(JsonType::Array), JsonType::Array, "1000001 0000 01"},
        {Parse("[null]"), JsonType::Array, "0000001 0000 10"},
        {JsonValue(static_cast<JsonType>(7)), JsonType::Null, "1111111 0000 01"},
    };
    for (const auto& r : rows) {
        const JsonValue& v = r.value;
        EXPECT_EQ(v.type(), r.type);
        std::string got;
        for (JsonType t : kTypes) {
            got += v.isConvertibleTo(t) ? '1' : '0';
        }
        EXPECT_FALSE(v.isConvertibleTo(static_cast<JsonType>(7)));
        got += ' ';
        for (bool b : {v.isDouble(), v.isInt(), v.isString(), v.isBool()}) {
            got += b ? '1' : '0';
        }
        got += " " + std::to_string(v.size()) + (v.empty() ? "1" : "0");
        EXPECT_EQ(got, r.predicates) << v.toString(false);
    }
    // An Int outside int32 goes through asInt() and throws; kept deliberately.
    EXPECT_EQ(Outcome([] {
                  return std::to_string(JsonValue(2147483648LL).isConvertibleTo(JsonType::Null));
              }),
              kI32);
    // JsonType constructors give the zero of each kind.
    EXPECT_EQ(JsonValue(JsonType::Int).toString(false), "0");
    EXPECT_EQ(JsonValue(JsonType::Bool).toString(false), "false");
    EXPECT_EQ(JsonValue(JsonType::String).toString(false), "\"\"");
    EXPECT_EQ(JsonValue(JsonType::Double).toString(false), "0.0");
}

TEST(JsonAccess, ConstAndNonConstAccess) {
    const JsonValue doc = Parse("{\"a\":1}");
    const JsonValue null;
    const JsonValue array = Parse("[1]");
    EXPECT_EQ(&doc["missing"], &JsonValue::Null());
    EXPECT_EQ(&null["x"], &JsonValue::Null());
    EXPECT_EQ(&null[0], &JsonValue::Null());
    EXPECT_EQ(&array[1], &JsonValue::Null());
    EXPECT_EQ(array[0].asInt(), 1);
    EXPECT_EQ(doc.toString(false), "{\"a\":1}");

    JsonValue object = Parse("{\"a\":1}");
    EXPECT_TRUE(object["b"].isNull());
    EXPECT_EQ(object.toString(false), "{\"a\":1,\"b\":null}");
    JsonValue list(JsonType::Array);
    EXPECT_TRUE(list[2].isNull());
    EXPECT_EQ(list.toString(false), "[null,null,null]");
    JsonValue vivified;
    vivified[1] = 7;
    EXPECT_EQ(vivified.toString(false), "[null,7]");
    JsonValue members;
    members["z"] = 1;
    members["a"] = 2;
    EXPECT_EQ(&members["z"], &members["z"]);
    EXPECT_EQ(members.getMemberNames(), (std::vector<std::string>{"z", "a"}));
    EXPECT_TRUE(members.isMember("a"));
    EXPECT_TRUE(members.isMember(std::string("z")));
    EXPECT_FALSE(members.isMember("q"));

    // A null value answers queries quietly.
    JsonValue quiet;
    EXPECT_FALSE(quiet.isMember("a"));
    EXPECT_TRUE(quiet.getMemberNames().empty());
    quiet.removeMember("a");
    EXPECT_TRUE(quiet.isNull());
    EXPECT_EQ(quiet.get("a", JsonValue(3)).asInt(), 3);
    EXPECT_EQ(quiet.get(2, JsonValue("d")).asString(), "d");
    quiet.resize(0);
    EXPECT_EQ(quiet.type(), JsonType::Array);
}

TEST(JsonAccess, WrongKindThrowsInvalidTypeAndLeavesTheValue) {
    for (JsonValue v : {Parse("{\"a\":1}"), Parse("[1]"), JsonValue("s"), JsonValue(1),
                        JsonValue(1.5), JsonValue(false)}) {
        const std::string before = v.toString(false);
        const JsonValue& c = v;
        const bool object = v.type() == JsonType::Object, array = v.type() == JsonType::Array;
        const JsonValue one(1);
        const std::vector<std::pair<bool, std::function<void()>>> calls = {
            {object, [&] { v["a"]; }},
            {object, [&] { c["a"]; }},
            {object, [&] { v.get("a", one); }},
            {object, [&] { v.isMember("a"); }},
            {object, [&] { v.isMember(std::string("a")); }},
            {object, [&] { v.removeMember("zz"); }},
            {object, [&] { v.getMemberNames(); }},
            {array, [&] { v[0]; }},
            {array, [&] { c[0]; }},
            {array, [&] { v.get(0, one); }},
            {array, [&] { v.append(one); }},
            {array, [&] { v.append(JsonValue(2)); }},
            {array, [&] { v.resize(1); }},
        };
        for (size_t i = 0; i < calls.size(); ++i) {
            std::string outcome = "fine";
            try {
                calls[i].second();
            } catch (const JsonException& e) {
                outcome = e.what();
            }
            EXPECT_EQ(outcome, calls[i].first ? "fine" : kInvalid) << before << " call " << i;
        }
        if (!object && !array) {
            EXPECT_EQ(v.toString(false), before);
        }
    }
}

TEST(JsonAccess, GetCopiesAppendResizeRemove) {
    JsonValue doc = Parse("{\"a\":{\"x\":1},\"b\":[10,20]}");
    JsonValue a = doc.get("a", JsonValue());
    a["x"] = 2;
    EXPECT_EQ(doc["a"]["x"].asInt(), 1);
    EXPECT_EQ(doc.get(std::string("b"), JsonValue()).toString(false), "[10,20]");
    EXPECT_EQ(doc["b"].get(1, JsonValue()).asInt(), 20);
    EXPECT_EQ(doc["b"].get(2, JsonValue(-1)).asInt(), -1);
    JsonValue fallback(JsonType::Object);
    doc.get("missing", fallback)["y"] = 1;
    EXPECT_TRUE(fallback.empty());

    JsonValue list;
    list.append(JsonValue(1));
    const JsonValue two("two");
    list.append(two);
    EXPECT_EQ(two.asString(), "two");
    list.resize(4);
    EXPECT_EQ(list.toString(false), "[1,\"two\",null,null]");
    list.resize(1);
    EXPECT_EQ(list.toString(false), "[1]");
    doc.removeMember("a");
    EXPECT_EQ(doc.toString(false), "{\"b\":[10,20]}");
}

TEST(JsonSharedTree, WritesThroughChildrenCopiesAndMoves) {
    JsonValue root = Parse("{\"engine\":{\"ANA\":\"1\"},\"list\":[1]}");
    JsonValue& ana = root["engine"]["ANA"];
    ana = "512";
    root["list"][0] = JsonValue(JsonType::Object);
    root["list"][0]["deep"] = true;
    root["engine"]["new"] = 1.5;
    root["report"] = Parse("{\"x\":[1]}");
    JsonValue block;
    block["start"] = 10u;
    root["report"]["x"].append(std::move(block));
    EXPECT_EQ(root.toString(false),
              "{\"engine\":{\"ANA\":\"512\",\"new\":1.5},\"list\":[{\"deep\":true}],"
              "\"report\":{\"x\":[1,{\"start\":10}]}}");
    // A child changes kind in place, repeatedly.
    JsonValue& slot = root["slot"];
    slot = 1;
    slot = "text";
    slot = JsonValue(JsonType::Array);
    slot.append(JsonValue(2));
    slot = JsonValue();
    EXPECT_EQ(root["slot"].toString(false), "null");

    // Copies are deep.
    JsonValue source = Parse("{\"a\":[1,{\"b\":2}]}");
    JsonValue copy(source);
    EXPECT_TRUE(copy == source);
    copy["a"][1]["b"] = 3;
    JsonValue assigned;
    assigned = source;
    source["a"][0] = 0;
    EXPECT_EQ(assigned.toString(false), "{\"a\":[1,{\"b\":2}]}");
    EXPECT_EQ(source.toString(false), "{\"a\":[0,{\"b\":2}]}");

    // Moves leave the source null and usable; the cache travels with the value.
    JsonValue& a = source["a"];
    JsonValue moved(std::move(source));
    EXPECT_TRUE(source.isNull());
    a = 2;
    EXPECT_EQ(moved.toString(false), "{\"a\":2}");
    source["again"] = 1;
    EXPECT_EQ(source.toString(false), "{\"again\":1}");
    JsonValue target(5);
    target = std::move(moved);
    EXPECT_TRUE(moved.isNull());
    target = std::move(target);
    EXPECT_EQ(target.toString(false), "{\"a\":2}");

    // Equality compares numbers by value and objects regardless of member order.
    EXPECT_TRUE(Parse("[4]") == Parse("[4.0]"));
    EXPECT_TRUE(Parse("{\"a\":1,\"b\":2}") == Parse("{\"b\":2,\"a\":1}"));
    EXPECT_FALSE(Parse("{\"a\":1}") == Parse("{\"a\":\"1\"}"));
    EXPECT_FALSE(Parse("[1,2]") == Parse("[2,1]"));
}

// A child handed out by reference must never outlive what it stands for: after a member is
// removed, an array shrinks or the value changes kind, access gives a child of the document
// as it is now. Each row caches children, changes the document, takes the freed nodes' memory
// with other values, then writes through fresh access and checks the whole document.
TEST(JsonSharedTree, NoStaleChildAfterTheDocumentChanges) {
    struct Row {
        const char* name;
        const char* start;
        std::function<void(JsonValue&)> change;  // caches children first where it matters
        std::function<void(JsonValue&)> write;
        const char* expected;
    };
    const Row rows[] = {
        {"removeMember", "{\"a\":1,\"b\":2}",
         [](JsonValue& d) {
             d["a"] = 10;
             d["b"];
             d.removeMember("a");
         },
         [](JsonValue& d) { d["a"] = 7; }, "{\"b\":2,\"a\":7}"},
        {"removeMember of a container", "{\"a\":{\"x\":1}}",
         [](JsonValue& d) {
             d["a"]["x"];
             d.removeMember("a");
         },
         [](JsonValue& d) { d["a"]["y"] = 3; }, "{\"a\":{\"y\":3}}"},
        {"resize trims", "[0,1,2,3]",
         [](JsonValue& d) {
             for (unsigned i = 0; i < 4; ++i) {
                 d[i];
             }
             d.resize(1);
         },
         [](JsonValue& d) {
             d[3] = 30;
             d[2] = 20;
         },
         "[0,null,20,30]"},
        {"resize keeps the children below the new length", "[0,1,2]",
         [](JsonValue& d) {
             d[0];
             d[2];
             d.resize(1);
             d[0] = 100;
         },
         [](JsonValue& d) { d[2] = "x"; }, "[100,null,\"x\"]"},
        {"object assigned a scalar", "{\"a\":1}",
         [](JsonValue& d) {
             d["a"];
             d = 5;
         },
         [](JsonValue&) {}, "5"},
        {"array assigned a string", "[1,2]",
         [](JsonValue& d) {
             d[1];
             d = "s";
         },
         [](JsonValue&) {}, "\"s\""},
        {"object copied over by an array", "{\"a\":1}",
         [](JsonValue& d) {
             d["a"];
             const JsonValue array = Parse("[5]");
             d = array;
         },
         [](JsonValue& d) { d[0] = 6; }, "[6]"},
        {"array copied over by null, then an object", "[1,2]",
         [](JsonValue& d) {
             d[0];
             d[1];
             const JsonValue null;
             d = null;
         },
         [](JsonValue& d) { d["k"] = 1; }, "{\"k\":1}"},
        {"moved from an uncached descendant", "{\"a\":{\"b\":[1,2]}}",
         [](JsonValue& d) { d = std::move(d["a"]); }, [](JsonValue& d) { d["b"][0] = 5; },
         "{\"b\":[5,2]}"},
        {"moved from a cached descendant", "{\"a\":{\"b\":[1,2]},\"c\":0}",
         [](JsonValue& d) {
             d = d["a"];
             d["b"][1];
             d = std::move(d["b"]);
         },
         [](JsonValue& d) { d[0] = 5; }, "[5,2]"},
    };
    for (const Row& r : rows) {
        SCOPED_TRACE(r.name);
        JsonValue doc = Parse(r.start);
        r.change(doc);
        // Values made now take the memory of whatever the change freed.
        std::vector<JsonValue> holders;
        for (int i = 0; i < 16; ++i) {
            holders.emplace_back(-1);
        }
        r.write(doc);
        EXPECT_EQ(doc.toString(false), r.expected);
        for (const JsonValue& h : holders) {
            EXPECT_EQ(h.toString(false), "-1");
        }
    }
}

TEST(JsonSharedHandle, SetAndAppendLeaveTheSourceAFreshNull) {
    using common::json::SharedJson;
    SharedJson target(1LL), source(2.5);
    target.set(std::move(source));
    EXPECT_EQ(target.get_double(), 2.5);
    EXPECT_EQ(source.type(), JsonType::Null);
    source.set(SharedJson(true));  // still a usable handle
    SharedJson array = SharedJson::Create("[]");
    array.append(std::move(source));
    EXPECT_EQ(source.type(), JsonType::Null);
    EXPECT_EQ(array.to_string(false), "[true]");
}

class JsonParse : public testsupport::SimTest {};

TEST_F(JsonParse, MalformedOrEmptyTextGivesNull) {
    EXPECT_TRUE(JsonValue::Create("{bad").isNull());
    EXPECT_TRUE(JsonValue::Create("[1,]").isNull());
    // json-glib 1.6 accepts empty and blank text as a document without a root: no message.
    EXPECT_TRUE(JsonValue::Create("").isNull());
    EXPECT_TRUE(JsonValue::Create(" \n\t").isNull());
    EXPECT_TRUE(common::json::SharedJson::Create(static_cast<const char*>(nullptr)).type() ==
                JsonType::Null);
    EXPECT_EQ(Catalogue("WEXF_COMMON"),
              (std::vector<std::string>{"E failed to parse: {bad", "E failed to parse: [1,]",
                                        "E failed to parse: (null)"}));
}

TEST(JsonSerialise, TextForms) {
    JsonValue daily;
    JsonValue block;
    block["start"] = 4294967295u;
    block["end"] = 0u;
    block["deltaEnergy"] = 0.25;
    block["power"] = 0;
    daily["dailyPowerConsumption"].append(block);
    EXPECT_EQ(daily.toString(false),
              "{\"dailyPowerConsumption\":[{\"start\":4294967295,\"end\":0,"
              "\"deltaEnergy\":0.25,\"power\":0}]}");
    const struct {
        JsonValue value;
        const char* text;
    } rows[] = {
        {JsonValue("tab\there\\ \"q\" \x1f"), "\"tab\\there\\\\ \\\"q\\\" \\u001f\""},
        {Parse("{\"a\\\"b\\\\c\\u001f\":\"\\u001f\"}"), "{\"a\\\"b\\\\c\\u001f\":\"\\u001f\"}"},
        // A double whose shortest text has an exponent but no point keeps it a double.
        {JsonValue(1e-300), "1.0e-300"},
        {JsonValue(1e21), "1.0e+21"},
        {JsonValue(100.0), "100.0"},
        // Bytes that are not UTF-8 become U+FFFD, each of them.
        {JsonValue(std::string("a\xff\xc3(b")), "\"a\xEF\xBF\xBD\xEF\xBF\xBD(b\""},
        {Parse("[\"\\udcfaa\"]"), "[\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"]"},
        {JsonValue(std::nan("")), "null"},
        {JsonValue(-INFINITY), "null"},
        {Parse("[true,false,null,{},[]]"), "[true,false,null,{},[]]"},
    };
    for (const auto& r : rows) {
        EXPECT_EQ(r.value.toString(false), r.text);
    }
    EXPECT_EQ(Parse("[1.0e+21]")[0].type(), JsonType::Double);
}
