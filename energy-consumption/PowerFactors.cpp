#include "PowerFactors.h"
#include "Strtol32.h"

#include <climits>
#include <cstdlib>

#include "Log.h"

namespace powermeter {

namespace {

void print_factor(const char* label, double value) {
    if (value == PowerFactors::kMissing) {
        ELOGI("[Energy] %s: N/A", label);
    } else {
        ELOGI("[Energy] %s: %f", label, value);
    }
}

}  // namespace

PowerFactors::PowerFactors()
    : sequence_number_(-1),
      text1_("-"),
      model_("-"),
      sw_model_("-"),
      text4_("-"),
      panel_type_("-"),
      text6_("-") {
    for (double& f : blu_) {
        f = kMissing;
    }
    for (double& f : components_) {
        f = kMissing;
    }
}

bool PowerFactors::Parse(const std::string& line) {
    std::vector<std::string> tokens = tokenize(line, ',');
    if (tokens.size() != kTokenCount) {
        ELOGE("[Energy] The number of tokens is %d (not 19)", static_cast<int>(tokens.size()));
        return false;
    }
    sequence_number_ = Strtol32(tokens[0].c_str());
    text1_ = tokens[1];
    model_ = tokens[2];
    sw_model_ = tokens[3];
    text4_ = tokens[4];
    panel_type_ = tokens[5];
    text6_ = tokens[6];
    if (!validate_panel_type(panel_type_)) {
        ELOGE("[Energy] Invalid Panel Type %s", panel_type_.c_str());
        return false;
    }
    for (int i = 0; i < kBluCount; ++i) {
        blu_[i] = atof_with_default(tokens[7 + i]);
    }
    for (int i = 0; i < kComponentCount; ++i) {
        components_[i] = atof_with_default(tokens[7 + kBluCount + i]);
    }
    return true;
}

bool PowerFactors::Screen(std::string_view line, std::string_view& sw_model) {
    // The tokens are the runs of bytes between commas, as tokenize() makes them; only where
    // the SW model and the panel type lie is kept.
    const char* p = line.data();
    const char* const end = p + line.size();
    size_t count = 0;
    std::string_view panel;
    while (p != end) {
        if (*p == ',') {
            ++p;
            continue;
        }
        const char* const start = p;
        while (p != end && *p != ',') {
            ++p;
        }
        if (count == 3) {
            sw_model = std::string_view(start, p - start);
        } else if (count == 5) {
            panel = std::string_view(start, p - start);
        }
        ++count;
    }
    if (count != static_cast<size_t>(kTokenCount) || !validate_panel_type(panel)) {
        // A refused row is rare: Parse on a scratch record writes its line, so that the log
        // holds exactly what Parse writes, prefix included.
        PowerFactors().Parse(std::string(line));
        return false;
    }
    return true;
}

std::vector<std::string> PowerFactors::tokenize(const std::string& s, char sep) {
    std::vector<std::string> tokens;
    std::string::size_type start = 0;
    while (start <= s.size()) {
        std::string::size_type end = s.find(sep, start);
        if (end == std::string::npos) {
            end = s.size();
        }
        if (end > start) {
            tokens.emplace_back(s, start, end - start);
        }
        start = end + 1;
    }
    return tokens;
}

double PowerFactors::atof_with_default(const std::string& token) {
    if (token == "-") {
        return kMissing;
    }
    return std::strtod(token.c_str(), nullptr);
}

bool PowerFactors::validate_panel_type(std::string_view p) {
    return p.size() > 8;
}

int PowerFactors::SequenceNumber() const {
    return sequence_number_;
}

bool PowerFactors::IsValid() const {
    return sequence_number_ != -1;
}

double PowerFactors::Components(_COMPONENT c) const {
    return components_[c];
}

double PowerFactors::BLUFactors(_BLU b) const {
    return blu_[b];
}

bool PowerFactors::IsSamePanelType(const std::string& p) const {
    return panel_type_ == p;
}

bool PowerFactors::IsSameModel(const std::string& m) const {
    return model_ == m;
}

bool PowerFactors::IsSameSWModel(const std::string& s) const {
    return sw_model_ == s;
}

bool PowerFactors::IsSimilarPanelType(const std::string& p) const {
    // All three slices are compared before combining, so a too-short string always throws
    // instead of only when the earlier slices happen to agree.
    const bool head = panel_type_.compare(0, 2, p, 0, 2) == 0;
    const bool middle = panel_type_.compare(4, 2, p, 4, 2) == 0;
    const bool tail = panel_type_.compare(7, 2, p, 7, 2) == 0;
    return head && middle && tail;
}

void PowerFactors::Print() const {
    ELOGI("[Energy] === %d === ", sequence_number_);
    ELOGI("[Energy] %s", text1_.c_str());
    ELOGI("[Energy] %s", model_.c_str());
    ELOGI("[Energy] %s", sw_model_.c_str());
    ELOGI("[Energy] %s", text4_.c_str());
    ELOGI("[Energy] %s", panel_type_.c_str());
    ELOGI("[Energy] %s", text6_.c_str());
    for (int i = 0; i < kBluCount; ++i) {
        print_factor(kBluNames[i], blu_[i]);
    }
    for (int i = 0; i < kComponentCount; ++i) {
        print_factor(kComponentNames[i], components_[i]);
    }
}

void PowerFactors::PrintInfo() const {
    ELOGI("[Energy] ID: %d, Panel type: %s", sequence_number_, panel_type_.c_str());
}

}  // namespace powermeter
