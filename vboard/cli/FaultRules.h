#pragma once

#include <string>

namespace cli {

/// Whether a rule of the fault plan names a call that the board answers, and an error that this call can
/// have: a rule that could never do its work is a mistake. What is wrong with it, empty when nothing is; the
/// rest of the rule is the fault plan's to understand.
std::string checkFaultRule(const std::string& rule);

}  // namespace cli
