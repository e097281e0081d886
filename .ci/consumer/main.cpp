// A program outside the project that uses the installed support library: builds a document,
// catches the library's exception type, and asks the platform helpers and the pre-check. The
// JSON reports come from its own shared library (Report.cpp).
#include <AppInfoUtil.h>
#include <EnergyServicePrerequisite.h>
#include <SharedJson.h>
#include <SystemInfoUtil.h>

#include <cstdio>
#include <string>

#include "Report.h"

int main() {
    using common::json::JsonValue;
    const JsonValue input = JsonValue::Create(R"({"ANA":"0700","blocks":[1,2,3]})");
    JsonValue report;
    report["blocks"] = input["blocks"].size();
    report["ana"] = input["ANA"].asString();
    const std::string text = report.toString(false);
    std::printf("%s\n", text.c_str());

    bool caught = false;
    try {
        input["blocks"].asInt();
    } catch (const common::json::JsonException& e) {
        caught = true;
        std::printf("JsonException: %s\n", e.what());
    }

    const std::string daily = DailyReport(4, 0.25);
    const std::string summary = Summary(daily);
    std::printf("%s\n%s\n", daily.c_str(), summary.c_str());

    std::printf(
        "model year %d, data path '%s', data set has the model: %d\n", SystemInfoUtil::GetTVYear(),
        AppInfoUtil::GetDataPath().c_str(),
        common::service_prerequisite::EnergyServicePrerequisite("model", "panel").IsAvailable());
    const bool ok = text == R"({"blocks":3,"ana":"0700"})" && caught &&
                    summary == "Wh 4 blocks, 1.00 in all, last at 2700, 3 members, unit is text";
    return ok ? 0 : 1;
}
