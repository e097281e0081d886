// Behaviour of the JSON value layer: conversions and their bounds, predicates, access rules,
// shared-tree semantics, parsing and serialisation.
#include <json-glib/json-glib.h>

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "SharedJson.h"
#include "TestSupport.h"

using common::json::JsonException;
using common::json::JsonType;
using common::json::JsonValue;
using common::json::SharedJson;

namespace {

// Runs `expr` and checks that it throws JsonException with exactly `text`.
#define EXPECT_JSON_THROW(expr, text)                                        \
    do {                                                                     \
        try {                                                                \
            (void)(expr);                                                    \
            ADD_FAILURE() << #expr << " did not throw \"" << (text) << "\""; \
        } catch (const JsonException& e) {                                   \
            EXPECT_STREQ(e.what(), text) << #expr;                           \
        }                                                                    \
    } while (0)

JsonValue Parse(const char* text) {
    return JsonValue::Create(text);
}

const char* const kInvalid = "invalid type";

}  // namespace

// ---- Conversion table: one test per source row, every column ----

TEST(JsonConversion, NullRow) {
    const JsonValue v;
    EXPECT_EQ(v.asInt(), 0);
    EXPECT_EQ(v.asUInt(), 0u);
    EXPECT_EQ(v.asInt64(), 0);
    EXPECT_EQ(v.asDouble(), 0.0);
    EXPECT_FALSE(v.asBool());
    EXPECT_EQ(v.asString(), "");
}

TEST(JsonConversion, BoolRow) {
    const JsonValue t(true), f(false);
    EXPECT_EQ(t.asInt(), 1);
    EXPECT_EQ(f.asInt(), 0);
    EXPECT_EQ(t.asUInt(), 1u);
    EXPECT_EQ(t.asInt64(), 1);
    EXPECT_EQ(t.asDouble(), 1.0);
    EXPECT_EQ(f.asDouble(), 0.0);
    EXPECT_TRUE(t.asBool());
    EXPECT_FALSE(f.asBool());
    EXPECT_EQ(t.asString(), "true");
    EXPECT_EQ(f.asString(), "false");
}

TEST(JsonConversion, IntRowWithInclusiveBounds) {
    EXPECT_EQ(JsonValue(2147483647LL).asInt(), 2147483647);
    EXPECT_EQ(JsonValue(-2147483648LL).asInt(), -2147483647 - 1);
    EXPECT_JSON_THROW(JsonValue(2147483648LL).asInt(), "int64_t value exceed int32_t range");
    EXPECT_JSON_THROW(JsonValue(-2147483649LL).asInt(), "int64_t value exceed int32_t range");

    EXPECT_EQ(JsonValue(0).asUInt(), 0u);
    EXPECT_EQ(JsonValue(4294967295LL).asUInt(), 4294967295u);
    EXPECT_JSON_THROW(JsonValue(4294967296LL).asUInt(), "int64_t value exceed uint32_t range");
    EXPECT_JSON_THROW(JsonValue(-1).asUInt(), "int64_t value exceed uint32_t range");

    EXPECT_EQ(JsonValue(std::numeric_limits<long long>::min()).asInt64(),
              std::numeric_limits<int64_t>::min());
    EXPECT_EQ(JsonValue(-7).asDouble(), -7.0);
    EXPECT_FALSE(JsonValue(0).asBool());
    EXPECT_TRUE(JsonValue(-1).asBool());
    EXPECT_EQ(JsonValue(-3).asString(), "-3");
    EXPECT_EQ(JsonValue(std::numeric_limits<long long>::min()).asString(), "-9223372036854775808");
}

TEST(JsonConversion, IntConstructorsExtendBySign) {
    EXPECT_EQ(JsonValue(-1).asInt64(), -1);
    EXPECT_EQ(JsonValue(4294967295u).asInt64(), 4294967295LL);
    EXPECT_EQ(JsonValue(4294967295u).type(), JsonType::Int);
}

