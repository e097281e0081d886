// Prints, for every row of an energy_factors.dat, the watts the calculator gives in each power
// state for a typical picture: ANA 700, DutySum 800, RESOLUTION 2160, volume 20 on the TV
// speaker. Each row is selected through the real loader on the simulated TV, by setting the
// simulated set's SW model and panel type to the row's.
//
// Usage: factor_table [data directory ending in '/']   (default: the repository's data/)
#include <cstdio>
#include <exception>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "Calculator.h"
#include "PowerFactorLoader.h"
#include "PowerFactors.h"
#include "tvsim/Simulator.h"

namespace {

struct Row {
    std::string id;
    std::string model;
    std::string sw_model;
    std::string size;
    std::string panel_type;
};

// The columns the table shows, taken from the rows that parse (the others are skipped, as the
// loader skips them).
std::vector<Row> read_rows(const std::string& path) {
    std::vector<Row> rows;
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);  // version
    while (std::getline(in, line)) {
        powermeter::PowerFactors factors;
        if (!factors.Parse(line)) {
            continue;
        }
        std::vector<std::string> cells;
        std::string::size_type start = 0;
        while (start <= line.size()) {
            auto end = line.find(',', start);
            if (end == std::string::npos) {
                end = line.size();
            }
            if (end > start) {
                cells.emplace_back(line, start, end - start);
            }
            start = end + 1;
        }
        rows.push_back(Row{cells[0], cells[2], cells[3], cells[4], cells[5]});
    }
    return rows;
}

struct State {
    const char* name;
    int platform_state;
    int ambient_mode;
};

const State kStates[] = {
    {"NORMAL", 0, 0},           {"LPM", 4, 2},         {"BACKGROUND_STANDBY", 2, 0},
    {"ALWAYS_ON_SCREEN", 2, 1}, {"PICTURE_OFF", 1, 0}, {"SUSPEND", 3, 0},
};

}  // namespace

int main(int argc, char** argv) {
    const std::string dir = argc > 1 ? argv[1] : std::string(EC_SOURCE_DIR) + "/data/";
    tvsim::SetLogRetention(0);
    tvsim::SetAppPath(tvsim::AppPath::kSharedResource, dir);
    tvsim::SetVconf("memory/ave/powerconsumption",
                    std::string(R"({"ANA":"700","DutySum":"800","RESOLUTION":"2160"})"));
    tvsim::SetMasterVolume(20);
    tvsim::SetSpeakerSelection(0);

    const std::vector<Row> rows = read_rows(dir + "energy_factors.dat");
    if (rows.empty()) {
        std::fprintf(stderr, "no valid rows in %senergy_factors.dat\n", dir.c_str());
        return 1;
    }
    std::printf("| row | model | SW model | size | panel type | BLU type |");
    for (const State& s : kStates) {
        std::printf(" %s W |", s.name);
    }
    std::printf("\n|---|---|---|---|---|---|");
    for (size_t i = 0; i < sizeof(kStates) / sizeof(kStates[0]); ++i) {
        std::printf("---:|");
    }
    std::printf("\n");

    for (const Row& row : rows) {
        tvsim::SetModelName(row.sw_model);
        tvsim::SetPanelType(row.panel_type);
        powermeter::PowerFactors selected;
        powermeter::PowerFactorLoader loader;
        if (!loader.Load(selected)) {
            std::printf("| %s | %s | %s | %s | %s | not selected |\n", row.id.c_str(),
                        row.model.c_str(), row.sw_model.c_str(), row.size.c_str(),
                        row.panel_type.c_str());
            continue;
        }
        powermeter::Calculator calculator;
        calculator.Init();
        std::printf("| %d | %s | %s | %s | %s | %g |", selected.SequenceNumber(), row.model.c_str(),
                    row.sw_model.c_str(), row.size.c_str(), row.panel_type.c_str(),
                    selected.BLUFactors(powermeter::TYPE));
        for (const State& s : kStates) {
            tvsim::SetPowerState(s.platform_state);
            tvsim::SetAmbientMode(s.ambient_mode);
            try {
                calculator.Calculate();
                std::printf(" %.1f |", calculator.PowerConsumption());
            } catch (const std::exception& e) {
                std::printf(" %s |", e.what());
            }
        }
        std::printf("\n");
    }
    return 0;
}
