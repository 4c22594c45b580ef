// The host's millisecond clock: stamps trace lines, received reports and signal ages.
#include "Tarvel.h"

#include <chrono>

// A monotonic clock, so that ages never run backwards when the wall clock is set.
long long Tarvel::GetTickMs() {
    using namespace std::chrono;
    return static_cast<long long>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}