TEST(JsonConversion, DoubleToInt32TruncatesWithinInclusiveBounds) {
    EXPECT_EQ(JsonValue(2147483647.9).asInt(), 2147483647);
    EXPECT_EQ(JsonValue(-2147483648.0).asInt(), -2147483647 - 1);
    EXPECT_EQ(JsonValue(-1.9).asInt(), -1);
    EXPECT_JSON_THROW(JsonValue(2147483648.0).asInt(), "double value exceed int32_t range");
    // The bounds hold for the truncated value.
    EXPECT_EQ(JsonValue(-2147483648.9).asInt(), -2147483647 - 1);
    EXPECT_JSON_THROW(JsonValue(-2147483649.0).asInt(), "double value exceed int32_t range");
    EXPECT_JSON_THROW(JsonValue(std::nan("")).asInt(), "double value exceed int32_t range");
}

TEST(JsonConversion, DoubleToUInt32FailsWithTheInt32Text) {
    EXPECT_EQ(JsonValue(4294967295.0).asUInt(), 4294967295u);
    EXPECT_EQ(JsonValue(0.0).asUInt(), 0u);
    EXPECT_EQ(JsonValue(-0.0).asUInt(), 0u);
    EXPECT_EQ(JsonValue(7.9).asUInt(), 7u);
    // The uint32 failure of a double says int32: the established text.
    EXPECT_JSON_THROW(JsonValue(-0.5).asUInt(), "double value exceed int32_t range");
    EXPECT_EQ(JsonValue(4294967295.5).asUInt(), 4294967295u);
    EXPECT_JSON_THROW(JsonValue(4294967296.0).asUInt(), "double value exceed int32_t range");
    EXPECT_JSON_THROW(JsonValue(-INFINITY).asUInt(), "double value exceed int32_t range");
}

TEST(JsonConversion, DoubleToInt64AcceptsTwoToThe63) {
    const double two63 = 9223372036854775808.0;
    EXPECT_EQ(JsonValue(-two63).asInt64(), std::numeric_limits<int64_t>::min());
    EXPECT_EQ(JsonValue(two63).asInt64(), std::numeric_limits<int64_t>::max());
    EXPECT_EQ(JsonValue(-2.5).asInt64(), -2);
    EXPECT_JSON_THROW(JsonValue(std::nextafter(two63, INFINITY)).asInt64(),
                      "double value exceed int64_t range");
    EXPECT_JSON_THROW(JsonValue(std::nextafter(-two63, -INFINITY)).asInt64(),
                      "double value exceed int64_t range");
}

TEST(JsonConversion, DoubleToBoolAndString) {
    EXPECT_FALSE(JsonValue(0.0).asBool());
    EXPECT_FALSE(JsonValue(-0.0).asBool());
    EXPECT_FALSE(JsonValue(std::nan("")).asBool());
    EXPECT_TRUE(JsonValue(1e-310).asBool());
    EXPECT_TRUE(JsonValue(-INFINITY).asBool());
    EXPECT_EQ(JsonValue(1.5).asDouble(), 1.5);
    EXPECT_EQ(JsonValue(1.5).asString(), "1.500000");
    EXPECT_EQ(JsonValue(-0.0000004).asString(), "-0.000000");
    EXPECT_EQ(JsonValue(1e300).asString(), std::to_string(1e300));
}

TEST(JsonConversion, StringRow) {
    const JsonValue v("42");
    EXPECT_JSON_THROW(v.asInt(), "cannot convert to int32_t type");
    EXPECT_JSON_THROW(v.asUInt(), "cannot convert to uint32_t type");
    EXPECT_JSON_THROW(v.asInt64(), "cannot convert to int64_t type");
    EXPECT_JSON_THROW(v.asDouble(), "cannot convert to double type");
    EXPECT_JSON_THROW(v.asBool(), "cannot convert to bool type");
    EXPECT_EQ(v.asString(), "42");
    EXPECT_EQ(JsonValue(std::string("a\"b")).asString(), "a\"b");
}

TEST(JsonConversion, ContainerRows) {
    for (const JsonValue& v : {JsonValue(JsonType::Object), JsonValue(JsonType::Array)}) {
        EXPECT_JSON_THROW(v.asInt(), "cannot convert to int32_t type");
        EXPECT_JSON_THROW(v.asUInt(), "cannot convert to uint32_t type");
        EXPECT_JSON_THROW(v.asInt64(), "cannot convert to int64_t type");
        EXPECT_JSON_THROW(v.asDouble(), "cannot convert to double type");
        EXPECT_JSON_THROW(v.asBool(), "cannot convert to bool type");
        EXPECT_JSON_THROW(v.asString(), "cannot convert to string type");
    }
}

