// Interleave family: kernel vs plain loop vs memcpy of the same bytes, at 64 KiB and 64 MiB.
#include <algorithm>
#include <numeric>
#include <string>

#include "bench_util.h"
#include "kernel_calls.h"

namespace {

// The shapes that run a kernel (every pointer present, full channel count).
const char *const kMeasured[] = {
    "Deinterleave16to16",     "Deinterleave16to16_16",    "Deinterleave32to32",
    "Deinterleave32to32_16",  "Deinterleave24to16",       "Deinterleave32to16_16",
    "Deinterleave24to20",     "DeInterleave16to32",       "DeinterleavePair16",
    "DeinterleaveStereo2Mono", "Interleave16to16",        "Interleave16to16_16",
    "Interleave32to32",       "Interleave32to32_16",      "Interleave16to24",
    "Interleave16to32_16",    "InterleavePair16to32",     "InterleaveMono2Stereo16",
    "InterleaveDualMono2Stereo16", "InterleaveDualMono2Stereo32From16",
};

// Bytes a period on the larger side (the interleaved buffer for the width-keeping members).
size_t PeriodBytes(const kvtest::KernelCall &c) {
  const auto sum = [](const std::vector<size_t> &v) { return std::accumulate(v.begin(), v.end(), size_t{0}); };
  return std::max(sum(c.inBytes), sum(c.outBytes));
}

void Run(benchmark::State &state, const kvtest::KernelCall &c) {
  kvbench::ForcePath(state, static_cast<int>(state.range(1)));
  const size_t n = static_cast<size_t>(state.range(0)) / PeriodBytes(c);
  std::vector<std::vector<uint8_t>> in, out;
  std::vector<const uint8_t *> inPtrs;
  std::vector<uint8_t *> outPtrs;
  for (size_t b : c.inBytes) inPtrs.push_back(in.emplace_back(kvbench::Filled(n * b)).data());
  for (size_t b : c.outBytes) outPtrs.push_back(out.emplace_back(n * b).data());
  for (auto _ : state) {
    c.run(inPtrs.data(), outPtrs.data(), static_cast<uint32_t>(n));
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(n * PeriodBytes(c)));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

const int kRegistered = [] {
  benchmark::RegisterBenchmark("Memcpy", kvbench::MemcpyBaseline)->Arg(kvbench::kSmall)->Arg(kvbench::kLarge);
  for (const auto &c : kvtest::kKernelCalls) {
    if (std::none_of(std::begin(kMeasured), std::end(kMeasured), [&](const char *m) { return c.name == std::string(m); }))
      continue;
    benchmark::RegisterBenchmark(c.name, Run, c)->ArgsProduct({{kvbench::kSmall, kvbench::kLarge}, {0, 1}});
  }
  return 0;
}();

}  // namespace
