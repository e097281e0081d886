// An SVG chart of a run: power per turn and cumulative energy over simulated time, with the
// scenario's changes and the reports marked. The run feeds a PlotSeries turn by turn; it keeps
// one column per pixel of the plot area (minimum, maximum and last power, so no peak is lost,
// and the energy at the column's end), so its size does not depend on the run's length.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Scenario.h"

namespace energysim {

class PlotSeries {
  public:
    static constexpr int kColumns = 1030;  // pixels across the plot area

    PlotSeries(uint64_t start, uint64_t duration);
    void AddTurn(uint64_t time, double watts, double wh);
    void AddReport(uint64_t time, bool sent);

    struct Column {
        bool any = false;
        double min_w = 0, max_w = 0, last_w = 0;
        double energy_end = 0;                         // cumulative Wh after the column's last turn
        double sent_energy = -1, dropped_energy = -1;  // cumulative Wh at a report, or -1
        int reports = 0;
    };
    const std::vector<Column>& columns() const { return columns_; }
    uint64_t start() const { return start_; }
    uint64_t duration() const { return duration_; }
    double total_wh() const { return cumulative_; }
    double peak_w() const { return peak_w_; }
    int peak_column() const { return peak_column_; }
    int reports() const { return reports_; }

  private:
    int column_of(uint64_t time) const;

    uint64_t start_, duration_;
    std::vector<Column> columns_;
    double cumulative_ = 0;
    double peak_w_ = 0;
    int peak_column_ = -1;
    int reports_ = 0;
};

std::string RenderSvg(const std::string& title, const PlotSeries& series,
                      const std::vector<ScenarioEntry>& changes);

}  // namespace energysim
