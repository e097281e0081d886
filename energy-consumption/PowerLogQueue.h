// The block log: merges closed write intervals into time blocks, keeps them in
// energy_log.dat across restarts and reports them as a daily consumption array.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "IPowerLogQueue.h"
#include "PowerLogSubQueue.h"
#include "TimeAndPower.h"

namespace powermeter {

class DataFile;

class PowerLogQueue : public IPowerLogQueue {
  public:
    PowerLogQueue();

    // Reads the option file, derives max_items, reloads the data file and prints the log.
    void Init() override;
    void Add(unsigned long time, double energy, unsigned long duration) override;
    // Due once the blocks span at least the notify interval.
    bool IsUploadRequired() override;
    void Print() override;
    // {"dailyPowerConsumption":[{"start":..,"end":..,"deltaEnergy":..,"power":0,
    // "energySaved":0},...]}, or {"dailyPowerConsumption":null} with no blocks.
    std::string GetJson() override;
    // Drops every block and removes the data file; the open write interval stays.
    void Reset() override;

  private:
    void fill_options();
    bool is_options_valid(unsigned long write_interval, unsigned long block_size,
                          unsigned long notify_interval);
    void add(unsigned long start, unsigned long end, double power);
    bool is_merge_possible(unsigned long start);
    unsigned long accumulated_sec();
    unsigned long accumulated_sec(const TimeAndPower& first, const TimeAndPower& last);
    void reset();

    void read_from_file();
    void write_to_file();
    bool modify_file();
    void write_all();
    void append_item(DataFile& file);
    void modify_last_item(DataFile& file);

    uint32_t write_interval_sec;   // "write after": 1..900
    uint32_t block_size_sec;       // "block size": 1..3600
    uint32_t notify_interval_sec;  // "notify it after": 1..86400
    uint32_t max_items;            // notify / block + 1, set by Init
    std::vector<TimeAndPower> items;
    PowerLogSubQueue sub_queue;
};

}  // namespace powermeter