// ---- Predicates ----

TEST(JsonPredicates, IsDoubleAndIsInt) {
    EXPECT_TRUE(JsonValue(7).isDouble());
    EXPECT_TRUE(JsonValue(2.5).isDouble());
    EXPECT_FALSE(JsonValue("7").isDouble());
    EXPECT_TRUE(JsonValue(7).isInt());
    EXPECT_TRUE(JsonValue(2.5).isInt());  // a fraction does not matter
    EXPECT_TRUE(JsonValue(9223372036854775808.0).isInt());
    EXPECT_TRUE(JsonValue(-9223372036854775808.0).isInt());
    EXPECT_FALSE(JsonValue(std::nextafter(9223372036854775808.0, INFINITY)).isInt());
    EXPECT_FALSE(JsonValue(std::nan("")).isInt());
    EXPECT_FALSE(JsonValue(true).isInt());
    EXPECT_FALSE(JsonValue().isInt());
}

TEST(JsonPredicates, TypeOfEachConstructor) {
    EXPECT_EQ(JsonValue().type(), JsonType::Null);
    EXPECT_EQ(JsonValue(true).type(), JsonType::Bool);
    EXPECT_EQ(JsonValue(3).type(), JsonType::Int);
    EXPECT_EQ(JsonValue(3LL).type(), JsonType::Int);
    EXPECT_EQ(JsonValue(3.0).type(), JsonType::Double);
    EXPECT_EQ(JsonValue("x").type(), JsonType::String);
    EXPECT_EQ(JsonValue(JsonType::Object).type(), JsonType::Object);
    EXPECT_EQ(JsonValue(JsonType::Array).type(), JsonType::Array);
    EXPECT_EQ(JsonValue(static_cast<JsonType>(7)).type(), JsonType::Null);
    // JsonType constructors give the zero of each kind.
    EXPECT_EQ(JsonValue(JsonType::Int).toString(false), "0");
    EXPECT_EQ(JsonValue(JsonType::Bool).toString(false), "false");
    EXPECT_EQ(JsonValue(JsonType::String).toString(false), "\"\"");
    EXPECT_EQ(JsonValue(JsonType::Double).asDouble(), 0.0);
}

TEST(JsonPredicates, IsConvertibleToNull) {
    EXPECT_TRUE(JsonValue().isConvertibleTo(JsonType::Null));
    EXPECT_TRUE(JsonValue(false).isConvertibleTo(JsonType::Null));
    EXPECT_FALSE(JsonValue(true).isConvertibleTo(JsonType::Null));
    EXPECT_TRUE(JsonValue(0).isConvertibleTo(JsonType::Null));
    EXPECT_FALSE(JsonValue(1).isConvertibleTo(JsonType::Null));
    EXPECT_TRUE(JsonValue(0.0).isConvertibleTo(JsonType::Null));
    EXPECT_FALSE(JsonValue(0.5).isConvertibleTo(JsonType::Null));
    EXPECT_FALSE(JsonValue("").isConvertibleTo(JsonType::Null));
    EXPECT_TRUE(JsonValue(JsonType::Array).isConvertibleTo(JsonType::Null));
    EXPECT_FALSE(Parse("{\"a\":1}").isConvertibleTo(JsonType::Null));
    // An Int outside int32 goes through asInt() and throws; kept deliberately.
    EXPECT_JSON_THROW(JsonValue(2147483648LL).isConvertibleTo(JsonType::Null),
                      "int64_t value exceed int32_t range");
}

