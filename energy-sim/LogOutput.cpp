#include "LogOutput.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstring>
#include <ctime>

#include "Error.h"

namespace energysim {

LogOutput::LogOutput(const std::string& file, int min_priority)
    : min_priority_(min_priority), path_(file) {
    if (!file.empty()) {
        file_ = std::fopen(file.c_str(), "w");
        if (file_ == nullptr) {
            throw SimError("cannot write log file " + file + ": " + std::strerror(errno));
        }
    }
}

LogOutput::~LogOutput() {
    if (file_ != nullptr) {
        std::fclose(file_);
    }
}

void LogOutput::Write(const tvsim::LogLine& line, int64_t now) {
    if (line.priority < min_priority_) {
        return;
    }
    std::string text = fmt::format("{} {} {}: {}\n", Iso(now), tvsim::PriorityName(line.priority),
                                   line.tag, line.text);
    std::lock_guard<std::mutex> lock(mutex_);
    FILE* to = file_ != nullptr ? file_ : stderr;
    if (std::fputs(text.c_str(), to) == EOF && error_.empty()) {
        error_ = (file_ != nullptr ? "cannot write log file " + path_
                                   : "cannot write the log to stderr") +
                 ": " + std::strerror(errno);
    }
}

std::string LogOutput::Finish() {
    std::lock_guard<std::mutex> lock(mutex_);
    if (file_ != nullptr && std::fflush(file_) != 0 && error_.empty()) {
        error_ = "cannot write log file " + path_ + ": " + std::strerror(errno);
    }
    return error_;
}

std::string LogOutput::Error() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return error_;
}

}  // namespace energysim
