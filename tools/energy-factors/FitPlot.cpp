#include "FitPlot.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <vector>

#include "SvgText.h"

namespace energyfactors {

namespace {

constexpr double kWidth = 1200, kHeight = 600;
constexpr double kLeft = 80, kRight = 30, kTop = 60, kBottom = 150;
constexpr double kPlotW = kWidth - kLeft - kRight, kPlotH = kHeight - kTop - kBottom;

using hostkit::NiceAxis;

// One point per pixel column: the mean of the turns that fall in it.
std::string PathOf(const std::vector<double>& xs, const std::vector<double>& values,
                   const std::function<double(double)>& y_of) {
    std::string path;
    double column = -1, sum = 0;
    int n = 0;
    auto flush = [&]() {
        if (n > 0) {
            path +=
                fmt::format("{}{:.0f},{:.1f} ", path.empty() ? "M" : "L", column, y_of(sum / n));
        }
    };
    for (size_t i = 0; i < xs.size(); ++i) {
        const double px = std::floor(xs[i]);
        if (px != column) {
            flush();
            column = px;
            sum = 0;
            n = 0;
        }
        sum += values[i];
        ++n;
    }
    flush();
    return path;
}

using YOf = std::function<double(double)>;

// The grid, its labels, the frame and the axes' titles.
void AppendAxes(std::string& svg, double w_max, double w_step, double duration, const YOf& y_of) {
    for (double v = 0; v <= w_max + 1e-9; v += w_step) {
        svg += fmt::format(
            "<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" stroke=\"#e4e4e4\"/>\n"
            "<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"end\">{:g}</text>\n",
            kLeft, y_of(v), kLeft + kPlotW, y_of(v), kLeft - 6, y_of(v) + 4, v);
    }
    const double hours = duration / 3600;
    const double h_step = hours <= 6 ? 1 : hours <= 24 ? 2 : hours <= 72 ? 6 : 24;
    for (double h = 0; h <= hours + 1e-9; h += h_step) {
        const double x = kLeft + kPlotW * h * 3600 / duration;
        svg += fmt::format(
            "<line x1=\"{0:.1f}\" y1=\"{1:.1f}\" x2=\"{0:.1f}\" y2=\"{2:.1f}\" "
            "stroke=\"#f0f0f0\"/>\n"
            "<text x=\"{0:.1f}\" y=\"{3:.1f}\" text-anchor=\"middle\">{4:g}h</text>\n",
            x, kTop, kTop + kPlotH, kTop + kPlotH + 18, h);
    }
    svg += fmt::format(
        "<rect x=\"{:.1f}\" y=\"{:.1f}\" width=\"{:.1f}\" height=\"{:.1f}\" fill=\"none\" "
        "stroke=\"#888\"/>\n",
        kLeft, kTop, kPlotW, kPlotH);
    svg += fmt::format(
        "<text transform=\"translate(22,{:.1f}) rotate(-90)\" text-anchor=\"middle\">power per "
        "turn (W)</text>\n",
        kTop + kPlotH / 2);
    svg += fmt::format(
        "<text x=\"{:.1f}\" y=\"{:.1f}\" text-anchor=\"middle\">time since the "
        "session's first turn</text>\n",
        kLeft + kPlotW / 2, kTop + kPlotH + 36);
}

// The three power series and their legend; returns the legend's baseline.
double AppendSeries(std::string& svg, const FitResult& r, const std::vector<double>& xs,
                    const YOf& y_of) {
    struct Series {
        const std::vector<double>* values;
        const char* colour;
        const char* dash;
        double width;
        const char* label;
    };
    const Series series[] = {
        {&r.measured, "#b4b4b4", "", 4.0, "wattmeter (mean per turn)"},
        {&r.estimated_before, "#d62728", "6,3", 1.6, "plug-in, data set's row (before)"},
        {&r.estimated_after, "#1f5fbf", "", 1.4, "plug-in, fitted row (after)"},
    };
    double lx = kLeft;
    const double ly = kTop + kPlotH + 62;
    for (const Series& s : series) {
        svg += fmt::format(
            "<path d=\"{}\" fill=\"none\" stroke=\"{}\" stroke-width=\"{}\" "
            "stroke-dasharray=\"{}\"/>\n",
            PathOf(xs, *s.values, y_of), s.colour, s.width, s.dash);
        svg += fmt::format(
            "<line x1=\"{:.1f}\" y1=\"{:.1f}\" x2=\"{:.1f}\" y2=\"{:.1f}\" stroke=\"{}\" "
            "stroke-width=\"{}\" stroke-dasharray=\"{}\"/><text x=\"{:.1f}\" "
            "y=\"{:.1f}\">{}</text>\n",
            lx, ly - 4, lx + 24, ly - 4, s.colour, s.width, s.dash, lx + 30, ly, s.label);
        lx += 300;
    }
    return ly;
}

// Energy per state: the error of the estimate before and after.
void AppendErrors(std::string& svg, const FitResult& r, double ly) {
    double ty = ly + 26;
    svg += fmt::format(
        "<text x=\"{:.1f}\" y=\"{:.1f}\" font-weight=\"bold\">energy error per "
        "state: before / after</text>\n",
        kLeft, ty);
    double tx = kLeft;
    ty += 20;
    auto cell = [&](const char* name, const StateError& e) {
        svg += fmt::format(
            "<text x=\"{:.1f}\" y=\"{:.1f}\">{}: <tspan fill=\"#d62728\">{:+.2f}%</tspan> / "
            "<tspan fill=\"#1f5fbf\">{:+.2f}%</tspan></text>\n",
            tx, ty, name, ErrorPercent(e.before_wh, e.measured_wh),
            ErrorPercent(e.after_wh, e.measured_wh));
        tx += 360;
        if (tx > kWidth - 360) {
            tx = kLeft;
            ty += 18;
        }
    };
    for (int s = 0; s < kStateCount; ++s) {
        if (r.states[s].turns > 0) {
            cell(StateName(static_cast<powermeter::_PowerStatusForEnergy>(s)), r.states[s]);
        }
    }
    cell("whole session", r.all);
}

}  // namespace

std::string RenderFitSvg(const FitResult& r, const std::string& title) {
    const int64_t start = r.times.empty() ? 0 : r.times.front();
    const double duration = std::max<double>(
        r.times.empty() ? 10 : static_cast<double>(r.times.back() - start + 10), 10);
    double top = 0;
    for (size_t i = 0; i < r.times.size(); ++i) {
        top = std::max({top, r.measured[i], r.estimated_before[i], r.estimated_after[i]});
    }
    double w_max, w_step;
    NiceAxis(top * 1.05, &w_max, &w_step);
    std::vector<double> xs;
    for (int64_t t : r.times) {
        xs.push_back(kLeft + kPlotW * static_cast<double>(t - start) / duration);
    }
    const YOf y_of = [&](double w) {
        return kTop + kPlotH * (1 - std::clamp(w, 0.0, w_max) / w_max);
    };

    std::string svg = fmt::format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"{0:.0f}\" height=\"{1:.0f}\" "
        "viewBox=\"0 0 {0:.0f} {1:.0f}\" font-family=\"sans-serif\" font-size=\"12\">\n",
        kWidth, kHeight);
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    svg +=
        fmt::format("<text x=\"{:.0f}\" y=\"28\" font-size=\"16\" font-weight=\"bold\">{}</text>\n",
                    kLeft, hostkit::SvgEscape(title));
    AppendAxes(svg, w_max, w_step, duration, y_of);
    AppendErrors(svg, r, AppendSeries(svg, r, xs, y_of));
    svg += "</svg>\n";
    return svg;
}

}  // namespace energyfactors
