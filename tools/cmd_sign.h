// `kolvari sign` run in-process, for the batch benchmark.
#ifndef KOLVARI_TOOLS_CMD_SIGN_H
#define KOLVARI_TOOLS_CMD_SIGN_H

#include <string>
#include <vector>

// `kolvari sign ARGS...`: reads args (what follows "sign") as the tool does and signs; returns the exit status.
int runSign(const std::vector<std::string>& args);

#endif  // KOLVARI_TOOLS_CMD_SIGN_H
