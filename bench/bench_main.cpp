// Runs every benchmark of the program, then prints the comparisons the
// figures are for: scaler against bare libswscale, the desktop stream's copy
// path against one memcpy, allocations per frame, and FFmpeg's CPU flags.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "allocation_hooks.h"

extern "C" {
#include <libavutil/cpu.h>
#include <libavutil/mem.h>
}

namespace {

std::string CpuFlags() {
  struct Flag {
    int bit;
    const char* name;
  };
  const Flag flags[] = {
      {AV_CPU_FLAG_MMX, "mmx"},     {AV_CPU_FLAG_MMXEXT, "mmxext"}, {AV_CPU_FLAG_SSE, "sse"},
      {AV_CPU_FLAG_SSE2, "sse2"},   {AV_CPU_FLAG_SSE3, "sse3"},     {AV_CPU_FLAG_SSSE3, "ssse3"},
      {AV_CPU_FLAG_SSE4, "sse4.1"}, {AV_CPU_FLAG_SSE42, "sse4.2"},  {AV_CPU_FLAG_AVX, "avx"},
      {AV_CPU_FLAG_AVX2, "avx2"},   {AV_CPU_FLAG_FMA3, "fma3"},     {AV_CPU_FLAG_AVX512, "avx512"},
      {AV_CPU_FLAG_CMOV, "cmov"}};
  const int detected = av_get_cpu_flags();
  char hex[16];
  std::snprintf(hex, sizeof(hex), "0x%x", static_cast<unsigned>(detected));
  std::string text = std::string(hex) + ":";
  for (const Flag& f : flags) {
    if (detected & f.bit) text += std::string(" ") + f.name;
  }
  return text;
}

// Proves that the counters see the two kinds of allocation they claim to.
std::string HookSelfCheck() {
  int64_t before = bench::AllocationCount();
  int* p = new int[64];
  benchmark::DoNotOptimize(p);
  delete[] p;
  const bool saw_new = bench::AllocationCount() > before;
  before = bench::AllocationCount();
  void* q = av_malloc(256);
  benchmark::DoNotOptimize(q);
  av_free(q);
  const bool saw_av_malloc = bench::AllocationCount() > before;
  return std::string("operator new ") + (saw_new ? "counted" : "NOT COUNTED") + ", av_malloc " +
         (saw_av_malloc ? "counted" : "NOT COUNTED");
}

struct Result {
  std::map<std::string, std::vector<double>> counters;
  std::vector<double> real_ms;
  std::vector<double> cpu_ms;
  double max_allocs_per_frame = 0;
};

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}
double Min(const std::vector<double>& v) { return v.empty() ? 0 : *std::min_element(v.begin(), v.end()); }

// Keeps every repetition beside the console output, keyed "function" or
// "function/args".
class CollectingReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& reports) override {
    for (const Run& run : reports) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      std::string key = run.run_name.function_name;
      if (!run.run_name.args.empty()) key += "/" + run.run_name.args;
      Result& r = results_[key];
      const double iterations = static_cast<double>(run.iterations);
      r.real_ms.push_back(run.real_accumulated_time * 1e3 / iterations);
      r.cpu_ms.push_back(run.cpu_accumulated_time * 1e3 / iterations);
      for (const auto& counter : run.counters) r.counters[counter.first].push_back(counter.second.value);
      auto it = run.counters.find("allocs_per_frame");
      if (it != run.counters.end())
        r.max_allocs_per_frame = std::max(r.max_allocs_per_frame, it->second.value);
    }
    ConsoleReporter::ReportRuns(reports);
  }
  const Result* Find(const std::string& key) const {
    auto it = results_.find(key);
    return it == results_.end() ? nullptr : &it->second;
  }

 private:
  std::map<std::string, Result> results_;
};

