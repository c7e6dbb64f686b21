#include "support/failing_stat.h"

namespace tarsio_test {

FailingStat::FailingStat() = default;
FailingStat::~FailingStat() = default;

}  // namespace tarsio_test
