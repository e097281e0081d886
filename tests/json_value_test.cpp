// The JSON value layer: the conversion table and its bounds, predicates, access rules,
// shared-tree semantics, stale cached children and the shared handle's moves.
#include <malloc.h>

#include <climits>
#include <cmath>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SharedJson.h"

using common::json::JsonException;
using common::json::JsonType;
using common::json::JsonValue;

namespace {

JsonValue Parse(const char* text) {
    return JsonValue::Create(text);
}

std::string Text(const JsonValue& v) {
    return v.toString(false);
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

// Reads the children on `paths` ("a/x 1") through non-const access, so that they are cached.
void Cache(JsonValue& doc, const char* paths) {
    std::istringstream in(paths);
    for (std::string path; in >> path;) {
        JsonValue* v = &doc;
        std::istringstream steps(path);
        for (std::string step; std::getline(steps, step, '/');) {
            v = v->type() == JsonType::Array ? &(*v)[std::stoul(step)] : &(*v)[step];
        }
    }
}

const double kTwo63 = 9223372036854775808.0;

}  // namespace

// A value, then asInt|asUInt|asInt64|asDouble|asBool|asString. "." leaves a cell unchecked; a
// failure is I (an integer out of the column's range), D (a double out of it) or X (no
// conversion from this kind).
TEST(JsonConversion, Table) {
    const std::string kinds[] = {"int32_t", "uint32_t", "int64_t", "double", "bool", "string"};
    const struct {
        JsonValue value;
        std::string cells;
    } rows[] = {
        {JsonValue(), "0|0|0|0.000000|false|"},
        {JsonValue(true), "1|1|1|1.000000|true|true"},
        {JsonValue(false), "0|0|0|0.000000|false|false"},
        {JsonValue(0), "0|0|0|0.000000|false|0"},
        {JsonValue(-1), "-1|I|-1|-1.000000|true|-1"},
        {JsonValue(2147483647LL), "2147483647|2147483647|.|.|.|."},
        {JsonValue(-2147483648LL), "-2147483648|I|.|.|.|."},
        {JsonValue(2147483648LL), "I|2147483648|.|.|.|."},
        {JsonValue(-2147483649LL), "I|I|.|.|.|."},
        {JsonValue(4294967295u), "I|4294967295|4294967295|.|.|."},
        {JsonValue(4294967296LL), "I|I|4294967296|.|.|."},
        {JsonValue(LLONG_MIN), "I|I|-9223372036854775808|.|true|-9223372036854775808"},
        {JsonValue(2147483647.9), "2147483647|2147483647|2147483647|.|true|."},
        {JsonValue(-2147483648.9), "-2147483648|D|-2147483648|.|.|."},
        {JsonValue(2147483648.0), "D|2147483648|.|.|.|."},
        {JsonValue(-2147483649.0), "D|D|.|.|.|."},
        {JsonValue(-1.9), "-1|D|-1|-1.900000|true|-1.900000"},
        {JsonValue(-0.5), "0|D|0|.|true|."},
        {JsonValue(-0.0), "0|0|0|.|false|-0.000000"},
        {JsonValue(4294967295.5), "D|4294967295|4294967295|.|.|."},
        {JsonValue(4294967296.0), "D|D|4294967296|.|.|."},
        {JsonValue(std::nan("")), "D|D|D|.|false|."},
        {JsonValue(-INFINITY), "D|D|D|.|true|."},
        {JsonValue(1e-310), "0|0|0|.|true|0.000000"},
        {JsonValue(kTwo63), "D|D|9223372036854775807|.|.|."},
        {JsonValue(-kTwo63), "D|D|-9223372036854775808|.|.|."},
        {JsonValue(std::nextafter(kTwo63, INFINITY)), ".|.|D|.|.|."},
        {JsonValue(std::nextafter(-kTwo63, -INFINITY)), ".|.|D|.|.|."},
        {JsonValue(1.5), "1|1|1|1.500000|true|1.500000"},
        {JsonValue(1e300), ".|.|.|.|.|" + std::to_string(1e300)},  // not cut short
        {JsonValue("42"), "X|X|X|X|X|42"},
        {JsonValue(std::string("a\"b")), ".|.|.|.|.|a\"b"},
        {JsonValue(JsonType::Object), "X|X|X|X|X|X"},
        {JsonValue(JsonType::Array), "X|X|X|X|X|X"},
    };
    for (const auto& r : rows) {
        const JsonValue& v = r.value;
        const std::string got[] = {
            Outcome([&] { return std::to_string(v.asInt()); }),
            Outcome([&] { return std::to_string(v.asUInt()); }),
            Outcome([&] { return std::to_string(v.asInt64()); }),
            Outcome([&] { return std::to_string(v.asDouble()); }),
            Outcome([&] { return std::string(v.asBool() ? "true" : "false"); }),
            Outcome([&] { return v.asString(); }),
        };
        std::istringstream cells(r.cells + '|');
        std::string cell;
        for (size_t c = 0; c < 6 && std::getline(cells, cell, '|'); ++c) {
            // A double beyond uint32 is reported with the int32 wording.
            const std::string& kind = c == 1 && cell == "D" ? kinds[0] : kinds[c];
            const std::string want = cell == "I"   ? "!int64_t value exceed " + kind + " range"
                                     : cell == "D" ? "!double value exceed " + kind + " range"
                                     : cell == "X" ? "!cannot convert to " + kind + " type"
                                                   : cell;
            if (cell != ".") {
                EXPECT_EQ(got[c], want) << r.cells << ", column " << c;
            }
        }
    }
}

TEST(JsonPredicates, Table) {
    // A value (the JsonType constructors give the zero of each kind), then: its type as a
    // number; isConvertibleTo each type, Null to Array; isDouble, isInt, isString, isBool; size
    // and empty.
    const struct {
        JsonValue value;
        const char* predicates;
    } rows[] = {
        {JsonValue(), "0 1111111 0000 01"},
        {JsonValue(JsonType::Bool), "1 1111100 0001 00"},
        {JsonValue(true), "1 0111100 0001 00"},
        {JsonValue(JsonType::Int), "2 1111100 1100 00"},
        // "!": isConvertibleTo(Null) throws, as it goes through asInt().
        {JsonValue(2147483648LL), "2 !111100 1100 00"},
        {JsonValue(5LL), "2 0111100 1100 00"},
        {JsonValue(JsonType::Double), "3 1111100 1100 00"},
        {JsonValue(2.5), "3 0111100 1100 00"},
        {JsonValue(kTwo63), "3 0111100 1100 00"},
        {JsonValue(-kTwo63), "3 0111100 1100 00"},
        {JsonValue(1e19), "3 0101100 1000 00"},
        {JsonValue(std::nan("")), "3 0101100 1000 00"},
        {JsonValue(JsonType::String), "4 0000100 0010 00"},
        {JsonValue(JsonType::Object), "5 1000010 0000 01"},
        {Parse("{\"a\":1,\"b\":2}"), "5 0000010 0000 20"},
        {JsonValue(JsonType::Array), "6 1000001 0000 01"},
        {Parse("[null]"), "6 0000001 0000 10"},
        {JsonValue(static_cast<JsonType>(7)), "0 1111111 0000 01"},
    };
    for (const auto& r : rows) {
        const JsonValue& v = r.value;
        std::string got = std::to_string(static_cast<int>(v.type())) + ' ';
        for (int t = 0; t <= 6; ++t) {
            got +=
                Outcome([&] { return v.isConvertibleTo(static_cast<JsonType>(t)) ? "1" : "0"; })[0];
        }
        EXPECT_FALSE(v.isConvertibleTo(static_cast<JsonType>(7)));
        got += ' ';
        for (bool b : {v.isDouble(), v.isInt(), v.isString(), v.isBool()}) {
            got += b ? '1' : '0';
        }
        got += " " + std::to_string(v.size()) + (v.empty() ? "1" : "0");
        EXPECT_EQ(got, r.predicates) << Text(v);
    }
}

TEST(JsonAccess, ConstAccessFindsNonConstAccessCreatesGetCopies) {
    const JsonValue doc = Parse("{\"a\":{\"x\":1},\"b\":[10,20]}"), null;
    for (const JsonValue* missing : {&doc["missing"], &null["x"], &null[0], &doc["b"][2]}) {
        EXPECT_EQ(missing, &JsonValue::Null());
    }
    // get() gives a copy of the child, or of the default.
    JsonValue a = doc.get("a", JsonValue()), fallback(JsonType::Object);
    a["x"] = 2;
    doc.get("missing", fallback)["y"] = 1;
    EXPECT_EQ(Text(doc) + Text(fallback), "{\"a\":{\"x\":1},\"b\":[10,20]}{}");
    EXPECT_EQ(Text(doc["b"].get(1, JsonValue())) + Text(doc["b"].get(2, JsonValue(-1))), "20-1");

    JsonValue object = Parse("{\"a\":1}"), list, vivified, members;
    EXPECT_TRUE(object["b"].isNull());
    object.removeMember("a");
    list.append(JsonValue(1));
    list.resize(3);
    vivified[1] = 7;
    members["powerState"] = 1;  // longer than 8 bytes: the cache also reads its tail
    members["a"] = 2;
    const std::vector<std::string> names = members.getMemberNames();
    EXPECT_EQ(names, (std::vector<std::string>{"powerState", "a"}));
    EXPECT_EQ(&members[names[0]], &members["powerState"]);  // wherever the name's text is held
    EXPECT_EQ(Text(object) + Text(list) + Text(vivified) + Text(members),
              "{\"b\":null}[1,null,null][null,7]{\"powerState\":1,\"a\":2}");
    EXPECT_TRUE(members.isMember("a") && members.isMember(names[0]) && !members.isMember("q"));

    // A null value answers queries quietly; resize() makes it an array.
    JsonValue quiet;
    quiet.removeMember("a");
    EXPECT_TRUE(!quiet.isMember("a") && quiet.getMemberNames().empty() && quiet.isNull());
    EXPECT_EQ(Text(quiet.get("a", JsonValue(3))) + Text(quiet.get(2, JsonValue("d"))), "3\"d\"");
    quiet.resize(0);
    EXPECT_EQ(quiet.type(), JsonType::Array);
}

TEST(JsonAccess, WrongKindThrowsInvalidTypeAndLeavesTheValue) {
    for (JsonValue v : {Parse("{\"a\":1}"), Parse("[1]"), JsonValue("s"), JsonValue(1),
                        JsonValue(1.5), JsonValue(false)}) {
        const std::string before = Text(v);
        const JsonValue& c = v;
        const bool object = v.type() == JsonType::Object, array = v.type() == JsonType::Array;
        const std::vector<std::pair<bool, std::function<void()>>> calls = {
            {object, [&] { v["a"]; }},
            {object, [&] { c["a"]; }},
            {object, [&] { v.get("a", c); }},
            {object, [&] { v.isMember("a"); }},
            {object, [&] { v.removeMember("zz"); }},
            {object, [&] { v.getMemberNames(); }},
            {array, [&] { v[0]; }},
            {array, [&] { c[0]; }},
            {array, [&] { v.get(0, c); }},
            {array, [&] { v.append(c); }},
            {array, [&] { v.append(JsonValue(2)); }},
            {array, [&] { v.resize(1); }},
        };
        for (size_t i = 0; i < calls.size(); ++i) {
            const std::string outcome = Outcome([&] { return calls[i].second(), "fine"; });
            EXPECT_EQ(outcome, calls[i].first ? "fine" : "!invalid type") << before << " " << i;
        }
        if (!object && !array) {
            EXPECT_EQ(Text(v), before);
        }
    }
}

TEST(JsonSharedTree, ChildrenChangeKindInPlaceAndTravelWithMoves) {
    JsonValue root = Parse("{\"list\":[1]}");
    JsonValue& slot = root["list"][0];
    slot = "text";
    slot = JsonValue(JsonType::Object);
    slot["deep"] = true;
    EXPECT_EQ(Text(root), "{\"list\":[{\"deep\":true}]}");
    slot = JsonValue();
    EXPECT_EQ(Text(root), "{\"list\":[null]}");

    // A move leaves the source null and usable; the cached children travel with the value.
    JsonValue source = Parse("{\"a\":[1]}");
    JsonValue& a = source["a"];
    JsonValue moved(std::move(source));
    a = 2;
    source["again"] = 1;
    EXPECT_EQ(Text(moved) + Text(source), "{\"a\":2}{\"again\":1}");
    JsonValue target(5);
    target = std::move(moved);
    EXPECT_EQ(&target["a"], &a);
    target = std::move(target);
    EXPECT_EQ(Text(target) + Text(moved), "{\"a\":2}null");
}

// A child handed out by reference must never outlive what it stands for: after a member is
// removed, an array shrinks or the value changes kind, access gives a child of the document
// as it is now. Each row caches children, changes the document (itself, or through a second
// value on the same node), lets other values take the memory the change freed, then writes
// through fresh access and checks the whole document.
TEST(JsonSharedTree, NoStaleChildAfterTheDocumentChanges) {
    const JsonValue five = Parse("[5]"), object = Parse("{\"b\":2}"), null;
    const struct {
        const char *start, *cached;
        std::function<void(JsonValue&)> change, write;
        const char* expected;
        bool through_other = false;
    } rows[] = {
        // The other value's changes keep the member count the cache saw: "m" is found, not
        // taken for absent and set to null.
        {"{\"k\":1}", "k",
         [](auto& d) {
             d.removeMember("k");
             d["m"] = 2;
         },
         [](auto& d) { d["n"] = d["m"]; }, "{\"m\":2,\"n\":2}", true},
        {"{\"a\":1,\"b\":2}", "a b", [](auto& d) { d.removeMember("a"); },
         [](auto& d) { d["a"] = 7; }, "{\"b\":2,\"a\":7}"},
        {"{\"a\":{\"x\":1}}", "a/x", [](auto& d) { d.removeMember("a"); },
         [](auto& d) { d["a"]["y"] = 3; }, "{\"a\":{\"y\":3}}"},
        {"{\"a\":{\"x\":1}}", "a/x", [](auto& d) { d.removeMember("a"); }, [](auto& d) { d = 5; },
         "5"},
        {"[0,1,2,3]", "0 1 2 3", [](auto& d) { d.resize(1); }, [](auto& d) { d[2] = 20; },
         "[0,null,20]"},
        {"{\"a\":1}", "a", [](auto& d) { d = 5; }, [](auto&) {}, "5"},
        {"1", "", [](auto& d) { d = 5; }, [](auto&) {}, "5"},
        {"{\"a\":1}", "a", [&](auto& d) { d = five; }, [](auto& d) { d[0] = 6; }, "[6]"},
        {"[1,2]", "1", [&](auto& d) { d = five; }, [](auto& d) { d[1] = 6; }, "[5,6]"},
        {"{\"a\":1}", "a", [&](auto& d) { d = object; }, [](auto& d) { d["c"] = d["b"]; },
         "{\"b\":2,\"c\":2}"},
        {"[1,2]", "0 1", [&](auto& d) { d = null; }, [](auto& d) { d["k"] = 1; }, "{\"k\":1}"},
        {"{\"a\":{\"b\":1}}", "a/b", [](auto& d) { d = d["a"]; }, [](auto& d) { d["b"] = 2; },
         "{\"b\":2}"},
        {"{\"a\":{\"b\":[1,2]}}", "", [](auto& d) { d = std::move(d["a"]); },
         [](auto& d) { d["b"][0] = 5; }, "{\"b\":[5,2]}"},
        {"{\"b\":[1,2],\"c\":0}", "b/1", [](auto& d) { d = std::move(d["b"]); },
         [](auto& d) { d[0] = 5; }, "[5,2]"},
    };
    for (const auto& r : rows) {
        const common::json::SharedJson tree = common::json::SharedJson::Create(r.start);
        JsonValue doc = r.through_other ? JsonValue(tree) : Parse(r.start);
        JsonValue other(tree);
        Cache(doc, r.cached);
        r.change(r.through_other ? other : doc);
        // Values made now take the memory of whatever the change freed.
        std::vector<JsonValue> holders(16, JsonValue(-1));
        r.write(doc);
        EXPECT_EQ(Text(doc), r.expected) << r.start << " cached " << r.cached;
        EXPECT_TRUE(holders == std::vector<JsonValue>(16, JsonValue(-1)));
    }
}

// Destroying a value releases what its cached children and grandchildren hold: building and
// dropping nested documents leaves the heap where it was.
TEST(JsonSharedTree, DestroyedValuesReleaseTheirCachedChildren) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "the sanitizers' allocators do not keep mallinfo2 (LeakSanitizer checks this)";
#endif
    const auto build = [] {
        JsonValue doc;
        doc["a"]["b"] = 1;
        doc["c"].append(JsonValue("x"));
        return Text(doc);
    };
    EXPECT_EQ(build(), "{\"a\":{\"b\":1},\"c\":[\"x\"]}");  // and first-use allocations
    const size_t before = mallinfo2().uordblks;
    for (int i = 0; i < 2000; ++i) {
        build();
    }
    EXPECT_LE(mallinfo2().uordblks, before + 16384);
}

TEST(JsonSharedHandle, SetAppendAndInitLeaveNoStalePayload) {
    using common::json::SharedJson;
    SharedJson target(1LL), source("text");
    target.set(std::move(source));
    EXPECT_EQ(target.get_string(), "text");
    EXPECT_EQ(source.type(), JsonType::Null);
    source.set(SharedJson(true));  // still a usable handle
    SharedJson array = SharedJson::Create("[]");
    array.append(std::move(source));
    EXPECT_EQ(source.type(), JsonType::Null);
    EXPECT_EQ(array.to_string(false), "[true]");
    // In-place re-initialisation from every kind to every kind, twice: no payload of the
    // node before is released again or reused.
    for (const char* text : {"{\"a\":[1]}", "[1,{}]", "\"s\"", "2.5", "true", "null"}) {
        for (JsonType t : {JsonType::Object, JsonType::Array, JsonType::String, JsonType::Int,
                           JsonType::Double, JsonType::Bool, JsonType::Null}) {
            SharedJson node = SharedJson::Create(text);
            node.init(t);
            node.init(t);
            EXPECT_EQ(node.type(), t) << text;
        }
    }
}