TEST(JsonPredicates, IsConvertibleToOtherTargets) {
    const std::vector<JsonValue> sources = {JsonValue(),
                                            JsonValue(true),
                                            JsonValue(5),
                                            JsonValue(2.5),
                                            JsonValue("s"),
                                            JsonValue(JsonType::Object),
                                            JsonValue(JsonType::Array)};
    // Rows: source in the order above; columns: Bool, Int, Double, String, Object, Array.
    const bool expected[7][6] = {
        {true, true, true, true, true, true},      {true, true, true, true, false, false},
        {true, true, true, true, false, false},    {true, true, true, true, false, false},
        {false, false, false, true, false, false}, {false, false, false, false, true, false},
        {false, false, false, false, false, true}};
    const JsonType targets[6] = {JsonType::Bool,   JsonType::Int,    JsonType::Double,
                                 JsonType::String, JsonType::Object, JsonType::Array};
    for (size_t s = 0; s < sources.size(); ++s) {
        for (size_t t = 0; t < 6; ++t) {
            EXPECT_EQ(sources[s].isConvertibleTo(targets[t]), expected[s][t])
                << "source " << s << " target " << static_cast<int>(targets[t]);
        }
        EXPECT_FALSE(sources[s].isConvertibleTo(static_cast<JsonType>(7)));
    }
    EXPECT_FALSE(JsonValue(1e19).isConvertibleTo(JsonType::Int));
    EXPECT_TRUE(JsonValue(9223372036854775808.0).isConvertibleTo(JsonType::Int));
}

TEST(JsonPredicates, SizeAndEmpty) {
    EXPECT_TRUE(JsonValue().empty());
    EXPECT_FALSE(JsonValue("").empty());  // scalars are never empty
    EXPECT_FALSE(JsonValue(0).empty());
    EXPECT_EQ(JsonValue("abc").size(), 0u);
    EXPECT_TRUE(JsonValue(JsonType::Object).empty());
    EXPECT_EQ(Parse("[1,2,3]").size(), 3u);
    EXPECT_EQ(Parse("{\"a\":1,\"b\":2}").size(), 2u);
    EXPECT_FALSE(Parse("[null]").empty());
}

// ---- Access ----

TEST(JsonAccess, ConstAccessReturnsSharedNullAndLeavesDocument) {
    const JsonValue doc = Parse("{\"a\":1}");
    EXPECT_EQ(&doc["missing"], &JsonValue::Null());
    const JsonValue null;
    EXPECT_EQ(&null["x"], &JsonValue::Null());
    EXPECT_EQ(&null[0], &JsonValue::Null());
    const JsonValue array = Parse("[1]");
    EXPECT_EQ(&array[1], &JsonValue::Null());
    EXPECT_EQ(array[0].asInt(), 1);
    EXPECT_EQ(doc.toString(false), "{\"a\":1}");
    EXPECT_TRUE(JsonValue::Null().isNull());
}

TEST(JsonAccess, NonConstAccessCreatesWhatIsMissing) {
    JsonValue doc = Parse("{\"a\":1}");
    EXPECT_TRUE(doc["b"].isNull());
    EXPECT_EQ(doc.toString(false), "{\"a\":1,\"b\":null}");

    JsonValue array(JsonType::Array);
    EXPECT_TRUE(array[5].isNull());
    EXPECT_EQ(array.toString(false), "[null,null,null,null,null,null]");

    JsonValue null;
    null[1] = 7;
    EXPECT_EQ(null.toString(false), "[null,7]");
    JsonValue null2;
    null2["k"] = "v";
    EXPECT_EQ(null2.type(), JsonType::Object);
    // The same child comes back by reference.
    EXPECT_EQ(&null2["k"], &null2["k"]);
}

