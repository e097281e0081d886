// The consumer's shared library: the JSON API as the plug-in and the host program use it.
#include "Report.h"

#include <SharedJson.h>

#include <cstdio>
#include <vector>

using common::json::JsonException;
using common::json::JsonType;
using common::json::JsonValue;

std::string DailyReport(unsigned blocks, double energy) {
    JsonValue report(JsonType::Object);
    report["version"] = 1;
    report["unit"] = "Wh";
    JsonValue& list = report["blocks"];
    for (unsigned i = 0; i < blocks; ++i) {
        JsonValue block;
        block["start"] = static_cast<long long>(i) * 900;
        block["energy"] = energy;
        block["estimated"] = false;
        list.append(std::move(block));
    }
    list.append(list[0u]);  // deep copy of the first block
    list.resize(blocks);    // and dropped again
    report["draft"] = true;
    report.removeMember("draft");
    return report.toString(false);
}

std::string Summary(const std::string& text) {
    const JsonValue report = JsonValue::Create(text);
    if (!report.isMember("blocks") || !report["blocks"].isConvertibleTo(JsonType::Array)) {
        return "";
    }
    const JsonValue& blocks = report["blocks"];
    double total = 0.0;
    for (unsigned i = 0; i < blocks.size(); ++i) {
        total += blocks[i]["energy"].asDouble();
    }
    const JsonValue last = blocks.get(blocks.size() - 1, JsonValue::Null());
    std::vector<std::string> names = report.getMemberNames();
    std::string summary = report.get("unit", JsonValue("?")).asString();
    char line[96];
    std::snprintf(line, sizeof line, " %u blocks, %.2f in all, last at %lld, %zu members",
                  blocks.size(), total, static_cast<long long>(last["start"].asInt64()),
                  names.size());
    summary += line;
    try {
        report["unit"].asInt();
    } catch (const JsonException&) {
        summary += ", unit is text";
    }
    return summary;
}
