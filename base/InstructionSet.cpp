#include "base/InstructionSet.h"

namespace twintrue {

std::vector<InstructionSet> supported_instruction_sets() {
  std::vector<InstructionSet> sets{InstructionSet::kPortable};
#if defined(__x86_64__) && defined(__GNUC__)
  if (__builtin_cpu_supports("avx2")) {
    sets.push_back(InstructionSet::kAvx2);
    if (__builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512dq") &&
        __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512vl")) {
      sets.push_back(InstructionSet::kAvx512);
    }
  }
#endif
  return sets;
}

InstructionSet best_instruction_set() { return supported_instruction_sets().back(); }

}  // namespace twintrue
