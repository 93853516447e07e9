// Interleave family: kernel vs plain loop vs memcpy of the same bytes.
#include "bench_util.h"
#include "kvaudio/interleave.h"

namespace {

void BM_Deinterleave16to16(benchmark::State &state) {
  const size_t bytes = static_cast<size_t>(state.range(0));
  const uint32_t samples = static_cast<uint32_t>(bytes / 16);
  kvbench::ForcePath(state, static_cast<int>(state.range(1)));
  auto src = kvbench::Filled(bytes);
  std::vector<uint32_t> p[4];
  for (auto &v : p) v.resize(samples);
  for (auto _ : state) {
    AudioDeinterleave16to16(reinterpret_cast<const uint32_t *>(src.data()), p[0].data(), p[1].data(),
                            p[2].data(), p[3].data(), samples);
    benchmark::ClobberMemory();
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(bytes));
  kvaudio::frame::SetAvx2ForTesting(-1);
}

BENCHMARK(kvbench::MemcpyBaseline)->Name("Memcpy")->Arg(kvbench::kSmall)->Arg(kvbench::kLarge);
BENCHMARK(BM_Deinterleave16to16)->ArgsProduct({{kvbench::kSmall, kvbench::kLarge}, {0, 1}});

}  // namespace