// Times of `measured` count per picture: an iteration that pushes
// `pictures` pictures is divided by that many.
void PrintComparison(const CollectingReporter& reporter, const std::string& label,
                     const std::string& measured, const std::string& reference, double goal,
                     int pictures = 1) {
  const Result* m = reporter.Find(measured);
  const Result* r = reporter.Find(reference);
  if (!m || !r) return;
  const double n = pictures;
  const double real_ratio = Median(m->real_ms) / n / Median(r->real_ms);
  const double min_ratio = Min(m->real_ms) / n / Min(r->real_ms);
  const double cpu_ratio = Median(m->cpu_ms) / n / Median(r->cpu_ms);
  std::printf("| %-24s | %8.3f | %8.3f | %6.3f | %8.3f | %8.3f | %6.3f | %6.3f | %4.2f | %-4s | %6.3f |\n",
              label.c_str(), Median(m->real_ms) / n, Median(r->real_ms), real_ratio, Min(m->real_ms) / n,
              Min(r->real_ms), min_ratio, cpu_ratio, goal, min_ratio <= goal ? "met" : "MISS",
              m->max_allocs_per_frame);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string hooks = bench::InstallAllocationHooks();
  const std::string flags = CpuFlags();
  benchmark::AddCustomContext("ffmpeg_cpu_flags", flags);
  benchmark::AddCustomContext("allocation_hooks", hooks);
  // Repetitions of all cases are shuffled, so that a busy phase of a shared
  // machine doesn't fall on one side of a comparison; a flag given on the
  // command line comes later and wins.
  std::vector<char*> args = {argv[0]};
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  args.push_back(&interleave[0]);
  for (int i = 1; i < argc; ++i) args.push_back(argv[i]);
  int arg_count = static_cast<int>(args.size());
  benchmark::Initialize(&arg_count, args.data());
  if (benchmark::ReportUnrecognizedArguments(arg_count, args.data())) return 1;
  std::printf("FFmpeg CPU flags (av_get_cpu_flags): %s\n", flags.c_str());
  std::printf("Allocation hooks: %s; self-check: %s\n", hooks.c_str(), HookSelfCheck().c_str());
  std::fflush(stdout);

  CollectingReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);

  const char* sizes[] = {"w:1920/h:1080", "w:2560/h:1440", "w:1280/h:1024", "w:3840/h:2160"};
  std::printf(
      "\nScale against bare sws_scale of the same conversion into the fitted size, timed frame by frame in\n"
      "one loop (alternating order): medians of the frame times and of the per-frame ratios (judged), and "
      "the\n"
      "ratio of the summed thread CPU times, all as medians over the repetitions.\n");
  std::printf("| %-24s | %8s | %8s | %6s | %9s | %4s | %-4s |\n", "case", "scale ms", "raw ms", "ratio",
              "cpu ratio", "goal", "");
  std::printf("|--------------------------|----------|----------|--------|-----------|------|------|\n");
  for (const char* size : sizes) {
    const Result* paired = reporter.Find(std::string("BM_ScalePairedWithRaw/") + size);
    if (!paired || !paired->counters.count("ratio")) continue;
    const double ratio = Median(paired->counters.at("ratio"));
    std::printf("| %-24s | %8.3f | %8.3f | %6.3f | %9.3f | %4.2f | %-4s |\n",
                (std::string("Scale ") + size).c_str(), Median(paired->counters.at("scale_ms")),
                Median(paired->counters.at("raw_ms")), ratio, Median(paired->counters.at("cpu_ratio")), 1.15,
                ratio <= 1.15 ? "met" : "MISS");
  }

  std::printf(
      "\nSeparate benchmarks, ms per frame over the repetitions: median and minimum of real time, median of\n"
      "CPU time; base is bare sws_scale for the Scale rows, one memcpy of the 1080p I420 frame for the "
      "others.\n"
      "allocs: the most allocation calls per frame counted in any repetition of the measured case.\n");
  std::printf("| %-24s | %8s | %8s | %6s | %8s | %8s | %6s | %6s | %4s | %-4s | %6s |\n", "case", "median",
              "base", "ratio", "min", "base min", "ratio", "cpu", "goal", "", "allocs");
  std::printf(
      "|--------------------------|----------|----------|--------|----------|----------|--------|--------|---"
      "---|"
      "------|--------|\n");
  for (const char* size : sizes) {
    PrintComparison(reporter, std::string("Scale ") + size, std::string("BM_FrameScalerScale/") + size,
                    std::string("BM_SwsScaleRaw/") + size, 1.15);
  }
  // Per pushed picture, whatever the rate of the pulls.
  for (int rate : {1, 2, 4}) {
    PrintComparison(reporter, "push+pull " + std::to_string(rate) + ":1, a push",
                    "BM_PushDesktopFrameAndPull/" + std::to_string(rate), "BM_MemcpyFrame1080p", 2.5, rate);
  }
  PrintComparison(reporter, "FrameQueue copy path", "BM_FrameQueueCopyPath", "BM_MemcpyFrame1080p", 2.5);
  PrintComparison(reporter, "new+memcpy+delete", "BM_MallocMemcpyFree1080p", "BM_MemcpyFrame1080p", 2.5);
  benchmark::Shutdown();
  return 0;
}