TEST(JsonAccess, WrongKindThrowsInvalidTypeAndLeavesValue) {
    JsonValue object = Parse("{\"a\":1}");
    JsonValue array = Parse("[1]");
    const JsonValue& cobject = object;
    const JsonValue& carray = array;
    EXPECT_JSON_THROW(object[0], kInvalid);
    EXPECT_JSON_THROW(cobject[0], kInvalid);
    EXPECT_JSON_THROW(object.get(0, JsonValue()), kInvalid);
    EXPECT_JSON_THROW(object.append(JsonValue(1)), kInvalid);
    EXPECT_JSON_THROW(object.resize(1), kInvalid);
    EXPECT_JSON_THROW(array["a"], kInvalid);
    EXPECT_JSON_THROW(carray["a"], kInvalid);
    EXPECT_JSON_THROW(array.get("a", JsonValue()), kInvalid);
    EXPECT_JSON_THROW(array.isMember("a"), kInvalid);
    EXPECT_JSON_THROW(array.removeMember("a"), kInvalid);
    EXPECT_JSON_THROW(array.getMemberNames(), kInvalid);
    EXPECT_EQ(object.toString(false), "{\"a\":1}");
    EXPECT_EQ(array.toString(false), "[1]");

    for (JsonValue scalar : {JsonValue("s"), JsonValue(1), JsonValue(1.5), JsonValue(false)}) {
        const std::string before = scalar.toString(false);
        const JsonValue& cscalar = scalar;
        const JsonValue one(1);
        EXPECT_JSON_THROW(scalar["a"], kInvalid);
        EXPECT_JSON_THROW(cscalar["a"], kInvalid);
        EXPECT_JSON_THROW(scalar[0], kInvalid);
        EXPECT_JSON_THROW(cscalar[0], kInvalid);
        EXPECT_JSON_THROW(scalar.get("a", one), kInvalid);
        EXPECT_JSON_THROW(scalar.get(0, one), kInvalid);
        EXPECT_JSON_THROW(scalar.isMember("a"), kInvalid);
        EXPECT_JSON_THROW(scalar.isMember(std::string("a")), kInvalid);
        EXPECT_JSON_THROW(scalar.append(one), kInvalid);
        EXPECT_JSON_THROW(scalar.append(JsonValue(2)), kInvalid);
        EXPECT_JSON_THROW(scalar.resize(2), kInvalid);
        EXPECT_JSON_THROW(scalar.removeMember("a"), kInvalid);
        EXPECT_JSON_THROW(scalar.getMemberNames(), kInvalid);
        EXPECT_EQ(scalar.toString(false), before);
    }
}

TEST(JsonAccess, NullValueQueriesAreQuiet) {
    JsonValue null;
    EXPECT_FALSE(null.isMember("a"));
    EXPECT_TRUE(null.getMemberNames().empty());
    null.removeMember("a");
    EXPECT_TRUE(null.isNull());
    EXPECT_EQ(null.get("a", JsonValue(3)).asInt(), 3);
    EXPECT_EQ(null.get(2, JsonValue("d")).asString(), "d");
}

TEST(JsonAccess, GetReturnsDeepCopies) {
    JsonValue doc = Parse("{\"a\":{\"x\":1},\"b\":[10,20]}");
    JsonValue a = doc.get("a", JsonValue());
    a["x"] = 2;
    EXPECT_EQ(doc["a"]["x"].asInt(), 1);
    EXPECT_EQ(doc.get(std::string("b"), JsonValue()).toString(false), "[10,20]");
    EXPECT_EQ(doc["b"].get(1, JsonValue()).asInt(), 20);
    EXPECT_EQ(doc["b"].get(2, JsonValue(-1)).asInt(), -1);
    JsonValue fallback(JsonType::Object);
    JsonValue got = doc.get("missing", fallback);
    got["y"] = 1;
    EXPECT_TRUE(fallback.empty());
}

TEST(JsonAccess, MembersAppendResizeRemove) {
    JsonValue doc;
    doc["z"] = 1;
    doc["a"] = 2;
    doc["m"] = 3;
    EXPECT_EQ(doc.getMemberNames(), (std::vector<std::string>{"z", "a", "m"}));
    EXPECT_TRUE(doc.isMember("a"));
    EXPECT_TRUE(doc.isMember(std::string("m")));
    doc.removeMember("a");
    EXPECT_FALSE(doc.isMember("a"));
    EXPECT_TRUE(doc["a"].isNull());  // a new member, not the erased cached child

    JsonValue list;
    list.append(JsonValue(1));
    const JsonValue two("two");
    list.append(two);
    EXPECT_EQ(two.asString(), "two");  // the const form copies
    EXPECT_EQ(list.toString(false), "[1,\"two\"]");
    list.resize(4);
    EXPECT_EQ(list.toString(false), "[1,\"two\",null,null]");
    list.resize(1);
    EXPECT_EQ(list.toString(false), "[1]");
    JsonValue empty;
    empty.resize(0);
    EXPECT_EQ(empty.type(), JsonType::Array);
}

TEST(JsonAccess, ResizeDropsCachedChildrenAtAndAboveTheNewLength) {
    JsonValue list = Parse("[0,1,2,3]");
    JsonValue& first = list[0];
    for (unsigned i = 1; i < 4; ++i) {
        EXPECT_EQ(list[i].asInt(), static_cast<int>(i));
    }
    list.resize(2);
    first = 100;  // below the new length: still valid and still part of the document
    EXPECT_EQ(list.toString(false), "[100,1]");
    // Elements 2 and 3 are rebuilt on access: the new slots are null, not the old values.
    EXPECT_TRUE(list[3].isNull());
    EXPECT_TRUE(list[2].isNull());
    EXPECT_EQ(list.toString(false), "[100,1,null,null]");
}

