// JsonValue::Create refuses text nested deeper than 200 levels before json-glib, whose parser
// recurses per level, sees it: on the main thread and on a 256 KiB thread stack alike.
#include <pthread.h>

#include <functional>
#include <string>
#include <vector>

#include "SharedJson.h"
#include "TestSupport.h"

using common::json::JsonValue;

namespace {

constexpr const char kCommon[] = "WEXF_COMMON";

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

struct Case {
    const char* name;
    std::string text;
    bool parsed;
};

// Built per test, so that the long texts do not stay on the heap of the whole test binary.
std::vector<Case> Cases() {
    return {
        {"arrays at the bound", Arrays(200), true},
        {"arrays one past it", Arrays(201), false},
        {"objects one past it", Repeat("{\"a\":", 200) + "{}" + Repeat("}", 200), false},
        {"80,000 open brackets", Repeat("[", 80000), false},
        {"brackets inside a string", "[\"" + Repeat("[{", 5000) + "\"]", true},
        {"an escaped quote does not end the string", "[\"\\\"[[\"," + Arrays(199) + "]", true},
        {"a double quote in a single-quoted string", "['\"'," + Arrays(200) + "]", false},
        {"a double quote in a comment", "/* \" */" + Arrays(201), false},
        {"closing brackets first do not buy depth", Repeat("]", 500) + Arrays(201), false},
    };
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

class JsonNestingTest : public testsupport::SimTest {};

TEST_F(JsonNestingTest, DeepTextIsMalformedOnTheMainThreadAndOnA256KiBStack) {
    auto check = [this] {
        for (const Case& c : Cases()) {
            const JsonValue value = JsonValue::Create(c.text);
            EXPECT_EQ(!value.isNull(), c.parsed) << c.name;
            EXPECT_EQ(Logged(DLOG_ERROR, kCommon, "failed to parse: " + c.text), !c.parsed)
                << c.name;
        }
    };
    check();
    OnSmallStack(check);
}

}  // namespace
