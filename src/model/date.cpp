#include "model/date.h"

#include <chrono>

namespace inkharbour {

Date now() {
  using namespace std::chrono;
  const auto sinceEpoch = duration<double>(system_clock::now().time_since_epoch()).count();
  return sinceEpoch - kUnixToReferenceDate;
}

}  // namespace inkharbour
