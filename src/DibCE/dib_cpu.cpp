// The choice of code by processor, with the ceiling that tests and users
// set through TOVREL_CPU (see dibkernels.h).
#include "dibkernels.h"

#include <atomic>
#include <cstdlib>
#include <cstring>

namespace {

constexpr int kFromEnvironment = -1;
std::atomic<int> g_ceiling{kFromEnvironment};

int CeilingFromEnvironment() {
    const char* chosen = std::getenv("TOVREL_CPU");
    if (!chosen || !*chosen) return DIB_CPU_ALL;
    if (std::strcmp(chosen, "portable") == 0) return DIB_CPU_PORTABLE;
    if (std::strcmp(chosen, "avx2") == 0) return DIB_CPU_AVX2;
    if (std::strcmp(chosen, "avx512") == 0) return DIB_CPU_AVX512;
    return DIB_CPU_ALL;
}

int Ceiling() {
    int c = g_ceiling.load(std::memory_order_relaxed);
    if (c == kFromEnvironment) {
        c = CeilingFromEnvironment();
        g_ceiling.store(c, std::memory_order_relaxed);
    }
    return c;
}

bool ProcessorHas(int feature) {
#ifdef DIB_HAVE_X86_PATHS
    switch (feature) {
    case DIB_CPU_AVX2: return __builtin_cpu_supports("avx2");
    case DIB_CPU_AVX512: return __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vbmi");
    default: return false;
    }
#else
    (void)feature;
    return false;
#endif
}

}  // namespace

extern "C" {

BOOL DibCpuHas(int feature) {
    if (feature == DIB_CPU_PORTABLE) return TRUE;
    return feature <= Ceiling() && ProcessorHas(feature);
}

void DibCpuSetCeiling(int level) { g_ceiling.store(level < 0 ? kFromEnvironment : level, std::memory_order_relaxed); }

}  // extern "C"
