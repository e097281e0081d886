#include "Explain.h"

#include <dlog.h>
#include <fmt/format.h>

#include <stdexcept>

namespace energyfactors {

Explanation Explain(PluginSandbox& sandbox, const DataSet& set, const std::string& sw_model,
                    const std::string& panel_type) {
    Explanation e;
    e.sw_model = sw_model;
    e.panel_type = panel_type;
    e.version = set.first_line;
    sandbox.WriteDataSet(set.text);
    const Selection s = sandbox.Select(sw_model, panel_type);
    for (const tvsim::LogLine& l : s.log) {
        if (l.priority == DLOG_ERROR) {
            e.loader_errors.push_back(l.Message());
        }
    }
    if (s.selected) {
        e.winner = FindRow(set, s.row);
    }
    // The loader rejects a panel type this short before comparing any; so does the list.
    if (panel_type.size() <= 8) {
        return e;
    }
    for (const DataRow& row : set.rows) {
        if (row.parsed && row.row.IsSameSWModel(sw_model)) {
            e.candidates.push_back({&row, row.row.IsSamePanelType(panel_type),
                                    row.row.IsSimilarPanelType(panel_type)});
        }
    }
    return e;
}

std::string FormatExplanation(const Explanation& e) {
    std::string out;
    out += fmt::format("set         SW model {}, panel type {}\n", e.sw_model, e.panel_type);
    out += fmt::format("data set    version \"{}\"\n", e.version);
    if (e.panel_type.size() <= 8) {
        out += "candidates  none compared: the panel type is 8 characters or shorter\n";
    } else if (e.candidates.empty()) {
        out += fmt::format("candidates  none: no readable row has SW model {}\n", e.sw_model);
    } else {
        out += fmt::format("candidates  the rows of SW model {}, in file order:\n", e.sw_model);
        for (const Candidate& c : e.candidates) {
            out += fmt::format("  line {:<5} ID {:<6} panel type {:<14} {}{}\n", c.row->line,
                               c.row->row.SequenceNumber(), c.row->PanelType(),
                               c.equal     ? "equal"
                               : c.similar ? "similar"
                                           : "different",
                               c.row == e.winner ? "  <- selected" : "");
        }
    }
    if (e.winner == nullptr) {
        out += "selected    none\n";
        for (const std::string& m : e.loader_errors) {
            out += fmt::format("  loader: {}\n", m);
        }
        return out;
    }
    const bool equal = e.winner->row.IsSamePanelType(e.panel_type);
    out += fmt::format(
        "selected    line {}, ID {}: {}\n", e.winner->line, e.winner->row.SequenceNumber(),
        equal ? "the first row with the equal panel type"
              : "no row has the equal panel type, so the first with a similar one (characters "
                "0-1, 4-5 and 7-8 agree)");
    out += fmt::format("row         {}\n", e.winner->text);
    return out;
}

}  // namespace energyfactors
