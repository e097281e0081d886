// A shared library of the consumer: builds and reads documents with the support library's
// public JSON API. It is linked with -z defs, so a declaration in an installed header that the
// support library does not export fails its link instead of its loading.
#pragma once

#include <string>

// The daily report of `blocks` blocks of `energy` Wh each, as compact text.
std::string DailyReport(unsigned blocks, double energy);

// Reads back a report made by DailyReport; "" when `text` is not one.
std::string Summary(const std::string& text);
