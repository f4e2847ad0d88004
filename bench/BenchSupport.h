// What the benchmarks share: a scratch folder per run, medians, and a reporter that prints as
// the console does and keeps every run's figures for the closing `figure:` lines.
#pragma once

#include <benchmark/benchmark.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

namespace bench {

// A folder under the system's temporary directory named after the benchmark and the process,
// removed with everything in it when the object goes.
class ScratchFolder {
 public:
  explicit ScratchFolder(const std::string& prefix)
      : root_(std::filesystem::temp_directory_path() / (prefix + "_" + std::to_string(::getpid()))) {}
  ~ScratchFolder() {
    std::error_code ec;
    std::filesystem::remove_all(root_, ec);
  }
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;

  // The subfolder `name`, emptied (or made) now.
  std::string fresh(const std::string& name) const {
    auto folder = root_ / name;
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    return folder.string();
  }

 private:
  std::filesystem::path root_;
};

// The middle value (the upper one of an even count); 0 for none.
inline double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Keeps, per benchmark function, each successful run's counters, seconds per iteration, and
// iterations per second by wall clock and by the process's CPU time; answers their medians.
class MedianReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration || run.error_occurred) continue;
      const std::string& name = run.run_name.function_name;
      const auto n = static_cast<double>(run.iterations);
      for (const auto& [counter, value] : run.counters) values_[name + "/" + counter].push_back(value.value);
      values_[name + "/seconds"].push_back(run.real_accumulated_time / n);
      values_[name + "/wall_rate"].push_back(n / run.real_accumulated_time);
      values_[name + "/cpu_rate"].push_back(n / run.cpu_accumulated_time);
    }
  }
  // The median of `counter` of `function` ("items_per_second" and the benchmark's own
  // counters, or "seconds", "wall_rate", "cpu_rate"); 0 when no run reported it.
  double value(const std::string& function, const std::string& counter) {
    return median(values_[function + "/" + counter]);
  }

 private:
  std::map<std::string, std::vector<double>> values_;
};

}  // namespace bench
