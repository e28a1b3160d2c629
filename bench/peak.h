// The processor's peak, as far as a program reaches it: multiply-adds on registers alone.
#pragma once

namespace orvel_bench {

// Operations in single precision (two for a multiply-add) for each nanosecond of the thread, the most of
// some tries.
double peakFlopsPerNanosecond();

}  // namespace orvel_bench
