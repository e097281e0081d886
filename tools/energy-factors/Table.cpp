#include "Table.h"

#include <fmt/format.h>

#include <cmath>
#include <exception>
#include <vector>

namespace energyfactors {

std::string FactorTable(PluginSandbox& sandbox, const DataSet& set, const Inputs& picture) {
    std::string out = "| row | model | SW model | size | panel type | BLU type |";
    std::string rule = "|---|---|---|---|---|---|";
    for (int s = 0; s < kStateCount; ++s) {
        out += fmt::format(" {} W |", StateName(static_cast<powermeter::_PowerStatusForEnergy>(s)));
        rule += "---:|";
    }
    out += "\n" + rule + "\n";
    // Every selection first: computing a row's watts replaces the sandbox's data set.
    sandbox.WriteDataSet(set.text);
    std::vector<const DataRow*> chosen_rows;
    for (const DataRow& row : set.rows) {
        if (row.parsed) {
            const Selection sel = sandbox.Select(row.SwModel(), row.PanelType());
            chosen_rows.push_back(sel.selected ? FindRow(set, sel.row) : nullptr);
        }
    }
    size_t next = 0;
    for (const DataRow& row : set.rows) {
        if (!row.parsed) {
            continue;
        }
        const std::string& model = row.texts[1];
        const std::string& size = row.texts[3];
        const DataRow* chosen = chosen_rows[next++];
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
