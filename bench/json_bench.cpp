// The JSON value layer against the same work written directly on json-glib's C API:
//  - reading the picture-engine payload as the plug-in does (parse, then for each of the
//    nine registers isMember, operator[], asString and strtol);
//  - building and serialising a daily block report of 96 blocks.
#include <benchmark/benchmark.h>
#include <json-glib/json-glib.h>

#include <cstdint>
#include <cstdlib>
#include <string>

#include "SharedJson.h"

using common::json::JsonValue;

namespace {

const char kPayload[] =
    "{\"ANA\":\"512\",\"DutySum\":\"300\",\"APL\":\"128\",\"BLOSD\":\"0\",\"RESOLUTION\":\"2160\","
    "\"PC\":\"0\",\"HDR\":\"1\",\"IDS\":\"3\",\"TEMP\":\"41\"}";

const char* const kRegisters[] = {"ANA", "DutySum", "APL", "BLOSD", "RESOLUTION",
                                  "PC",  "HDR",     "IDS", "TEMP"};

constexpr unsigned kBlocks = 96;
constexpr uint32_t kFirstStart = 1718000000u;

double BlockEnergy(unsigned i) {
    return 2.4 + 0.013 * i;
}

void PictureEngine_Layer(benchmark::State& state) {
    for (auto _ : state) {
        const JsonValue engine = JsonValue::Create(kPayload);
        long sum = 0;
        if (!engine.isNull()) {
            for (const char* name : kRegisters) {
                if (engine.isMember(name)) {
                    sum += std::strtol(engine[name].asString().c_str(), nullptr, 10);
                }
            }
        }
        benchmark::DoNotOptimize(sum);
    }
}

void PictureEngine_JsonGlib(benchmark::State& state) {
    for (auto _ : state) {
        JsonParser* parser = json_parser_new();
        long sum = 0;
        if (json_parser_load_from_data(parser, kPayload, -1, nullptr)) {
            JsonNode* root = json_parser_get_root(parser);
            if (root != nullptr && JSON_NODE_HOLDS_OBJECT(root)) {
                JsonObject* object = json_node_get_object(root);
                for (const char* name : kRegisters) {
                    if (json_object_has_member(object, name)) {
                        const gchar* text = json_object_get_string_member(object, name);
                        sum += std::strtol(text != nullptr ? text : "", nullptr, 10);
                    }
                }
            }
        }
        g_object_unref(parser);
        benchmark::DoNotOptimize(sum);
    }
}

void DailyReport_Layer(benchmark::State& state) {
    size_t bytes = 0;
    for (auto _ : state) {
        JsonValue report;
        JsonValue& blocks = report["dailyPowerConsumption"];
        for (unsigned i = 0; i < kBlocks; ++i) {
            JsonValue block;
            block["start"] = kFirstStart + 900u * i;
            block["end"] = kFirstStart + 900u * i + 890u;
            block["deltaEnergy"] = BlockEnergy(i);
            block["power"] = 0;
            block["energySaved"] = 0;
            blocks.append(std::move(block));
        }
        const std::string text = report.toString(false);
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}

void DailyReport_JsonGlib(benchmark::State& state) {
    size_t bytes = 0;
    for (auto _ : state) {
        JsonArray* blocks = json_array_new();
        for (unsigned i = 0; i < kBlocks; ++i) {
            JsonObject* block = json_object_new();
            json_object_set_int_member(block, "start", kFirstStart + 900u * i);
            json_object_set_int_member(block, "end", kFirstStart + 900u * i + 890u);
            json_object_set_double_member(block, "deltaEnergy", BlockEnergy(i));
            json_object_set_int_member(block, "power", 0);
            json_object_set_int_member(block, "energySaved", 0);
            json_array_add_object_element(blocks, block);
        }
        JsonObject* report = json_object_new();
        json_object_set_array_member(report, "dailyPowerConsumption", blocks);
        JsonNode* root = json_node_new(JSON_NODE_OBJECT);
        json_node_take_object(root, report);
        gchar* raw = json_to_string(root, FALSE);
        const std::string text(raw);
        g_free(raw);
        json_node_unref(root);
        bytes = text.size();
        benchmark::DoNotOptimize(text.data());
    }
    state.counters["bytes"] = static_cast<double>(bytes);
}

}  // namespace

BENCHMARK(PictureEngine_Layer);
BENCHMARK(PictureEngine_JsonGlib);
BENCHMARK(DailyReport_Layer);
BENCHMARK(DailyReport_JsonGlib);

BENCHMARK_MAIN();
