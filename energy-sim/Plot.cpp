#include "Plot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "SvgText.h"

namespace energysim {
namespace {

constexpr double kWidth = 1200, kHeight = 560;
constexpr double kLeft = 80, kRight = 90, kTop = 60, kBottom = 70;
constexpr double kPlotW = kWidth - kLeft - kRight, kPlotH = kHeight - kTop - kBottom;
static_assert(PlotSeries::kColumns == static_cast<int>(kPlotW), "one column per pixel");

using hostkit::NiceAxis;

struct Axes {
    double duration, w_max, w_step, e_max, e_step;
    double Yw(double w) const { return kTop + kPlotH * (1 - std::max(0.0, w) / w_max); }
    double Ye(double e) const { return kTop + kPlotH * (1 - std::max(0.0, e) / e_max); }
    double X(uint64_t offset) const {
        return kLeft + kPlotW * std::min(static_cast<double>(offset), duration) / duration;
    }
};

void AppendFrame(std::string& svg, const Axes& a, const std::string& title) {
    fmt::format_to(std::back_inserter(svg),
                   "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:.0f}\" "
                   "height=\"{1:.0f}\" viewBox=\"0 0 {0:.0f} {1:.0f}\" font-family=\"sans-serif\" "
                   "font-size=\"12\">\n",
                   kWidth, kHeight);
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    fmt::format_to(std::back_inserter(svg),
                   "<text x=\"{:.0f}\" y=\"28\" font-size=\"16\" font-weight=\"bold\">{}</text>\n",
                   kLeft, hostkit::SvgEscape(title));
    for (double v = 0; v <= a.w_max + 1e-9; v += a.w_step) {
        double y = a.Yw(v);
        fmt::format_to(std::back_inserter(svg),
                       "<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" "
                       "stroke=\"#e4e4e4\"/>\n"
                       "<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"end\" "
                       "fill=\"#1f5fbf\">{:g}</text>\n",
                       kLeft, y, kLeft + kPlotW, y, kLeft - 6, y + 4, v);
    }
    for (double v = 0; v <= a.e_max + 1e-9; v += a.e_step) {
        fmt::format_to(std::back_inserter(svg),
                       "<text x=\"{:.1f}\" y=\"{:.1f}\" fill=\"#c0561b\">{:g}</text>\n",
                       kLeft + kPlotW + 6, a.Ye(v) + 4, v);
    }
    double hours = a.duration / 3600;
    double h_step = hours <= 6      ? 1
                    : hours <= 24   ? 2
                    : hours <= 72   ? 6
                    : hours <= 168  ? 12
                    : hours <= 1000 ? 24
                                    : 24 * 30;
    for (double h = 0; h <= hours + 1e-9; h += h_step) {
        double x = kLeft + kPlotW * (h * 3600) / a.duration;
        fmt::format_to(std::back_inserter(svg),
                       "<line x1=\"{0:.1f}\" y1=\"{1:.1f}\" x2=\"{0:.1f}\" y2=\"{2:.1f}\" "
                       "stroke=\"#f0f0f0\"/>\n"
                       "<text x=\"{0:.1f}\" y=\"{3:.1f}\" text-anchor=\"middle\">{4:g}h</text>\n",
                       x, kTop, kTop + kPlotH, kTop + kPlotH + 18, h);
    }
    fmt::format_to(std::back_inserter(svg),
                   "<rect x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{:.1f}\" "
                   "fill=\"none\" stroke=\"#888\"/>\n"
                   "<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">simulated time</text>\n"
                   "<text transform=\"translate(22,{:.1f}) rotate(-90)\" text-anchor=\"middle\" "
                   "fill=\"#1f5fbf\">power per turn (W)</text>\n"
                   "<text transform=\"translate({:.1f},{:.1f}) rotate(90)\" "
                   "text-anchor=\"middle\" fill=\"#c0561b\">cumulative energy (Wh)</text>\n",
                   kLeft, kTop, kPlotW, kPlotH, kLeft + kPlotW / 2, kHeight - 30, kTop + kPlotH / 2,
                   kWidth - 22, kTop + kPlotH / 2);
}

// Scenario changes: one dashed line per time, its entries joined in one label.
void AppendChanges(std::string& svg, const Axes& a, const std::vector<ScenarioEntry>& changes) {
    std::vector<std::pair<uint64_t, std::string>> marks;
    for (const ScenarioEntry& c : changes) {
        std::string what = Describe(c.command);
        if (!marks.empty() && marks.back().first == c.offset) {
            marks.back().second += "; " + what;
        } else {
            marks.emplace_back(c.offset, what);
        }
    }
    double last_label_x = -1e9;
    for (auto& [offset, label] : marks) {
        if (label.size() > 64) {
            label = label.substr(0, 61) + "...";  // keep it inside the plot area
        }
        double x = a.X(offset);
        fmt::format_to(std::back_inserter(svg),
                       "<line x1=\"{0:.1f}\" y1=\"{1:.1f}\" x2=\"{0:.1f}\" y2=\"{2:.1f}\" "
                       "stroke=\"#6a6a6a\" stroke-dasharray=\"4,3\"/>\n",
                       x, kTop, kTop + kPlotH);
        if (x - last_label_x < 13) {
            continue;  // a label here would overprint the previous one
        }
        last_label_x = x;
        fmt::format_to(std::back_inserter(svg),
                       "<text transform=\"translate({:.1f},{:.1f}) rotate(90)\" font-size=\"10\" "
                       "fill=\"#444\">{}</text>\n",
                       x + 3, kTop + 4, hostkit::SvgEscape(label));
    }
}

// Power: per pixel column its minimum, maximum and last value; energy: the column's end.
void AppendCurves(std::string& svg, const Axes& a, const PlotSeries& series) {
    std::string power, energy;
    const auto& columns = series.columns();
    for (size_t c = 0; c < columns.size(); ++c) {
        const PlotSeries::Column& col = columns[c];
        if (!col.any) {
            continue;
        }
        const double x = kLeft + static_cast<double>(c);
        fmt::format_to(std::back_inserter(power), "{}{:.0f},{:.1f} L{:.0f},{:.1f} L{:.0f},{:.1f} ",
                       power.empty() ? "M" : "L", x, a.Yw(col.min_w), x, a.Yw(col.max_w), x,
                       a.Yw(col.last_w));
        fmt::format_to(std::back_inserter(energy), "{}{:.0f},{:.1f} ", energy.empty() ? "M" : "L",
                       x, a.Ye(col.energy_end));
    }
    svg += "<path d=\"" + power + "\" fill=\"none\" stroke=\"#1f5fbf\" stroke-width=\"1.2\"/>\n";
    svg += "<path d=\"" + energy + "\" fill=\"none\" stroke=\"#c0561b\" stroke-width=\"2\"/>\n";
    if (series.peak_column() >= 0) {
        const double x = kLeft + series.peak_column();
        fmt::format_to(std::back_inserter(svg),
                       "<text x=\"{:.1f}\" y=\"{:.1f}\" font-size=\"10\" fill=\"#1f5fbf\" "
                       "text-anchor=\"{}\">peak {:.1f} W</text>\n",
                       x, a.Yw(series.peak_w()) - 4, x > kLeft + kPlotW / 2 ? "end" : "start",
                       series.peak_w());
    }
}

// Reports: a dot on the energy curve when sent, a cross when dropped; one of each per column.
void AppendReports(std::string& svg, const Axes& a, const PlotSeries& series) {
    const double radius = series.reports() > 120 ? 1.2 : 3.0;  // long runs: small dots
    const auto& columns = series.columns();
    for (size_t c = 0; c < columns.size(); ++c) {
        const double x = kLeft + static_cast<double>(c);
        if (columns[c].sent_energy >= 0) {
            fmt::format_to(std::back_inserter(svg),
                           "<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"{:.1f}\" fill=\"#2a9d3a\"/>\n",
                           x, a.Ye(columns[c].sent_energy), radius);
        }
        if (columns[c].dropped_energy >= 0) {
            fmt::format_to(std::back_inserter(svg),
                           "<path d=\"M{:.1f},{:.1f} l6,6 m0,-6 l-6,6\" stroke=\"#d62728\" "
                           "stroke-width=\"1.6\"/>\n",
                           x - 3, a.Ye(columns[c].dropped_energy) - 3);
        }
    }
}

void AppendLegend(std::string& svg) {
    const double lx = kLeft + 10, ly = kHeight - 12;
    fmt::format_to(
        std::back_inserter(svg),
        "<line x1=\"{0:.1f}\" y1=\"{2:.1f}\" x2=\"{1:.1f}\" y2=\"{2:.1f}\" stroke=\"#1f5fbf\" "
        "stroke-width=\"2\"/><text x=\"{3:.1f}\" y=\"{4:.1f}\">power (W)</text>\n",
        lx, lx + 20, ly - 4, lx + 25, ly);
    fmt::format_to(
        std::back_inserter(svg),
        "<line x1=\"{0:.1f}\" y1=\"{2:.1f}\" x2=\"{1:.1f}\" y2=\"{2:.1f}\" stroke=\"#c0561b\" "
        "stroke-width=\"2\"/><text x=\"{3:.1f}\" y=\"{4:.1f}\">energy (Wh)</text>\n",
        lx + 110, lx + 130, ly - 4, lx + 135, ly);
    fmt::format_to(std::back_inserter(svg),
                   "<circle cx=\"{:.1f}\" cy=\"{:.1f}\" r=\"3\" fill=\"#2a9d3a\"/>"
                   "<text x=\"{:.1f}\" y=\"{:.1f}\">report sent</text>\n",
                   lx + 240, ly - 4, lx + 248, ly);
    fmt::format_to(std::back_inserter(svg),
                   "<path d=\"M{:.1f},{:.1f} l6,6 m0,-6 l-6,6\" stroke=\"#d62728\" "
                   "stroke-width=\"1.6\"/><text x=\"{:.1f}\" y=\"{:.1f}\">report dropped</text>\n",
                   lx + 330, ly - 7, lx + 342, ly);
    fmt::format_to(
        std::back_inserter(svg),
        "<line x1=\"{0:.1f}\" y1=\"{2:.1f}\" x2=\"{1:.1f}\" y2=\"{2:.1f}\" stroke=\"#6a6a6a\" "
        "stroke-dasharray=\"4,3\"/><text x=\"{3:.1f}\" y=\"{4:.1f}\">scenario change</text>\n",
        lx + 450, lx + 470, ly - 4, lx + 475, ly);
}

}  // namespace

PlotSeries::PlotSeries(uint64_t start, uint64_t duration)
    : start_(start), duration_(std::max<uint64_t>(duration, 10)), columns_(kColumns) {}

int PlotSeries::column_of(uint64_t time) const {
    const uint64_t offset = time >= start_ ? std::min(time - start_, duration_) : 0;
    const double x = kPlotW * static_cast<double>(offset) / static_cast<double>(duration_);
    return std::min(kColumns - 1, static_cast<int>(x));
}

void PlotSeries::AddTurn(uint64_t time, double watts, double wh) {
    const int c = column_of(time);
    Column& col = columns_[c];
    cumulative_ += wh;
    if (!col.any) {
        col.any = true;
        col.min_w = col.max_w = watts;
    }
    col.min_w = std::min(col.min_w, watts);
    col.max_w = std::max(col.max_w, watts);
    col.last_w = watts;
    col.energy_end = cumulative_;
    if (peak_column_ < 0 || watts > peak_w_) {
        peak_w_ = watts;
        peak_column_ = c;
    }
}

void PlotSeries::AddReport(uint64_t time, bool sent) {
    Column& col = columns_[column_of(time)];
    (sent ? col.sent_energy : col.dropped_energy) = cumulative_;
    ++reports_;
}

std::string RenderSvg(const std::string& title, const PlotSeries& series,
                      const std::vector<ScenarioEntry>& changes) {
    Axes a{};
    a.duration = static_cast<double>(series.duration());
    NiceAxis(series.peak_w() * 1.05, &a.w_max, &a.w_step);
    NiceAxis(series.total_wh() * 1.05, &a.e_max, &a.e_step);
    std::string svg;
    AppendFrame(svg, a, title);
    AppendChanges(svg, a, changes);
    AppendCurves(svg, a, series);
    AppendReports(svg, a, series);
    AppendLegend(svg);
    svg += "</svg>\n";
    return svg;
}

}  // namespace energysim
