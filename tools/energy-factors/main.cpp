// energy-factors: tools for the people who maintain energy_factors.dat: lint, explain, table,
// fit, and a ground-truth wattmeter log to test the fit. Every rule comes from the plug-in's own
// parser, loader and calculator, run on the simulated TV.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <exception>
#include <fstream>
#include <string>
#include <vector>

#include "DataSet.h"
#include "Explain.h"
#include "Fit.h"
#include "FitPlot.h"
#include "InstallPaths.h"
#include "Lint.h"
#include "Meter.h"
#include "PluginSandbox.h"
#include "Session.h"
#include "Table.h"
#include "Truth.h"

namespace ef = energyfactors;

namespace {

constexpr int kBadInput = 2;

void WriteFile(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << text;
    if (!out.flush()) {
        throw std::runtime_error(fmt::format("cannot write {}", path));
    }
}

// A number in [min, max]. CLI11's Range lets "nan" through (every comparison with it is false):
// a NaN skew or noise would make NaN watts, a NaN period a sampling loop without end.
CLI::Validator FiniteRange(double min, double max) {
    return CLI::Validator(
        [min, max](std::string& input) {
            double value = 0;
            if (CLI::detail::lexical_cast(input, value) && value >= min && value <= max) {
                return std::string();
            }
            return fmt::format("Value {} not a number in range {:g} to {:g}", input, min, max);
        },
        fmt::format("FLOAT in [{:g} - {:g}]", min, max));
}

struct Options {
    std::string file = hostkit::DataDir() + "energy_factors.dat";
    std::string format = "text";
    std::string model, panel;
    ef::Inputs picture{powermeter::NORMAL, 700, 800, 2160, 20};
    std::string log, meter, plot, output, row;
    std::vector<std::string> logs, meters;  // fit: one pair per session
    double skew = 20, noise = 2, period = 1;
    uint32_t seed = 1;
};

int RunLint(const Options& o) {
    ef::PluginSandbox sandbox;
    const ef::DataSet set = ef::ReadDataSet(o.file);
    const std::vector<ef::Defect> defects = ef::Lint(sandbox, set);
    fmt::print("{}", o.format == "json" ? ef::FormatDefectsJson(o.file, defects)
                                        : ef::FormatDefectsText(o.file, defects));
    for (const ef::Defect& d : defects) {
        if (d.severity == ef::Severity::kError) {
            return 1;
        }
    }
    return 0;
}

int RunExplain(const Options& o) {
    ef::PluginSandbox sandbox;
    const ef::DataSet set = ef::ReadDataSet(o.file);
    const ef::Explanation e = ef::Explain(sandbox, set, o.model, o.panel);
    fmt::print("{}", ef::FormatExplanation(e));
    return e.winner != nullptr ? 0 : 1;
}

int RunTable(const Options& o) {
    ef::PluginSandbox sandbox;
    const ef::DataSet set = ef::ReadDataSet(o.file);
    fmt::print("{}", ef::FactorTable(sandbox, set, o.picture));
    return 0;
}

ef::Session ReadNamedSession(const Options& o, const std::string& log) {
    ef::Session session = ef::ReadSession(log);
    if (!o.model.empty()) {
        session.sw_model = o.model;
    }
    if (!o.panel.empty()) {
        session.panel_type = o.panel;
    }
    return session;
}

// The sessions of a fit, each checked to be metered on a set that selects the same row.
std::vector<ef::MeteredSession> ReadSessions(ef::PluginSandbox& sandbox, const ef::DataSet& set,
                                             const Options& o, ef::DataRow* row) {
    if (o.logs.size() != o.meters.size()) {
        throw std::runtime_error(
            fmt::format("{} --log but {} --meter: give one of each per session", o.logs.size(),
                        o.meters.size()));
    }
    std::vector<ef::MeteredSession> sessions;
    for (size_t i = 0; i < o.logs.size(); ++i) {
        ef::MeteredSession s;
        s.name = o.logs[i] + " + " + o.meters[i];
        s.session = ReadNamedSession(o, o.logs[i]);
        const std::vector<ef::Sample> samples = ef::ReadMeter(o.meters[i]);
        const ef::DataRow r = ef::SessionRow(sandbox, set, s.session);
        if (i == 0) {
            *row = r;
        } else if (r.line != row->line) {
            throw std::runtime_error(fmt::format(
                "{} is a set of row ID {} (line {}), {} of row ID {} (line {}): a fit is for one "
                "row",
                o.logs[i], r.row.SequenceNumber(), r.line, o.logs[0], row->row.SequenceNumber(),
                row->line));
        }
        fmt::print("session   {}: {} turns; {}: {} samples\n", o.logs[i], s.session.turns.size(),
                   o.meters[i], samples.size());
        fmt::print("set       SW model {}, panel type {}\n", s.session.sw_model,
                   s.session.panel_type);
        if (s.session.row_id != r.row.SequenceNumber()) {
            fmt::print("note      the session metered with row ID {}; {} selects row ID {}\n",
                       s.session.row_id, o.file, r.row.SequenceNumber());
        }
        s.measures = ef::AverageOverTurns(samples, s.session.turns);
        sessions.push_back(std::move(s));
    }
    return sessions;
}

int RunFit(const Options& o) {
    ef::PluginSandbox sandbox;
    const ef::DataSet set = ef::ReadDataSet(o.file);
    ef::DataRow row;
    const std::vector<ef::MeteredSession> sessions = ReadSessions(sandbox, set, o, &row);
    const ef::FitResult r = ef::Fit(sandbox, row, sessions);
    fmt::print("{}", ef::FormatFitReport(r));
    if (!o.plot.empty()) {
        WriteFile(o.plot, ef::RenderFitSvg(
                              r, fmt::format("fit of row {} ({}, {})", row.row.SequenceNumber(),
                                             row.SwModel(), row.PanelType())));
    }
    return 0;
}

int RunTruth(const Options& o) {
    ef::PluginSandbox sandbox;
    const ef::DataSet set = ef::ReadDataSet(o.file);
    const ef::Session session = ReadNamedSession(o, o.log);
    const ef::DataRow row = ef::SessionRow(sandbox, set, session);
    const std::string true_row =
        o.row.empty() ? ef::SkewedRow(sandbox, row, session, o.skew / 100.0, o.seed) : o.row;
    ef::TruthOptions t;
    t.noise_percent = o.noise;
    t.period = o.period;
    t.seed = o.seed;
    const std::string csv = "# true row: " + true_row + "\n" +
                            ef::FormatMeter(ef::TrueSamples(sandbox, true_row, session, t));
    if (o.output.empty()) {
        fmt::print("{}", csv);
    } else {
        WriteFile(o.output, csv);
    }
    fmt::print(stderr, "data set row: {}\ntrue row:     {}\n", row.text, true_row);
    return 0;
}

struct SubCommands {
    CLI::App *lint, *explain, *table, *fit, *truth;
};

SubCommands AddSubCommands(CLI::App& app, Options& o) {
    CLI::App* lint = app.add_subcommand("lint", "every defect of a data set, as FILE:LINE: reason");
    lint->add_option("FILE", o.file, "the data set")->required();
    lint->add_option("--format", o.format, "text (default) or json")
        ->check(CLI::IsMember({"text", "json"}));

    CLI::App* explain =
        app.add_subcommand("explain", "which row the plug-in's loader selects for a set, and why");
    explain->add_option("--model", o.model, "the set's SW model")->required();
    explain->add_option("--panel", o.panel, "the set's panel type")->required();
    explain->add_option("FILE", o.file, "the data set (default: the sample data set)");

    CLI::App* table = app.add_subcommand(
        "table", "watts per power state of every row, at stated picture inputs (Markdown)");
    table->add_option("FILE", o.file, "the data set (default: the sample data set)");
    table->add_option("--ana", o.picture.ana, "ANA register (default 700)")
        ->check(CLI::Range(0, 1023));
    table->add_option("--dutysum", o.picture.dutysum, "DutySum register (default 800)")
        ->check(CLI::Range(0, 1023));
    table->add_option("--resolution", o.picture.resolution, "lines (default 2160)")
        ->check(CLI::Range(0, 10000));
    table->add_option("--volume", o.picture.volume, "master volume on the TV speaker (default 20)")
        ->check(CLI::Range(0, 100));

    CLI::App* fit = app.add_subcommand(
        "fit", "calibrate the session's row from the plug-in's log and a wattmeter CSV");
    CLI::App* truth = app.add_subcommand(
        "truth", "a wattmeter CSV for a session, drawn from a \"true\" row, with noise");
    fit->add_option("--log", o.logs,
                    "the plug-in's log of a session (level info); once per session, in the order "
                    "of the --meter files")
        ->required();
    truth->add_option("--log", o.log, "the plug-in's log of the session (level info)")->required();
    for (CLI::App* c : {fit, truth}) {
        c->add_option("--data", o.file, "the data set (default: the sample data set)");
        c->add_option("--model", o.model, "the set's SW model (default: from the log)");
        c->add_option("--panel", o.panel, "the set's panel type (default: from the log)");
    }
    fit->add_option("--meter", o.meters,
                    "wattmeter CSV of a session: time (epoch seconds or UTC), watts; once per "
                    "session")
        ->required();
    fit->add_option("--plot", o.plot, "write an SVG chart of measured and estimated power");
    auto* row = truth->add_option("--row", o.row, "the true row, in data-set format");
    truth
        ->add_option("--skew", o.skew,
                     "without --row: change each factor a fit would change by up to this many "
                     "percent (default 20)")
        ->excludes(row)
        ->check(FiniteRange(0.0, 100.0));
    truth->add_option("--noise", o.noise, "Gaussian noise, percent of the watts (default 2)")
        ->check(FiniteRange(0.0, 100.0));
    truth->add_option("--period", o.period, "seconds between samples (default 1)")
        ->check(FiniteRange(0.001, 3600.0));
    truth->add_option("--seed", o.seed, "random seed (default 1)");
    truth->add_option("-o,--output", o.output, "write the CSV here (default: stdout)");
    return {lint, explain, table, fit, truth};
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App app{
        "Tools for the energy data set (energy_factors.dat), built on the plug-in's own row "
        "parser, loader and calculator on the simulated TV.\nExit status: 0 done (lint: no "
        "error; explain: a row selected), 1 lint found errors / explain selected no row, 2 bad "
        "input.",
        "energy-factors"};
    app.require_subcommand(1);
    Options o;

    const SubCommands c = AddSubCommands(app, o);

    // CLI11 would only say that a sub-command is required.
    if (argc > 1 && argv[1][0] != '-') {
        try {
            app.get_subcommand(argv[1]);
        } catch (const CLI::OptionNotFound&) {
            fmt::print(stderr, "energy-factors: unknown sub-command '{}' (see --help)\n", argv[1]);
            return kBadInput;
        }
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return app.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return app.exit(e);
    } catch (const CLI::ParseError& e) {
        fmt::print(stderr, "energy-factors: {} (see --help)\n", e.what());
        return kBadInput;
    }
    int status = kBadInput;
    try {
        if (c.lint->parsed()) {
            status = RunLint(o);
        } else if (c.explain->parsed()) {
            status = RunExplain(o);
        } else if (c.table->parsed()) {
            status = RunTable(o);
        } else if (c.fit->parsed()) {
            status = RunFit(o);
        } else {
            status = RunTruth(o);
        }
    } catch (const std::exception& e) {
        fmt::print(stderr, "energy-factors: {}\n", e.what());
        return kBadInput;
    }
    // What stdout still buffers is written here, not at exit, where a full disk would lose the
    // output's end without a word and a status of 0.
    if (std::fflush(stdout) != 0) {
        fmt::print(stderr, "energy-factors: cannot write the output: {}\n", std::strerror(errno));
        return kBadInput;
    }
    return status;
}
