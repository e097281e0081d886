#include "Grid.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

namespace energyfactors {

std::vector<Inputs> ComparisonGrid() {
    using namespace powermeter;
    std::vector<Inputs> grid;
    for (const auto state : {NORMAL, LPM, BACKGROUND_STANDBY, ALWAYS_ON_SCREEN, PICTURE_OFF}) {
        for (int a = 0; a <= 5; ++a) {
            for (int d = 0; d <= 4; ++d) {
                for (const int resolution : {1080, 2160}) {
                    for (const int volume : {0, 50, 100}) {
                        // Rounded to the nearest register value: 0, 205, 409, ..., 1023.
                        grid.push_back(
                            {state, (a * 1023 + 2) / 5, (d * 1023 + 2) / 4, resolution, volume});
                    }
                }
            }
        }
    }
    return grid;
}

GridError CompareOnGrid(PluginSandbox& sandbox, const std::string& row_text,
                        const std::string& reference_text) {
    const std::vector<Inputs> grid = ComparisonGrid();
    std::vector<double> watts;
    watts.reserve(grid.size());
    {
        RowModel row(sandbox, row_text);
        for (const Inputs& in : grid) {
            watts.push_back(row.Watts(in));
        }
    }
    RowModel reference(sandbox, reference_text);
    GridError e;
    e.points = static_cast<int>(grid.size());
    std::vector<double> errors;
    errors.reserve(grid.size());
    for (size_t i = 0; i < grid.size(); ++i) {
        const double ref = reference.Watts(grid[i]);
        const double diff = std::fabs(watts[i] - ref);
        const double percent = ref != 0 ? diff / std::fabs(ref) * 100.0 : (diff != 0 ? 100.0 : 0);
        if (percent > e.max_percent) {
            e.max_percent = percent;
            e.worst = grid[i];
        }
        errors.push_back(percent);
    }
    std::sort(errors.begin(), errors.end());
    // The smallest error that at least 95% of the points do not exceed.
    e.p95_percent = errors[(errors.size() * 95 + 99) / 100 - 1];
    return e;
}

std::string DescribeInputs(const Inputs& in) {
    return fmt::format("{} ANA {} DutySum {} {} lines volume {}", StateName(in.state), in.ana,
                       in.dutysum, in.resolution, in.volume);
}

}  // namespace energyfactors
