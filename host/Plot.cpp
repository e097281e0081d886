#include "Plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace energysim {
namespace {

constexpr double kWidth = 1200, kHeight = 560;
constexpr double kLeft = 80, kRight = 90, kTop = 60, kBottom = 70;
constexpr double kPlotW = kWidth - kLeft - kRight, kPlotH = kHeight - kTop - kBottom;

std::string Escape(const std::string& s) {
    std::string out;
    for (char c : s) {
        switch (c) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '"':
                out += "&quot;";
                break;
            default:
                out += c;
        }
    }
    return out;
}

template <typename... Args>
std::string Fmt(const char* fmt, Args... args) {
    char buf[512];
    std::snprintf(buf, sizeof buf, fmt, args...);
    return buf;
}

// A "nice" axis maximum and step for values up to `v`.
void NiceAxis(double v, double* max, double* step) {
    if (!(v > 0)) {
        v = 1;
    }
    double raw = v / 5;
    double mag = std::pow(10, std::floor(std::log10(raw)));
    double n = raw / mag;
    double s = n <= 1 ? 1 : n <= 2 ? 2 : n <= 5 ? 5 : 10;
    *step = s * mag;
    *max = std::ceil(v / *step) * *step;
}

}  // namespace

std::string RenderSvg(const PlotInput& in) {
    double duration = std::max<double>(static_cast<double>(in.duration), 10);
    double max_w = 0;
    double total = 0;
    for (const Turn& t : in.turns) {
        max_w = std::max(max_w, t.watts);
        total += t.wh;
    }
    double w_max, w_step, e_max, e_step;
    NiceAxis(max_w * 1.05, &w_max, &w_step);
    NiceAxis(total * 1.05, &e_max, &e_step);
    auto x_of = [&](uint64_t t) {
        double off = t >= in.start ? static_cast<double>(t - in.start) : 0;
        return kLeft + kPlotW * std::min(off, duration) / duration;
    };
    auto yw = [&](double w) { return kTop + kPlotH * (1 - std::max(0.0, w) / w_max); };
    auto ye = [&](double e) { return kTop + kPlotH * (1 - std::max(0.0, e) / e_max); };

    std::string svg;
    svg +=
        Fmt("<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"%.0f\" height=\"%.0f\" "
            "viewBox=\"0 0 %.0f %.0f\" font-family=\"sans-serif\" font-size=\"12\">\n",
            kWidth, kHeight, kWidth, kHeight);
    svg += "<rect width=\"100%\" height=\"100%\" fill=\"white\"/>\n";
    svg += "<text x=\"" + Fmt("%.0f", kLeft) +
           "\" y=\"28\" font-size=\"16\" font-weight=\"bold\">" + Escape(in.title) + "</text>\n";

    // Grid and axes.
    for (double v = 0; v <= w_max + 1e-9; v += w_step) {
        double y = yw(v);
        svg += Fmt("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#e4e4e4\"/>\n",
                   kLeft, y, kLeft + kPlotW, y);
        svg += Fmt("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"end\" fill=\"#1f5fbf\">%g</text>\n",
                   kLeft - 6, y + 4, v);
    }
    for (double v = 0; v <= e_max + 1e-9; v += e_step) {
        svg += Fmt("<text x=\"%.1f\" y=\"%.1f\" fill=\"#c0561b\">%g</text>\n", kLeft + kPlotW + 6,
                   ye(v) + 4, v);
    }
    double hours = duration / 3600;
    double h_step = hours <= 6 ? 1 : hours <= 24 ? 2 : hours <= 72 ? 6 : hours <= 168 ? 12 : 24;
    for (double h = 0; h <= hours + 1e-9; h += h_step) {
        double x = kLeft + kPlotW * (h * 3600) / duration;
        svg += Fmt("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#f0f0f0\"/>\n",
                   x, kTop, x, kTop + kPlotH);
        svg += Fmt("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">%gh</text>\n", x,
                   kTop + kPlotH + 18, h);
    }
    svg +=
        Fmt("<rect x=\"%.1f\" y=\"%.1f\" width=\"%.1f\" height=\"%.1f\" fill=\"none\" "
            "stroke=\"#888\"/>\n",
            kLeft, kTop, kPlotW, kPlotH);
    svg += Fmt("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"middle\">simulated time</text>\n",
               kLeft + kPlotW / 2, kHeight - 30);
    svg +=
        Fmt("<text transform=\"translate(22,%.1f) rotate(-90)\" text-anchor=\"middle\" "
            "fill=\"#1f5fbf\">power per turn (W)</text>\n",
            kTop + kPlotH / 2);
    svg +=
        Fmt("<text transform=\"translate(%.1f,%.1f) rotate(90)\" text-anchor=\"middle\" "
            "fill=\"#c0561b\">cumulative energy (Wh)</text>\n",
            kWidth - 22, kTop + kPlotH / 2);

    // Scenario changes: one dashed line per time, its entries joined in one label.
    std::vector<std::pair<uint64_t, std::string>> marks;
    for (const ScenarioEntry& c : in.changes) {
        size_t cut = c.text.find_first_of(" \t");
        std::string what = cut == std::string::npos ? c.text : c.text.substr(cut + 1);
        what.erase(0, what.find_first_not_of(" \t"));
        if (!marks.empty() && marks.back().first == c.offset) {
            marks.back().second += "; " + what;
        } else {
            marks.emplace_back(c.offset, c.text.substr(0, cut) + "  " + what);
        }
    }
    double last_label_x = -1e9;
    for (auto& [offset, label] : marks) {
        if (label.size() > 64) {
            label = label.substr(0, 61) + "...";  // keep it inside the plot area
        }
        double x = x_of(in.start + offset);
        svg +=
            Fmt("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#6a6a6a\" "
                "stroke-dasharray=\"4,3\"/>\n",
                x, kTop, x, kTop + kPlotH);
        if (x - last_label_x < 13) {
            continue;  // a label here would overprint the previous one
        }
        last_label_x = x;
        svg += Fmt("<text transform=\"translate(%.1f,%.1f) rotate(90)\" font-size=\"10\" "
                   "fill=\"#444\">",
                   x + 3, kTop + 4) +
               Escape(label) + "</text>\n";
    }

    // Power per turn: one min/max column per pixel keeps spikes visible on long runs.
    std::string power_path, energy_path;
    double cumulative = 0;
    double last_px = -1;
    double col_min = 0, col_max = 0, col_last = 0;
    for (const Turn& t : in.turns) {
        double px = std::floor(x_of(t.time));
        cumulative += t.wh;
        if (px != last_px) {
            if (last_px >= 0) {
                power_path += Fmt("L%.0f,%.1f L%.0f,%.1f L%.0f,%.1f ", last_px, yw(col_min),
                                  last_px, yw(col_max), last_px, yw(col_last));
            }
            col_min = col_max = col_last = t.watts;
            if (power_path.empty()) {
                power_path = Fmt("M%.0f,%.1f ", px, yw(t.watts));
            }
            energy_path +=
                Fmt(energy_path.empty() ? "M%.0f,%.1f " : "L%.0f,%.1f ", px, ye(cumulative));
            last_px = px;
        } else {
            col_min = std::min(col_min, t.watts);
            col_max = std::max(col_max, t.watts);
            col_last = t.watts;
        }
    }
    if (last_px >= 0) {
        power_path += Fmt("L%.0f,%.1f L%.0f,%.1f L%.0f,%.1f ", last_px, yw(col_min), last_px,
                          yw(col_max), last_px, yw(col_last));
        energy_path += Fmt("L%.0f,%.1f", last_px, ye(cumulative));
    }
    svg +=
        "<path d=\"" + power_path + "\" fill=\"none\" stroke=\"#1f5fbf\" stroke-width=\"1.2\"/>\n";
    svg +=
        "<path d=\"" + energy_path + "\" fill=\"none\" stroke=\"#c0561b\" stroke-width=\"2\"/>\n";

    // Reports: a dot on the energy curve when sent, a cross when dropped.
    double running = 0;
    size_t ti = 0;
    for (const Report& r : in.reports) {
        while (ti < in.turns.size() && in.turns[ti].time <= r.time) {
            running += in.turns[ti++].wh;
        }
        double x = x_of(r.time), y = ye(running);
        if (r.sent) {
            // Many reports (long runs) get small dots so the energy curve stays visible.
            svg += Fmt("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"%.1f\" fill=\"#2a9d3a\"/>\n", x, y,
                       in.reports.size() > 120 ? 1.2 : 3.0);
        } else {
            svg +=
                Fmt("<path d=\"M%.1f,%.1f l6,6 m0,-6 l-6,6\" stroke=\"#d62728\" "
                    "stroke-width=\"1.6\"/>\n",
                    x - 3, y - 3);
        }
    }

    // Legend.
    double lx = kLeft + 10, ly = kHeight - 12;
    svg +=
        Fmt("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#1f5fbf\" "
            "stroke-width=\"2\"/>",
            lx, ly - 4, lx + 20, ly - 4);
    svg += Fmt("<text x=\"%.1f\" y=\"%.1f\">power (W)</text>\n", lx + 25, ly);
    svg +=
        Fmt("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#c0561b\" "
            "stroke-width=\"2\"/>",
            lx + 110, ly - 4, lx + 130, ly - 4);
    svg += Fmt("<text x=\"%.1f\" y=\"%.1f\">energy (Wh)</text>\n", lx + 135, ly);
    svg += Fmt("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"3\" fill=\"#2a9d3a\"/>", lx + 240, ly - 4);
    svg += Fmt("<text x=\"%.1f\" y=\"%.1f\">report sent</text>\n", lx + 248, ly);
    svg += Fmt("<path d=\"M%.1f,%.1f l6,6 m0,-6 l-6,6\" stroke=\"#d62728\" stroke-width=\"1.6\"/>",
               lx + 330, ly - 7);
    svg += Fmt("<text x=\"%.1f\" y=\"%.1f\">report dropped</text>\n", lx + 342, ly);
    svg +=
        Fmt("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#6a6a6a\" "
            "stroke-dasharray=\"4,3\"/>",
            lx + 450, ly - 4, lx + 470, ly - 4);
    svg += Fmt("<text x=\"%.1f\" y=\"%.1f\">scenario change</text>\n", lx + 475, ly);
    svg += "</svg>\n";
    return svg;
}

}  // namespace energysim
