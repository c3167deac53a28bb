// The built-in self-test: end-to-end checks that this installation can read
// and write what it should. Runs headless, in a temporary folder it removes.
#pragma once

#include <ostream>

namespace inkharbour::cli {

// Runs every check, printing one line per check and a closing
// "N passed, M failed" line to `out`. True when all passed.
bool runSelfTests(std::ostream& out);

}  // namespace inkharbour::cli
