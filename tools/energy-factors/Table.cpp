#include "Table.h"

#include <fmt/format.h>

#include <cmath>
#include <exception>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace energyfactors {

namespace {

// The row the plug-in's loader selects for each parsed row's SW model and panel type (nullptr:
// none). The loader's candidates are the lines of one SW model, so each SW model is selected
// from a data set of the version line and that model's lines alone: the same choice as from the
// whole file, at a cost that grows with the set and not with its square.
std::map<const DataRow*, const DataRow*> LoaderChoices(PluginSandbox& sandbox, const DataSet& set) {
    std::map<std::string, std::string> lines_of;  // by the SW model as the loader screens it
    std::map<std::string, std::vector<const DataRow*>> asked;  // parsed rows by their SW model
    for (const DataRow& row : set.rows) {
        std::string_view sw_model;
        if (powermeter::PowerFactors::Screen(row.text, sw_model)) {
            lines_of[std::string(sw_model)] += row.text + "\n";
        }
        if (row.parsed) {
            asked[row.SwModel()].push_back(&row);
        }
    }
    std::map<const DataRow*, const DataRow*> chosen;
    for (const auto& [sw_model, rows] : asked) {
        const auto lines = lines_of.find(sw_model);
        sandbox.WriteDataSet(set.first_line + "\n" +
                             (lines != lines_of.end() ? lines->second : ""));
        for (const DataRow* row : rows) {
            const Selection sel = sandbox.Select(row->SwModel(), row->PanelType());
            chosen[row] = sel.selected ? FindRow(set, sel.row) : nullptr;
        }
    }
    return chosen;
}

}  // namespace

std::string FactorTable(PluginSandbox& sandbox, const DataSet& set, const Inputs& picture) {
    std::string out = "| row | model | SW model | size | panel type | BLU type |";
    std::string rule = "|---|---|---|---|---|---|";
    for (int s = 0; s < kStateCount; ++s) {
        out += fmt::format(" {} W |", StateName(static_cast<powermeter::_PowerStatusForEnergy>(s)));
        rule += "---:|";
    }
    out += "\n" + rule + "\n";
    // Every selection first: computing a row's watts replaces the sandbox's data set.
    const std::map<const DataRow*, const DataRow*> chosen_rows = LoaderChoices(sandbox, set);
    for (const DataRow& row : set.rows) {
        if (!row.parsed) {
            continue;
        }
        const std::string& model = row.texts[1];
        const std::string& size = row.texts[3];
        const DataRow* chosen = chosen_rows.at(&row);
        if (chosen == nullptr) {
            out +=
                fmt::format("| {} | {} | {} | {} | {} | not selected |\n", row.row.SequenceNumber(),
                            model, row.SwModel(), size, row.PanelType());
            continue;
        }
        out += fmt::format("| {} | {} | {} | {} | {} | {} |", chosen->row.SequenceNumber(), model,
                           row.SwModel(), size, row.PanelType(),
                           FactorText(chosen->row.BLUFactors(powermeter::TYPE)));
        RowModel calculator(sandbox, chosen->text);
        for (int s = 0; s < kStateCount; ++s) {
            Inputs in = picture;
            in.state = static_cast<powermeter::_PowerStatusForEnergy>(s);
            try {
                const double watts = calculator.Watts(in);
                // Named, never printed as "nan" or "inf" (a negative speaker factor makes NaN).
                out += std::isfinite(watts) ? fmt::format(" {:.1f} |", watts)
                                            : std::string(" not a finite number |");
            } catch (const std::exception& e) {
                out += fmt::format(" {} |", e.what());
            }
        }
        out += "\n";
    }
    return out;
}

}  // namespace energyfactors
