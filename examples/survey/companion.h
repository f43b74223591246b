// The companion's side: the process that survey starts to count the files.
#pragma once

namespace survey {

// Answers requests until survey is done; returns the exit status. `fault` tells when to die, for
// trying out what survey does then: "3" upon the third request, "3~" in the middle of its answer,
// "3+" after its answer; the empty string means never.
int run_companion(const char *fault);

} // namespace survey
