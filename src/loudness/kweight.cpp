// Plain loops of the meter's sample path and their dispatch to the AVX2 kernels.
#include "loudness/kweight.h"

#include <cstring>

#include "frame/cpu.h"
#include "loudness/kweight_avx2.h"

namespace kvaudio::loudness {
namespace {

int32_t Read24(const uint8_t *p) {
  const uint32_t u = p[0] | (uint32_t{p[1]} << 8) | (uint32_t{p[2]} << 16);
  return static_cast<int32_t>(u << 8) >> 8;
}

void DecodePlain(const uint8_t *in, uint32_t resolution, size_t from, size_t count, double divisor, double *x) {
  for (size_t i = from; i < count; ++i) {
    int32_t s = 0;
    switch (resolution) {
      case 8: s = static_cast<int8_t>(in[i]); break;
      case 16: {
        int16_t v;
        std::memcpy(&v, in + 2 * i, 2);
        s = v;
        break;
      }
      case 24: s = Read24(in + 3 * i); break;
      default: std::memcpy(&s, in + 4 * i, 4); break;
    }
    x[i] = static_cast<double>(s) / divisor;
  }
}

// Direct form II step in the operation order of filter_calculate.
inline double Step(double x, double a1, double a2, double b0, double c1, double c2, double &z1, double &z2) {
  const double w = x - a1 * z1 - a2 * z2;
  const double y = b0 * x + c1 * z1 + c2 * z2;
  z2 = z1;
  z1 = w;
  return y;
}

void KWeightPlain(ebu_r128_channel *ch, uint32_t from, uint32_t nch, const double *x, size_t periods,
                  size_t offset, bool store) {
  for (uint32_t c = from; c < nch; ++c) {
    itu1770_filter &p = ch[c].pre;
    itu1770_filter &r = ch[c].rlb;
    double pz1 = p.z1, pz2 = p.z2, rz1 = r.z1, rz2 = r.z2;
    float *out = ch[c].step + offset;
    for (size_t t = 0; t < periods; ++t) {
      const double y = Step(x[t * nch + c], p.a1, p.a2, p.b0, p.c1, p.c2, pz1, pz2);
      const double k = Step(y, r.a1, r.a2, r.b0, r.c1, r.c2, rz1, rz2);
      if (store) out[t] = static_cast<float>(k);
    }
    p.z1 = pz1;
    p.z2 = pz2;
    r.z1 = rz1;
    r.z2 = rz2;
  }
}

}  // namespace

void DecodeSamples(const uint8_t *in, uint32_t resolution, size_t count, double divisor, double *x) {
  size_t done = 0;
  if (resolution != 24 && KVAudioCPUHasAVX2()) done = DecodeAvx2(in, resolution, count, divisor, x);
  DecodePlain(in, resolution, done, count, divisor, x);
}

void KWeight(ebu_r128_channel *ch, uint32_t nch, const double *x, size_t periods, size_t offset, bool store) {
  uint32_t done = 0;
  if (nch >= 2 && KVAudioCPUHasAVX2()) done = KWeightAvx2(ch, nch, x, periods, offset, store);
  KWeightPlain(ch, done, nch, x, periods, offset, store);
}

double SumOfSquares(const float *v, size_t n) {
  double acc[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  size_t i = 0;
  if (n >= 8 && KVAudioCPUHasAVX2()) i = SumOfSquaresAvx2(v, n, acc);
  for (; i < n; ++i) acc[i & 7] += static_cast<double>(v[i]) * v[i];
  const double c0 = acc[0] + acc[4], c1 = acc[1] + acc[5], c2 = acc[2] + acc[6], c3 = acc[3] + acc[7];
  return (c0 + c1) + (c2 + c3);
}

}  // namespace kvaudio::loudness