// ---- Shared-tree semantics ----

TEST(JsonSharedTree, WritesThroughChildReferencesReachTheRoot) {
    JsonValue root = Parse("{\"engine\":{\"ANA\":\"1\"},\"list\":[1]}");
    JsonValue& ana = root["engine"]["ANA"];
    ana = "512";
    root["list"][0] = JsonValue(JsonType::Object);
    root["list"][0]["deep"] = true;
    root["engine"]["new"] = 1.5;
    EXPECT_EQ(root.toString(false),
              "{\"engine\":{\"ANA\":\"512\",\"new\":1.5},\"list\":[{\"deep\":true}]}");
    // A child changes kind in place, repeatedly.
    JsonValue& slot = root["slot"];
    slot = 1;
    slot = "text";
    slot = JsonValue(JsonType::Array);
    slot.append(JsonValue(2));
    slot = JsonValue();
    EXPECT_EQ(root["slot"].toString(false), "null");
}

TEST(JsonSharedTree, CopiesAreDeep) {
    JsonValue source = Parse("{\"a\":[1,{\"b\":2}]}");
    JsonValue copy(source);
    EXPECT_TRUE(copy == source);
    copy["a"][1]["b"] = 3;
    EXPECT_EQ(source.toString(false), "{\"a\":[1,{\"b\":2}]}");
    JsonValue assigned;
    assigned = source;
    source["a"] = 0;
    EXPECT_EQ(assigned.toString(false), "{\"a\":[1,{\"b\":2}]}");
}

TEST(JsonSharedTree, MovesLeaveTheSourceNull) {
    JsonValue source = Parse("{\"a\":1}");
    JsonValue& a = source["a"];
    JsonValue moved(std::move(source));
    EXPECT_TRUE(source.isNull());
    a = 2;  // the cache travelled with the value
    EXPECT_EQ(moved.toString(false), "{\"a\":2}");
    source["again"] = 1;  // a moved-from value is usable
    EXPECT_EQ(source.toString(false), "{\"again\":1}");

    JsonValue target(5);
    target = std::move(moved);
    EXPECT_TRUE(moved.isNull());
    EXPECT_EQ(target.toString(false), "{\"a\":2}");
    target = std::move(target);
    EXPECT_EQ(target.toString(false), "{\"a\":2}");
}

TEST(JsonSharedTree, AssigningIntoAChildChangesTheParent) {
    JsonValue root;
    root["report"] = Parse("{\"x\":[1,2]}");
    JsonValue block;
    block["start"] = 10u;
    root["report"]["x"].append(std::move(block));
    EXPECT_EQ(root.toString(false), "{\"report\":{\"x\":[1,2,{\"start\":10}]}}");
}

TEST(JsonSharedTree, AssigningFromOwnDescendant) {
    JsonValue root = Parse("{\"a\":{\"b\":[1,2]},\"c\":0}");
    root = root["a"];
    EXPECT_EQ(root.toString(false), "{\"b\":[1,2]}");
    JsonValue& b = root["b"];
    EXPECT_EQ(b[1].asInt(), 2);
    root = std::move(root["b"]);
    EXPECT_EQ(root.toString(false), "[1,2]");
    root[0] = 5;
    EXPECT_EQ(root.toString(false), "[5,2]");
}

TEST(JsonSharedTree, EqualityComparesNumbersByValue) {
    EXPECT_TRUE(Parse("[4]") == Parse("[4.0]"));
    EXPECT_TRUE(Parse("{\"a\":1,\"b\":2}") == Parse("{\"b\":2,\"a\":1}"));
    EXPECT_FALSE(Parse("{\"a\":1}") == Parse("{\"a\":\"1\"}"));
    EXPECT_FALSE(Parse("[1,2]") == Parse("[2,1]"));
}

// ---- Parsing and serialisation ----

class JsonParse : public testsupport::SimTest {};

