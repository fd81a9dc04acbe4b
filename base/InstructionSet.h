#pragma once

// Which vector instructions the machine at hand has.
//
// Kernels that gain from wide vectors are compiled once for each set below and picked by the set's number at
// run time, so one build runs on any machine. All forms of a kernel give the same bits: none fuses multiply
// and add, and none lets the width of a vector decide the order of a sum.

#include <vector>

// Compiles a function for a set. On other processors the portable form serves for all of them.
#if defined(__x86_64__) && defined(__GNUC__) && !defined(__clang__)
#define TWINTRUE_TARGET_AVX2 __attribute__((target("avx2")))
#define TWINTRUE_TARGET_AVX512 \
  __attribute__((target("avx512f,avx512dq,avx512bw,avx512vl,prefer-vector-width=512")))
#elif defined(__x86_64__) && defined(__clang__)
#define TWINTRUE_TARGET_AVX2 __attribute__((target("avx2")))
#define TWINTRUE_TARGET_AVX512 __attribute__((target("avx512f,avx512dq,avx512bw,avx512vl")))
#else
#define TWINTRUE_TARGET_AVX2
#define TWINTRUE_TARGET_AVX512
#endif

// The body of a kernel, taken into each of its forms and compiled for that form's instructions.
#define TWINTRUE_INLINE [[gnu::always_inline]] inline

namespace twintrue {

enum class InstructionSet { kPortable = 0, kAvx2 = 1, kAvx512 = 2 };
inline constexpr int kInstructionSets = 3;

// The widest set that this machine has.
InstructionSet best_instruction_set();

// All sets that this machine has, the portable one first. For tests and benchmarks.
std::vector<InstructionSet> supported_instruction_sets();

// The form of a kernel that is made for a set.
template <typename Kernel>
constexpr Kernel for_set(InstructionSet set, Kernel portable, Kernel avx2, Kernel avx512) {
  switch (set) {
    case InstructionSet::kAvx512:
      return avx512;
    case InstructionSet::kAvx2:
      return avx2;
    default:
      return portable;
  }
}

}  // namespace twintrue
