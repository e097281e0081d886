// Where a run writes: the plug-in's reports on stdout, its log (LogOutput), the plot file and
// the progress line. Writes on the plug-in's threads keep their first error for the main
// thread, which stops the run with it.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>

#include "LogOutput.h"
#include "wexfhost/FrameworkHost.h"

namespace energysim {

class Outputs {
  public:
    // The reports go to `out`; an empty `plot_file` means no plot.
    Outputs(std::ostream& out, std::string plot_file);
    // On an error path the plot is not written: a plot file this run truncated is removed, so
    // a plot is either complete or absent.
    ~Outputs();
    Outputs(const Outputs&) = delete;
    Outputs& operator=(const Outputs&) = delete;

    // Opens the plot file, then the log (`log_file`, or stderr when it is empty). Throws
    // SimError when one cannot be written.
    void Open(const std::string& log_file, int log_level);

    // One notification as a JSON line on stdout, stamped with the simulated time. Any thread.
    void WriteNotification(const wexfhost::Notification& n);
    void WriteLog(const tvsim::LogLine& line, int64_t now) { log_->Write(line, now); }
    // Keeps the first error of a plug-in's thread. Any thread.
    void FailLater(const std::string& error);
    // Throws SimError with the first error of any output so far.
    void Check();

    bool HasPlot() const { return plot_ != nullptr; }
    // Writes and closes the plot; throws SimError (and removes the file) when it cannot.
    void WritePlot(const std::string& svg);
    // Flushes the log; throws SimError when it could not be written.
    void FinishLog();

  private:
    void remove_partial_plot();

    std::ostream& out_;
    std::string plot_file_;
    FILE* plot_ = nullptr;
    bool plot_is_file_ = false;  // a regular file, which an error path removes
    std::unique_ptr<LogOutput> log_;
    std::mutex mutex_;
    std::string error_;
};

// The progress line on stderr, at most every 100 ms of real time.
class ProgressLine {
  public:
    explicit ProgressLine(bool enabled) : enabled_(enabled) {}
    // `now` the simulated wall clock, `done` the share of the run reached (0-1).
    void Show(bool force, int64_t now, double done, uint64_t turns, double wh);
    // Ends the line.
    void End() const;

  private:
    bool enabled_;
    int64_t last_ = 0;
};

}  // namespace energysim