TEST_F(JsonParse, MalformedTextLogsAndGivesNull) {
    const JsonValue v = JsonValue::Create("{bad");
    EXPECT_TRUE(v.isNull());
    EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, "WEXF_COMMON", "failed to parse: {bad", mark_));
    EXPECT_TRUE(JsonValue::Create("[1,]").isNull());
    EXPECT_TRUE(tvsim::Logged(DLOG_ERROR, "WEXF_COMMON", "failed to parse: [1,]", mark_));
    EXPECT_TRUE(SharedJson::Create(static_cast<const char*>(nullptr)).type() == JsonType::Null);
}

TEST_F(JsonParse, DocumentsWithoutRootAreNull) {
    // json-glib 1.6 accepts empty and blank text as a document without a root.
    EXPECT_TRUE(JsonValue::Create("").isNull());
    EXPECT_TRUE(JsonValue::Create(" \n\t").isNull());
}

TEST_F(JsonParse, ReadsThePictureEnginePayload) {
    const JsonValue v = JsonValue::Create(
        "{\"ANA\":\"512\",\"DutySum\":\"300\",\"RESOLUTION\":\"2160\",\"HDR\":1}");
    ASSERT_EQ(v.type(), JsonType::Object);
    EXPECT_TRUE(v.isMember("ANA"));
    EXPECT_FALSE(v.isMember("TEMP"));
    EXPECT_EQ(v["DutySum"].asString(), "300");
    EXPECT_EQ(v["HDR"].asString(), "1");
    EXPECT_EQ(mark_, tvsim::LogMark());  // nothing logged
}

TEST(JsonSerialise, CompactInInsertionOrder) {
    JsonValue report;
    report["cumulativePower"] = JsonValue(0.0).asString();
    report["cumulativeUnit"] = "Wh";
    report["cumulativeDateUTC"] = "0";
    EXPECT_EQ(report.toString(false),
              "{\"cumulativePower\":\"0.000000\",\"cumulativeUnit\":\"Wh\","
              "\"cumulativeDateUTC\":\"0\"}");

    JsonValue daily;
    JsonValue block;
    block["start"] = 4294967295u;
    block["end"] = 0u;
    block["deltaEnergy"] = 0.25;
    block["power"] = 0;
    block["energySaved"] = 0;
    daily["dailyPowerConsumption"].append(block);
    EXPECT_EQ(daily.toString(false),
              "{\"dailyPowerConsumption\":[{\"start\":4294967295,\"end\":0,"
              "\"deltaEnergy\":0.25,\"power\":0,\"energySaved\":0}]}");
    EXPECT_NE(daily.toString(true).find('\n'), std::string::npos);
    EXPECT_EQ(JsonValue("tab\there").toString(false), "\"tab\\there\"");
}

TEST(JsonSerialise, StaysJsonWhereJsonGlibWouldNot) {
    // U+001F is escaped in member names and strings alike.
    const JsonValue names = Parse("{\"a\\\"b\\\\c\\u001f\":\"\\u001f\"}");
    EXPECT_EQ(names.toString(false), "{\"a\\\"b\\\\c\\u001f\":\"\\u001f\"}");
    EXPECT_TRUE(Parse(names.toString(false).c_str()) == names);
    EXPECT_TRUE(Parse(names.toString(true).c_str()) == names);
    // A double whose shortest text has an exponent but no point keeps it a double.
    EXPECT_EQ(JsonValue(1e-300).toString(false), "1.0e-300");
    EXPECT_EQ(JsonValue(1e21).toString(false), "1.0e+21");
    EXPECT_EQ(JsonValue(100.0).toString(false), "100.0");
    EXPECT_EQ(Parse("[1.0e+21]")[0].type(), JsonType::Double);
    // Bytes that are not UTF-8 become U+FFFD, each of them.
    EXPECT_EQ(JsonValue(std::string("a\xff\xc3(b")).toString(false),
              "\"a\xEF\xBF\xBD\xEF\xBF\xBD(b\"");
    const JsonValue lone = Parse("[\"\\udcfaa\"]");  // json-glib decodes this to bytes ED B3 BA
    EXPECT_EQ(lone.toString(false), "[\"\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD\"]");
    EXPECT_FALSE(Parse(lone.toString(false).c_str()).isNull());
    EXPECT_EQ(JsonValue(std::nan("")).toString(false), "null");
    EXPECT_EQ(JsonValue(-INFINITY).toString(false), "null");
}
